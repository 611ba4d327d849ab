// llama.cpp's real tokenizers (vocabulary-only models of the release, with upstream's expected
// token ids): the library loads the vocabularies of current model families, and an answer
// streamed token by token reaches the delta lines without a broken or lost character, even
// where a token ends inside a UTF-8 sequence (emoji, CJK, combining marks).
#include <ggml-backend.h>
#include <llama.h>

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "answer/answer_delta.h"
#include "answer/stable_text.h"
#include "answer_characters.h"
#include "text/utf8_text.h"

namespace {

using tallowbrook::Answer::DeltaCutter;
using tallowbrook::Answer::StableText;

const std::string kVocabDir = LLAMA_VOCAB_DIR;

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream all;
  all << in.rdbuf();
  return all.str();
}

// The texts of a .inp file and the token ids of its .out file, as upstream's tokenizer test
// reads them.
struct Case {
  std::string text;
  std::vector<llama_token> ids;
};
std::vector<Case> cases(const std::string& vocab) {
  std::string inputs = readFile(kVocabDir + "/ggml-vocab-" + vocab + ".gguf.inp");
  std::string outputs = readFile(kVocabDir + "/ggml-vocab-" + vocab + ".gguf.out");
  const std::string separator = "\n__ggml_vocab_test__\n";
  std::vector<Case> all;
  for (size_t at = 0; at < inputs.size();) {
    size_t end = inputs.find(separator, at);
    if (end == std::string::npos) break;
    all.push_back({inputs.substr(at, end - at), {}});
    at = end + separator.size();
  }
  std::istringstream lines(outputs);
  std::string line;
  for (auto& c : all) {
    if (!std::getline(lines, line)) break;
    std::istringstream ids(line);
    for (llama_token id; ids >> id;) c.ids.push_back(id);
  }
  return all;
}

struct ModelFree {
  void operator()(llama_model* m) const { llama_model_free(m); }
};
using Model = std::unique_ptr<llama_model, ModelFree>;

Model loadVocab(const std::string& vocab) {
  static bool quiet = [] {
    llama_log_set([](ggml_log_level, const char*, void*) {}, nullptr);
    return true;
  }();
  (void)quiet;
  llama_model_params params = llama_model_default_params();
  params.vocab_only = true;
  return Model(
      llama_model_load_from_file((kVocabDir + "/ggml-vocab-" + vocab + ".gguf").c_str(), params));
}

std::vector<llama_token> tokenize(const llama_vocab* vocab, const std::string& text) {
  std::vector<llama_token> ids(text.size() + 16);
  int n = llama_tokenize(vocab, text.data(), int(text.size()), ids.data(), int(ids.size()), false,
                         false);
  ids.resize(size_t(std::max(n, 0)));
  return ids;
}

std::string pieceOf(const llama_vocab* vocab, llama_token token) {
  char buffer[256];
  int n = llama_token_to_piece(vocab, token, buffer, sizeof buffer, 0, false);
  return std::string(buffer, size_t(std::max(n, 0)));
}

// Streams `pieces` as `answer` does; returns the deltas.
std::vector<std::string> stream(const std::vector<std::string>& pieces) {
  StableText text(icuCharacters());
  DeltaCutter cutter(icuCharacters());
  std::vector<std::string> deltas;
  for (const auto& piece : pieces) {
    if (auto snapshot = text.append(piece)) {
      if (auto delta = cutter.next(*snapshot)) deltas.push_back(*delta);
    }
  }
  if (auto last = text.finish()) {
    if (auto delta = cutter.next(*last)) deltas.push_back(*delta);
  }
  return deltas;
}

// Beside upstream's texts: combining marks, an emoji with a skin tone and a ZWJ sequence, CJK,
// Hangul and Devanagari.
const std::vector<std::string> kOwnTexts = {
    "caf\x65\xCC\x81 ma\xC3\xB1"
    "ana nin\xCC\x83o",
    "\xF0\x9F\x91\x8B\xF0\x9F\x8F\xBD hi \xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x92\xBB done",
    "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE6\x96\x87\xE7\xAB\xA0",
    "\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4 \xEB\xAC\xB8\xEC\x9E\xA5",
    "\xE0\xA4\xA8\xE0\xA4\xAE\xE0\xA4\xB8\xE0\xA5\x8D\xE0\xA4\xA4\xE0\xA5\x87 "
    "\xE0\xA4\xA6\xE0\xA5\x81\xE0\xA4\xA8\xE0\xA4\xBF\xE0\xA4\xAF\xE0\xA4\xBE",
};

class Tokenizer : public ::testing::TestWithParam<std::string> {};

}  // namespace

TEST_P(Tokenizer, LoadsAndMatchesUpstreamIds) {
  Model model = loadVocab(GetParam());
  ASSERT_TRUE(model) << GetParam();
  const llama_vocab* vocab = llama_model_get_vocab(model.get());
  auto all = cases(GetParam());
  ASSERT_GT(all.size(), 10u);
  for (const auto& c : all) EXPECT_EQ(tokenize(vocab, c.text), c.ids) << c.text;
}

TEST_P(Tokenizer, StreamedPiecesNeverBreakOrLoseACharacter) {
  Model model = loadVocab(GetParam());
  ASSERT_TRUE(model);
  const llama_vocab* vocab = llama_model_get_vocab(model.get());
  std::vector<std::string> texts = kOwnTexts;
  for (const auto& c : cases(GetParam())) texts.push_back(c.text);

  size_t splitSequences = 0;
  for (const auto& text : texts) {
    std::vector<std::string> pieces;
    std::string whole;
    for (llama_token id : tokenize(vocab, text)) {
      pieces.push_back(pieceOf(vocab, id));
      whole += pieces.back();
      if (!tallowbrook::isValidUtf8(pieces.back())) ++splitSequences;
    }
    std::string joined;
    for (const auto& delta : stream(pieces)) {
      EXPECT_TRUE(tallowbrook::isValidUtf8(delta));
      // A delta never starts with a mark or modifier that belongs to the character before it.
      EXPECT_NE(icuCharacters().count(joined + delta),
                icuCharacters().count(joined) + icuCharacters().count(delta) - 1)
          << "delta joins the previous one: " << text;
      joined += delta;
    }
    EXPECT_EQ(joined, tallowbrook::repairUtf8(whole)) << text;
  }
  // The texts do split characters across tokens, so the test sees what it is about.
  EXPECT_GT(splitSequences, 0u) << GetParam();
}

INSTANTIATE_TEST_SUITE_P(RealVocabularies, Tokenizer,
                         ::testing::Values("llama-bpe", "llama-spm", "gemma-4", "qwen35", "phi-3",
                                           "command-r"),
                         [](const auto& info) {
                           std::string name = info.param;
                           for (char& c : name) {
                             if (c == '-') c = '_';
                           }
                           return name;
                         });
