// The llama module: one answer from a GGUF model with llama.cpp, run inside the forked child
// (generation_child.h). Everything it learns goes to the sink; it writes nothing else but the
// library's errors on standard error, whose last line the helper quotes if the child dies.
#include <ggml-backend.h>
#include <ggml-cpu.h>
#include <ggml.h>
#include <llama.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "answer/generation.h"
#include "answer/llama/chat_prompt.h"
#include "answer/llama/thread_choice.h"

namespace tallowbrook::Answer {
namespace {

// The library's errors only, on standard error; a message may arrive in several pieces.
void logErrors(ggml_log_level level, const char* text, void*) {
  static bool inError = false;
  if (level != GGML_LOG_LEVEL_CONT) inError = level == GGML_LOG_LEVEL_ERROR;
  if (inError) std::fputs(text, stderr);
}

// A failed assert: one line without the builder's folders, then abort() (the library's own).
void reportAbort(const char* message) {
  const char* colon = std::strchr(message, ':');
  const char* start = message;
  for (const char* p = message; colon != nullptr && p < colon; ++p) {
    if (*p == '/') start = p + 1;
  }
  std::fprintf(stderr, "%s\n", start);
  std::fflush(stderr);
}

struct Sampler {
  llama_sampler* chain;
  explicit Sampler() : chain(llama_sampler_chain_init(llama_sampler_chain_default_params())) {
    llama_sampler_chain_add(chain, llama_sampler_init_top_k(40));
    llama_sampler_chain_add(chain, llama_sampler_init_top_p(0.95f, 1));
    llama_sampler_chain_add(chain, llama_sampler_init_temp(0.2f));
    llama_sampler_chain_add(chain, llama_sampler_init_dist(LLAMA_DEFAULT_SEED));
  }
  ~Sampler() { llama_sampler_free(chain); }
};

// Reports progress from inside the library. Its callbacks may come from its worker threads;
// the lock keeps two of them from reporting at once (the sink takes one caller at a time).
struct Progress {
  GenerationSink* sink;
  std::mutex lock;
  void beat() {
    std::unique_lock<std::mutex> held(lock, std::try_to_lock);
    if (held) sink->alive();
  }
};

bool onLoadProgress(float, void* data) {
  static_cast<Progress*>(data)->beat();
  return true;
}

bool onCompute(void* data) {
  static_cast<Progress*>(data)->beat();
  return false;  // never abort the computation
}

bool hasGpu() {
  for (size_t i = 0; i < ggml_backend_dev_count(); ++i) {
    auto type = ggml_backend_dev_type(ggml_backend_dev_get(i));
    if (type == GGML_BACKEND_DEVICE_TYPE_GPU || type == GGML_BACKEND_DEVICE_TYPE_IGPU) return true;
  }
  return false;
}

// A thread pool whose idle threads sleep instead of spinning, from the CPU backend (the pool
// lives there); nothing when the backend does not offer one.
ggml_threadpool_t sleepingPool(int threads) {
  ggml_backend_reg_t cpu = ggml_backend_reg_by_name("CPU");
  if (cpu == nullptr) return nullptr;
  using New = ggml_threadpool_t (*)(ggml_threadpool_params*);
  auto create =
      reinterpret_cast<New>(ggml_backend_reg_get_proc_address(cpu, "ggml_threadpool_new"));
  if (create == nullptr) return nullptr;
  ggml_threadpool_params params = ggml_threadpool_params_default(threads);
  params.poll = 0;
  return create(&params);
}

std::vector<llama_token> tokenize(const llama_vocab* vocab, const std::string& text) {
  std::vector<llama_token> tokens(text.size() + 8);
  int32_t n = llama_tokenize(vocab, text.data(), int32_t(text.size()), tokens.data(),
                             int32_t(tokens.size()), true, true);
  if (n < 0) {
    tokens.resize(size_t(-n));
    n = llama_tokenize(vocab, text.data(), int32_t(text.size()), tokens.data(),
                       int32_t(tokens.size()), true, true);
  }
  tokens.resize(size_t(std::max(n, 0)));
  // A template that writes the begin-of-text token itself gets it once, not twice.
  llama_token bos = llama_vocab_bos(vocab);
  if (tokens.size() >= 2 && bos != LLAMA_TOKEN_NULL && tokens[0] == bos && tokens[1] == bos) {
    tokens.erase(tokens.begin());
  }
  return tokens;
}

std::string pieceOf(const llama_vocab* vocab, llama_token token) {
  char buffer[256];
  int32_t n = llama_token_to_piece(vocab, token, buffer, sizeof buffer, 0, false);
  if (n >= 0) return std::string(buffer, size_t(n));
  std::string large(size_t(-n), '\0');
  n = llama_token_to_piece(vocab, token, large.data(), int32_t(large.size()), 0, false);
  large.resize(size_t(std::max(n, 0)));
  return large;
}

void generate(const GenerationJob& job, GenerationSink& sink) {
  Progress progress{&sink, {}};
  ggml_set_abort_callback(reportAbort);
  llama_log_set(logErrors, nullptr);
  // Other work on the machine, looked at three times while this work goes on (thread_choice.h).
  size_t othersAtStart = othersRunningNow();
  ggml_backend_load_all_from_path(job.libraryDir.c_str());
  if (ggml_backend_reg_by_name("CPU") == nullptr) {
    sink.unavailable("deviceNotEligible", "no CPU backend of llama.cpp loads on this processor");
    return;
  }

  llama_model_params modelParams = llama_model_default_params();
  modelParams.n_gpu_layers = hasGpu() ? 999 : 0;  // a GPU takes every layer
  modelParams.progress_callback = onLoadProgress;
  modelParams.progress_callback_user_data = &progress;
  llama_model* model = llama_model_load_from_file(job.model.c_str(), modelParams);
  if (model == nullptr) {
    sink.unavailable("modelNotReady", "the model does not load");
    return;
  }
  const llama_vocab* vocab = llama_model_get_vocab(model);

  size_t othersAfterLoading = othersRunningNow();
  ChatPrompt prompt = chatPrompt(model, job.system, job.user, job.jinjaModule);
  std::vector<llama_token> tokens = tokenize(vocab, prompt.text);
  uint32_t trained = uint32_t(std::max(llama_model_n_ctx_train(model), 0));
  if (tokens.empty()) {
    sink.refused("the prompt holds nothing the model can read");
    return;
  }
  if (trained > 0 && tokens.size() >= trained) {
    sink.refused("the prompt does not fit the model's context: " + std::to_string(tokens.size()) +
                 " tokens, at most " + std::to_string(trained - 1));
    return;
  }
  uint64_t wanted = tokens.size() + uint64_t(std::max<int64_t>(job.maxTokens, 1));
  uint32_t contextSize = uint32_t(trained > 0 ? std::min<uint64_t>(wanted, trained)
                                              : std::min<uint64_t>(wanted, 1u << 20));

  // A small model gets one thread whatever the processors: no need to look at them.
  uint64_t modelBytes = llama_model_size(model);
  CpuShare share = modelBytes < kSmallModelBytes ? CpuShare{} : cpuShare();
  size_t others = othersRunning(othersAtStart, othersAfterLoading, othersRunningNow());
  int threads = chooseThreads(share.allowedCpus, share.physicalCores, modelBytes, others);
  llama_context_params contextParams = llama_context_default_params();
  contextParams.n_ctx = contextSize;
  contextParams.n_batch = std::min<uint32_t>(contextSize, 2048);
  contextParams.n_ubatch = std::min<uint32_t>(contextParams.n_batch, 512);
  contextParams.n_seq_max = 1;
  contextParams.n_threads = threads;
  contextParams.n_threads_batch = threads;
  contextParams.abort_callback = onCompute;
  contextParams.abort_callback_data = &progress;
  contextParams.no_perf = true;
  llama_context* context = llama_init_from_model(model, contextParams);
  if (context == nullptr) {
    sink.unavailable("modelNotReady", "no context of " + std::to_string(contextSize) +
                                          " tokens could be made for the model");
    return;
  }
  if (ggml_threadpool_t pool = sleepingPool(threads)) llama_attach_threadpool(context, pool, pool);

  sink.ready();
  if (job.maxTokens <= 0) {
    sink.done();
    return;
  }
  // The prompt, in batches the context accepts.
  uint32_t batchSize = llama_n_batch(context);
  for (size_t at = 0; at < tokens.size(); at += batchSize) {
    int32_t count = int32_t(std::min<size_t>(batchSize, tokens.size() - at));
    if (llama_decode(context, llama_batch_get_one(tokens.data() + at, count)) != 0) {
      sink.failed("the model could not read the prompt");
      return;
    }
  }
  Sampler sampler;
  size_t used = tokens.size();
  for (int64_t produced = 0; produced < job.maxTokens; ++produced) {
    llama_token token = llama_sampler_sample(sampler.chain, context, -1);
    if (llama_vocab_is_eog(vocab, token)) break;
    std::string piece = pieceOf(vocab, token);
    if (!piece.empty()) sink.piece(piece);
    // The context is full: the answer has reached the longest the model can hold.
    if (++used >= contextSize || produced + 1 == job.maxTokens) break;
    if (llama_decode(context, llama_batch_get_one(&token, 1)) != 0) {
      sink.failed("the model stopped while writing the answer");
      return;
    }
  }
  sink.done();
  // The child ends right after this; freeing the model would only cost time.
}

}  // namespace
}  // namespace tallowbrook::Answer

extern "C" __attribute__((visibility("default"))) void tallowbrook_llama_generate(
    const tallowbrook::Answer::GenerationJob& job, tallowbrook::Answer::GenerationSink& sink) {
  tallowbrook::Answer::generate(job, sink);
}

static_assert(std::is_same_v<decltype(&tallowbrook_llama_generate), tallowbrook::Answer::Generate>);
