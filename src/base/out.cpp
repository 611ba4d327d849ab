#include "base/out.h"

#include <unistd.h>

#include <cerrno>
#include <cmath>

namespace tallowbrook {

std::mutex& Out::lock() {
  static std::mutex outLock;
  return outLock;
}

namespace {

// The platform serialiser refuses NaN and infinities; nlohmann would write null instead.
bool allNumbersFinite(const Json& doc) {
  switch (doc.type()) {
    case Json::value_t::number_float:
      return std::isfinite(doc.get<double>());
    case Json::value_t::array:
    case Json::value_t::object:
      for (const auto& item : doc) {
        if (!allNumbersFinite(item)) return false;
      }
      return true;
    default:
      return true;
  }
}

// Writes all of `bytes` to standard output. Unbuffered, so each call is already flushed.
bool writeAll(std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

bool writeSerialized(const Json& doc) {
  auto line = serializeJson(doc);
  if (!line) return false;
  line->push_back('\n');
  return writeAll(*line);
}

}  // namespace

std::optional<std::string> serializeJson(const Json& doc) {
  if (!allNumbersFinite(doc)) return std::nullopt;
  std::string compact;
  try {
    compact = doc.dump(-1, ' ', false, Json::error_handler_t::replace);
  } catch (const Json::exception&) {
    return std::nullopt;
  }
  // In compact output a '/' can only stand inside a string, so escaping every one is exact.
  std::string escaped;
  escaped.reserve(compact.size() + 8);
  for (char c : compact) {
    if (c == '/') escaped.push_back('\\');
    escaped.push_back(c);
  }
  return escaped;
}

bool writeJsonLine(const Json& doc) {
  std::lock_guard<std::mutex> held(Out::lock());
  return writeSerialized(doc);
}

bool writeJsonLineLocked(const Json& doc, const std::lock_guard<std::mutex>&) {
  return writeSerialized(doc);
}

bool writeTextLine(std::string_view text) {
  std::string line;
  line.reserve(text.size() + 1);
  line.append(text);
  line.push_back('\n');
  std::lock_guard<std::mutex> held(Out::lock());
  return writeAll(line);
}

}  // namespace tallowbrook
