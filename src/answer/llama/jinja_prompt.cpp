// The Jinja module: renders a chat template that llama.cpp's built-in formats do not know with
// the Jinja engine of llama.cpp's common library. A module of its own because that library is
// large and most models' templates never need it.
#include "answer/llama/chat_prompt.h"
#include "base/error.h"
#include "chat.h"

extern "C" __attribute__((visibility("default"))) std::string tallowbrook_llama_jinja_prompt(
    const llama_model* model, const std::string& system, const std::string& user) {
  common_chat_templates_ptr templates = common_chat_templates_init(model, "");
  if (!templates) throw tallowbrook::Error("the model's chat template could not be read");
  {
    common_chat_templates_inputs inputs;
    if (!system.empty()) {
      common_chat_msg message;
      message.role = "system";
      message.content = system;
      inputs.messages.push_back(std::move(message));
    }
    common_chat_msg message;
    message.role = "user";
    message.content = user;
    inputs.messages.push_back(std::move(message));
    inputs.add_generation_prompt = true;
    inputs.use_jinja = true;
    inputs.enable_thinking = false;
    return common_chat_templates_apply(templates.get(), inputs).prompt;
  }
}

// Checked at build time: the signature matches what chat_prompt.cpp looks up.
static_assert(
    std::is_same_v<decltype(&tallowbrook_llama_jinja_prompt), tallowbrook::Answer::JinjaPrompt>);
