// Where `answer` finds the model file and llama.cpp.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tallowbrook::Answer {

// Looks up an environment variable; nothing when unset. Lets tests pass their own environment.
using GetEnv = std::optional<std::string> (*)(const char* name);

// The process environment (std::getenv). Main thread only, as anything reading the environment.
std::optional<std::string> processEnv(const char* name);

// The model file to use: $TALLOWBROOK_MODEL when set and not empty; otherwise
// $XDG_DATA_HOME/tallowbrook/model.gguf (XDG_DATA_HOME unset, empty or relative:
// $HOME/.local/share) when that file exists; otherwise /usr/share/tallowbrook/model.gguf. The
// result need not exist. `exists` says whether a path names an existing file. Any thread that
// may call `env`.
std::string modelPath(GetEnv env, bool (*exists)(const std::string& path));

// The folder of llama.cpp's libraries for an executable at `executablePath`: llama/ beside the
// modules (<directory above the executable's directory>/lib/tallowbrook-helper/llama). Pure.
std::string llamaLibraryDirectory(std::string_view executablePath);

}  // namespace tallowbrook::Answer
