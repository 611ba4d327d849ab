// The one writer of everything the helper prints: JSON documents and plain text lines on
// standard output, one line each, flushed at once.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tallowbrook {

// Every document the helper composes. Insertion-ordered so lines read naturally ("type"
// first), although readers must not rely on key order.
using Json = nlohmann::ordered_json;

namespace Out {

// The process-wide output lock, created on first use. Every line written through this
// header is serialised, written and flushed while it is held, so lines from different
// threads never interleave. Allowed nesting: a WAV writer's own lock may be held while this
// one is taken; never take any other lock while holding this one.
std::mutex& lock();

}  // namespace Out

// Serialises `doc` the way the platform serialiser does with no options: compact, one line,
// '/' written as "\/", UTF-8. Returns nothing when the document cannot be serialised (a NaN or
// infinite number). Invalid UTF-8 inside strings (argument bytes, file names) is replaced by
// U+FFFD rather than losing the whole line. Pure; callable from any thread.
std::optional<std::string> serializeJson(const Json& doc);

// Serialises `doc` and writes it with one line feed to standard output under `Out::lock()`.
// Writes nothing and returns false when serialisation fails; returns false too when the write
// fails (closed pipe). Must not be called with `Out::lock()` held: use `writeJsonLineLocked`.
bool writeJsonLine(const Json& doc);

// As `writeJsonLine`, for a caller that already holds `Out::lock()` (proved by `held`).
bool writeJsonLineLocked(const Json& doc, const std::lock_guard<std::mutex>& held);

// Writes `text` and one line feed to standard output under `Out::lock()`, unchanged.
bool writeTextLine(std::string_view text);

}  // namespace tallowbrook
