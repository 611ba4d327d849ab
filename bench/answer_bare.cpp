// The peer of bench/answer: one answer from a GGUF model with llama.cpp called directly, doing
// the work the helper's llama module does (same backends, chat template call, tokens, context
// and sampling) with nothing around it: no fork, no JSON, no text rules. Each piece goes to
// standard output as soon as it is made. The thread count is an argument; the threads wait in a
// pool whose idle threads sleep, as the helper's do (llama.cpp's default pool spins).
//   bench-answer-bare MODEL LIBRARY_DIR THREADS MAX_TOKENS SYSTEM USER
#include <ggml-backend.h>
#include <ggml-cpu.h>
#include <llama.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

void errorsOnly(ggml_log_level level, const char* text, void*) {
  static bool inError = false;
  if (level != GGML_LOG_LEVEL_CONT) inError = level == GGML_LOG_LEVEL_ERROR;
  if (inError) std::fputs(text, stderr);
}

// The CPU backend's thread pool with sleeping idle threads (the backend is loaded at run time,
// so its function is looked up there).
ggml_threadpool_t sleepingPool(int threads) {
  ggml_backend_reg_t cpu = ggml_backend_reg_by_name("CPU");
  if (cpu == nullptr) return nullptr;
  using New = ggml_threadpool_t (*)(ggml_threadpool_params*);
  auto create =
      reinterpret_cast<New>(ggml_backend_reg_get_proc_address(cpu, "ggml_threadpool_new"));
  if (create == nullptr) return nullptr;
  ggml_threadpool_params params = ggml_threadpool_params_default(threads);
  params.poll = 0;
  return create(&params);
}

int die(const char* what) {
  std::fprintf(stderr, "bench-answer-bare: %s\n", what);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 7) return die("usage: MODEL LIBRARY_DIR THREADS MAX_TOKENS SYSTEM USER");
  const int threads = std::max(std::atoi(argv[3]), 1);
  const int maxTokens = std::atoi(argv[4]);
  const std::string system = argv[5], user = argv[6];

  llama_log_set(errorsOnly, nullptr);
  ggml_backend_load_all_from_path(argv[2]);
  bool gpu = false;
  for (size_t i = 0; i < ggml_backend_dev_count(); ++i) {
    auto type = ggml_backend_dev_type(ggml_backend_dev_get(i));
    gpu = gpu || type == GGML_BACKEND_DEVICE_TYPE_GPU || type == GGML_BACKEND_DEVICE_TYPE_IGPU;
  }
  llama_model_params modelParams = llama_model_default_params();
  modelParams.n_gpu_layers = gpu ? 999 : 0;
  llama_model* model = llama_model_load_from_file(argv[1], modelParams);
  if (model == nullptr) return die("the model does not load");
  const llama_vocab* vocab = llama_model_get_vocab(model);

  // System and user turns through the model's template, ready for the assistant's answer.
  llama_chat_message messages[2] = {{"system", system.c_str()}, {"user", user.c_str()}};
  const char* tmpl = llama_model_chat_template(model, nullptr);
  std::vector<char> text(2 * (system.size() + user.size()) + 256);
  int32_t n = llama_chat_apply_template(tmpl, messages, 2, true, text.data(), int32_t(text.size()));
  if (n > int32_t(text.size())) {
    text.resize(size_t(n));
    n = llama_chat_apply_template(tmpl, messages, 2, true, text.data(), n);
  }
  if (n < 0) return die("the chat template failed");

  std::vector<llama_token> tokens(size_t(n) + 8);
  int32_t count =
      llama_tokenize(vocab, text.data(), n, tokens.data(), int32_t(tokens.size()), true, true);
  if (count <= 0) return die("the prompt does not tokenize");
  tokens.resize(size_t(count));
  llama_token bos = llama_vocab_bos(vocab);
  if (tokens.size() >= 2 && bos != LLAMA_TOKEN_NULL && tokens[0] == bos && tokens[1] == bos) {
    tokens.erase(tokens.begin());
  }

  uint32_t trained = uint32_t(std::max(llama_model_n_ctx_train(model), 0));
  uint64_t wanted = tokens.size() + uint64_t(std::max(maxTokens, 1));
  uint32_t contextSize = uint32_t(std::min<uint64_t>(wanted, trained > 0 ? trained : 1u << 20));
  llama_context_params contextParams = llama_context_default_params();
  contextParams.n_ctx = contextSize;
  contextParams.n_batch = std::min<uint32_t>(contextSize, 2048);
  contextParams.n_ubatch = std::min<uint32_t>(contextParams.n_batch, 512);
  contextParams.n_seq_max = 1;
  contextParams.n_threads = threads;
  contextParams.n_threads_batch = threads;
  contextParams.no_perf = true;
  llama_context* context = llama_init_from_model(model, contextParams);
  if (context == nullptr) return die("no context");
  if (ggml_threadpool_t pool = sleepingPool(threads)) llama_attach_threadpool(context, pool, pool);

  uint32_t batchSize = llama_n_batch(context);
  for (size_t at = 0; at < tokens.size(); at += batchSize) {
    int32_t size = int32_t(std::min<size_t>(batchSize, tokens.size() - at));
    if (llama_decode(context, llama_batch_get_one(tokens.data() + at, size)) != 0) {
      return die("the prompt does not decode");
    }
  }

  llama_sampler* sampler = llama_sampler_chain_init(llama_sampler_chain_default_params());
  llama_sampler_chain_add(sampler, llama_sampler_init_top_k(40));
  llama_sampler_chain_add(sampler, llama_sampler_init_top_p(0.95f, 1));
  llama_sampler_chain_add(sampler, llama_sampler_init_temp(0.2f));
  llama_sampler_chain_add(sampler, llama_sampler_init_dist(LLAMA_DEFAULT_SEED));
  size_t used = tokens.size();
  for (int produced = 0; produced < maxTokens; ++produced) {
    llama_token token = llama_sampler_sample(sampler, context, -1);
    if (llama_vocab_is_eog(vocab, token)) break;
    char piece[256];
    int32_t length = llama_token_to_piece(vocab, token, piece, sizeof piece, 0, false);
    if (length > 0) {
      std::fwrite(piece, 1, size_t(length), stdout);
      std::fflush(stdout);
    }
    if (++used >= contextSize || produced + 1 == maxTokens) break;
    if (llama_decode(context, llama_batch_get_one(&token, 1)) != 0) return die("decode failed");
  }
  // Like the helper's child: ends without freeing what the process is about to drop.
  return 0;
}
