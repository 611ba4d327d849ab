#include "answer/llama/chat_prompt.h"

#include <dlfcn.h>
#include <llama.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tallowbrook::Answer {
namespace {

// llama_chat_apply_template with a buffer that grows to fit; nothing when the template is not
// one of the built-in formats.
bool applyBuiltIn(const char* tmpl, const std::string& system, const std::string& user,
                  std::string* prompt) {
  llama_chat_message messages[2] = {{"system", system.c_str()}, {"user", user.c_str()}};
  size_t count = system.empty() ? 1 : 2;
  const llama_chat_message* first = system.empty() ? messages + 1 : messages;
  std::vector<char> buffer(2 * (system.size() + user.size()) + 256);
  for (int attempt = 0; attempt < 2; ++attempt) {
    int32_t n = llama_chat_apply_template(tmpl, first, count, true, buffer.data(),
                                          int32_t(std::min<size_t>(buffer.size(), INT32_MAX)));
    if (n < 0) return false;
    if (size_t(n) <= buffer.size()) {
      prompt->assign(buffer.data(), size_t(n));
      return true;
    }
    buffer.resize(size_t(n));
  }
  return false;
}

}  // namespace

ChatPrompt chatPrompt(const llama_model* model, const std::string& system, const std::string& user,
                      const std::string& jinjaModule) {
  ChatPrompt prompt;
  const char* tmpl = llama_model_chat_template(model, nullptr);
  if (tmpl != nullptr && applyBuiltIn(tmpl, system, user, &prompt.text)) {
    prompt.via = "built-in";
    return prompt;
  }
  if (tmpl != nullptr && !jinjaModule.empty()) {
    // The module stays loaded: the child ends after this one answer.
    if (void* module = dlopen(jinjaModule.c_str(), RTLD_NOW | RTLD_LOCAL)) {
      auto render = reinterpret_cast<JinjaPrompt>(dlsym(module, kJinjaPromptSymbol));
      std::string error;
      if (render != nullptr && render(model, system, user, &prompt.text, &error)) {
        prompt.via = "jinja";
        return prompt;
      }
    }
  }
  applyBuiltIn("chatml", system, user, &prompt.text);
  prompt.via = "chatml";
  return prompt;
}

}  // namespace tallowbrook::Answer
