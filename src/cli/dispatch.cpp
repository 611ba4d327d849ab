#include "cli/dispatch.h"

#include "answer/answer.h"
#include "answer/mcp_bridge.h"
#include "cli/capabilities.h"
#include "cli/fail.h"
#include "documents/pdf_page.h"
#include "documents/pdf_text.h"
#include "documents/rich_text.h"
#include "documents/text_pdf.h"
#include "ocr/vision_ocr.h"
#include "record/record_command.h"
#include "speech/speak.h"

namespace tallowbrook {

std::string topLevelUsage() {
  std::string usage = "usage: tallowbrook-helper <";
  for (size_t i = 0; i < kSubcommandWords.size(); ++i) {
    if (i > 0) usage += '|';
    usage += kSubcommandWords[i];
  }
  return usage + '>';
}

int dispatch(const std::vector<std::string>& words) {
  if (words.empty()) fail(topLevelUsage());
  const std::string& word = words.front();
  const std::vector<std::string> rest(words.begin() + 1, words.end());

  if (word == "capabilities") {
    Capabilities::run();
  } else if (word == "vision-ocr") {
    if (words.size() < 2) fail("usage: vision-ocr <image-path>");
    VisionOCR::run(words[1]);
  } else if (word == "pdf-page") {
    PdfPage::run(rest);
  } else if (word == "pdf-text") {
    PdfText::run(rest);
  } else if (word == "answer") {
    Answer::run();
  } else if (word == "record") {
    Record::run(rest);
  } else if (word == "speak") {
    Speak::run(rest);
  } else if (word == "rtf-text") {
    RichText::run(rest);
  } else if (word == "mcp-bridge") {
    McpBridge::run(rest);
  } else if (word == "text-pdf") {
    TextPdf::run(rest);
  } else {
    fail("unknown command: " + word);
  }
  return 0;
}

}  // namespace tallowbrook
