// Subsystem modules: shared objects holding the code that needs a heavy library (Tesseract,
// Poppler, libpulse, ...), loaded only when a subcommand needs it, so every other command starts
// without paying for those libraries and keeps working when one of them is missing.
//
// A module is lib/tallowbrook-helper/tallowbrook-<name>.so under the prefix that holds the
// executable in bin/ (the build tree has the same layout). It exports `extern "C"` factory
// functions returning implementations of the subsystem's platform interface, and may call the
// executable's exported `fail`, output writer and `Out::lock()`.
#pragma once

#include <string>
#include <string_view>

namespace tallowbrook {

// <directory above the executable's directory>/lib/tallowbrook-helper/tallowbrook-<name>.so.
// Pure.
std::string modulePath(std::string_view executablePath, std::string_view name);

// The running executable's own path, from /proc/self/exe; empty if it cannot be read.
std::string executablePath();

// Opens the shared object at `path` with every symbol bound now, or throws Error with the
// loader's reason. Any thread.
void* openModule(const std::string& path);

// Opens module `name` beside the running executable, or fails with
// "could not load the <name> module: <loader's reason>". Main thread only.
void* loadModule(std::string_view name);

// The address of `symbol` in `module`, or a failure naming the module and the symbol.
void* moduleSymbol(void* module, std::string_view name, const char* symbol);

// A module's entry point: `symbol` of module `name` (opened by `loadModule`, which the loader
// does once however often it is asked) as a function of type `Entry`, or a failure as above.
// Main thread only.
template <typename Entry>
Entry moduleEntry(std::string_view name, const char* symbol) {
  return reinterpret_cast<Entry>(moduleSymbol(loadModule(name), name, symbol));
}

}  // namespace tallowbrook
