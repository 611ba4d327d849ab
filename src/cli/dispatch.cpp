#include "cli/dispatch.h"

#include <array>

#include "answer/answer.h"
#include "base/fail.h"
#include "cli/capabilities.h"
#include "documents/pdf_page.h"
#include "documents/pdf_text.h"
#include "documents/rich_text.h"
#include "documents/text_pdf.h"
#include "mcp/mcp_bridge.h"
#include "ocr/vision_ocr.h"
#include "record/record_command.h"
#include "speech/speak.h"

namespace tallowbrook {
namespace {

using Words = std::vector<std::string>;

// Jobs that take no words, or one, as their contracts say.
void capabilities(const Words&) {
  Capabilities::run();
}
void visionOcr(const Words& rest) {
  if (rest.empty()) fail("usage: vision-ocr <image-path>");
  VisionOCR::run(rest.front());
}
void answer(const Words&) {
  Answer::run();
}

constexpr std::array<Subcommand, 10> kSubcommands = {{
    {"capabilities", capabilities},
    {"vision-ocr", visionOcr},
    {"pdf-page", PdfPage::run},
    {"pdf-text", PdfText::run},
    {"answer", answer},
    {"record", Record::run},
    {"speak", Speak::run},
    {"rtf-text", RichText::run},
    {"mcp-bridge", McpBridge::run},
    {"text-pdf", TextPdf::run},
}};

}  // namespace

std::span<const Subcommand> subcommands() {
  return kSubcommands;
}

std::string topLevelUsage() {
  std::string usage = "usage: tallowbrook-helper <";
  for (const Subcommand& subcommand : kSubcommands) {
    if (&subcommand != &kSubcommands.front()) usage += '|';
    usage += subcommand.word;
  }
  return usage + '>';
}

int dispatch(const std::vector<std::string>& words) {
  if (words.empty()) fail(topLevelUsage());
  const std::string& word = words.front();
  for (const Subcommand& subcommand : kSubcommands) {
    if (subcommand.word == word) {
      subcommand.run(Words(words.begin() + 1, words.end()));
      return 0;
    }
  }
  fail("unknown command: " + word);
}

}  // namespace tallowbrook
