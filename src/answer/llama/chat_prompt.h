// The prompt a chat model expects for one system and one user message, from the model's own chat
// template: llama.cpp's built-in formats first (they recognise the common templates without
// running them), the template itself through llama.cpp's Jinja engine when the built-in ones do
// not know it, and ChatML when the model has no template or neither way works.
#pragma once

#include <string>

struct llama_model;

namespace tallowbrook::Answer {

// Renders the model's template with a system and a user message and the opening of the
// assistant's turn, thinking turned off. Throws Error, or the template engine's own exception,
// when the template cannot be rendered. Exported by the Jinja module (libllama-common), loaded
// only when needed.
using JinjaPrompt = std::string (*)(const llama_model* model, const std::string& system,
                                    const std::string& user);
inline constexpr const char* kJinjaPromptSymbol = "tallowbrook_llama_jinja_prompt";

struct ChatPrompt {
  std::string text;
  const char* via = "";  // "built-in", "jinja" or "chatml", for the log
};

// The prompt for `model`. `jinjaModule` is the path of the Jinja module, opened only when the
// built-in formats do not know the template; empty or unloadable: ChatML instead. Never fails.
// The generating thread only.
ChatPrompt chatPrompt(const llama_model* model, const std::string& system, const std::string& user,
                      const std::string& jinjaModule);

}  // namespace tallowbrook::Answer
