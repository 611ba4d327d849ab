#include "documents/text_pdf.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "base/fail.h"
#include "base/standard_input.h"

namespace tallowbrook::TextPdf {

namespace {

constexpr int kMaxDepth = 64;

// The string at `key`: absent (or null, when `nullable`) gives nothing; any other non-string
// throws.
std::optional<std::string> stringAt(const nlohmann::json& object, const char* key, bool required) {
  auto found = object.find(key);
  if (found == object.end() || (!required && found->is_null())) {
    if (required) throw std::invalid_argument(key);
    return std::nullopt;
  }
  if (!found->is_string()) throw std::invalid_argument(key);
  return found->get<std::string>();
}

std::uintmax_t fileSize(const std::string& path) {
  std::error_code error;
  std::uintmax_t size = std::filesystem::file_size(path, error);
  return error ? 0 : size;
}

}  // namespace

std::optional<Request> decode(std::string_view input) {
  try {
    // A request nests three levels deep; deeper input is not a request, and refusing it early
    // keeps a long run of brackets from costing seconds.
    auto shallow = [](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
      if (depth > kMaxDepth) throw std::invalid_argument("nested too deeply");
      return true;
    };
    nlohmann::json doc = nlohmann::json::parse(input, shallow);
    if (!doc.is_object()) return std::nullopt;
    Request request;
    request.title = *stringAt(doc, "title", true);
    request.subtitle = stringAt(doc, "subtitle", false);
    auto lines = doc.find("lines");
    if (lines == doc.end() || !lines->is_array()) return std::nullopt;
    request.lines.reserve(lines->size());
    for (const auto& entry : *lines) {
      if (!entry.is_object()) return std::nullopt;
      Line line;
      line.label = stringAt(entry, "label", false);
      line.text = *stringAt(entry, "text", true);
      request.lines.push_back(std::move(line));
    }
    return request;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

Attributed attributed(const Request& request) {
  Attributed text;
  text.reserve(2 + 2 * request.lines.size());
  text.push_back({request.title + "\n", kTitleStyle});
  if (request.subtitle && !request.subtitle->empty()) {
    text.push_back({*request.subtitle + "\n", kSubtitleStyle});
  }
  for (const Line& line : request.lines) {
    if (line.label && !line.label->empty()) text.push_back({*line.label + "\n", kLabelStyle});
    text.push_back({line.text + "\n", kTextStyle});
  }
  return text;
}

std::string footerText(int page) {
  return "Tallowbrook \u00B7 " + std::to_string(page);
}

void footer(Document& document, int page) {
  document.drawLine(footerText(page), kFooterStyle, kFooterX, kFooterY);
}

Json write(const std::string& path, const Request& request, Typesetter& typesetter) {
  Attributed text = attributed(request);
  std::size_t length = 0;
  for (const Run& run : text) length += run.text.size();

  std::unique_ptr<Document> document =
      typesetter.open(path, kPageWidth, kPageHeight, {request.title, std::string(kCreator)}, text);

  std::size_t position = 0;
  int counter = 0;
  do {
    document->beginPage();
    std::size_t placed = document->fillFrame(kTextFrame, position);
    footer(*document, counter + 1);
    document->endPage();
    if (placed == 0) break;
    position += placed;
    counter += 1;
  } while (position < length);

  try {
    document->finish();
  } catch (const Error&) {
    // Never leave an incomplete PDF looking like a good one; a device such as /dev/full stays.
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored)) std::filesystem::remove(path, ignored);
    throw;
  }
  Json summary;
  summary["type"] = "done";
  summary["pages"] = std::max(counter, 1);
  summary["bytes"] = fileSize(path);
  return summary;
}

void run(const std::vector<std::string>& args, std::string_view input, Typesetter& typesetter) {
  if (args.empty()) fail(kUsage);
  std::optional<Request> request = decode(input);
  if (!request) fail(kParseFailure);
  try {
    writeJsonLine(write(args[0], *request, typesetter));
  } catch (const Error& error) {
    fail(error.message());
  }
}

void run(const std::vector<std::string>& args) {
  if (args.empty()) fail(kUsage);
  // Tens of thousands of pages; a longer input is not a request.
  constexpr size_t kMaxRequestBytes = 64u << 20;
  std::optional<std::string> input = readStandardInput(kMaxRequestBytes);
  std::optional<Request> request = input ? decode(*input) : std::nullopt;
  if (!request) fail(kParseFailure);
  input.reset();
  try {
    writeJsonLine(write(args[0], *request, loadTypesetter()));
  } catch (const Error& error) {
    fail(error.message());
  }
}

}  // namespace tallowbrook::TextPdf
