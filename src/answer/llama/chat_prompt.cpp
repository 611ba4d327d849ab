#include "answer/llama/chat_prompt.h"

#include <dlfcn.h>
#include <llama.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <optional>
#include <utility>
#include <vector>

namespace tallowbrook::Answer {
namespace {

// llama_chat_apply_template with a buffer that grows to fit; nothing when the template is not
// one of the built-in formats.
std::optional<std::string> applyBuiltIn(const char* tmpl, const std::string& system,
                                        const std::string& user) {
  llama_chat_message messages[2] = {{"system", system.c_str()}, {"user", user.c_str()}};
  size_t count = system.empty() ? 1 : 2;
  const llama_chat_message* first = system.empty() ? messages + 1 : messages;
  std::vector<char> buffer(2 * (system.size() + user.size()) + 256);
  for (int attempt = 0; attempt < 2; ++attempt) {
    int32_t n = llama_chat_apply_template(tmpl, first, count, true, buffer.data(),
                                          int32_t(std::min<size_t>(buffer.size(), INT32_MAX)));
    if (n < 0) return std::nullopt;
    if (size_t(n) <= buffer.size()) return std::string(buffer.data(), size_t(n));
    buffer.resize(size_t(n));
  }
  return std::nullopt;
}

}  // namespace

ChatPrompt chatPrompt(const llama_model* model, const std::string& system, const std::string& user,
                      const std::string& jinjaModule) {
  const char* tmpl = llama_model_chat_template(model, nullptr);
  if (tmpl != nullptr) {
    if (std::optional<std::string> text = applyBuiltIn(tmpl, system, user)) {
      return ChatPrompt{std::move(*text), "built-in"};
    }
  }
  if (tmpl != nullptr && !jinjaModule.empty()) {
    // The module stays loaded: the child ends after this one answer.
    if (void* module = dlopen(jinjaModule.c_str(), RTLD_NOW | RTLD_LOCAL)) {
      if (auto render = reinterpret_cast<JinjaPrompt>(dlsym(module, kJinjaPromptSymbol))) {
        try {
          return ChatPrompt{render(model, system, user), "jinja"};
        } catch (const std::exception&) {
          // A template the engine cannot render: ChatML below, as for a model without one.
        }
      }
    }
  }
  return ChatPrompt{applyBuiltIn("chatml", system, user).value_or(std::string()), "chatml"};
}

}  // namespace tallowbrook::Answer
