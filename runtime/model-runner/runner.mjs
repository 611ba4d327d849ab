// Answers one request with a local GGUF chat model through node-llama-cpp (llama.cpp, CPU build).
//
// Standard input: one JSON object, then end of input:
//   {"model": "/path/model.gguf", "system": "...", "user": "...", "maxTokens": 900}
// Standard output: JSON lines, one object each, written as soon as they are known:
//   {"type":"ready"}                          the model is loaded; generation starts
//   {"type":"text","text":"..."}              the next piece of the answer (never a partial
//                                             UTF-8 character: llama.cpp's pieces are joined
//                                             until they form whole characters)
//   {"type":"alive"}                          once a second while working, so a caller can tell
//                                             a slow model from a hung one
//   {"type":"done"}                           the answer is complete
//   {"type":"error","message":"..."}          generation failed after "ready"
//   {"type":"unavailable","reason":"...","message":"..."}
//                                             before "ready": "deviceNotEligible" when llama.cpp
//                                             cannot run here, "modelNotReady" when the model
//                                             does not load
// Anything llama.cpp logs goes to standard error. Nothing is downloaded or built at run time.

import fs from "node:fs";

// Standard output carries this program's lines only: whatever a library prints goes to
// standard error.
for (const name of ["log", "info", "debug"]) console[name] = (...args) => console.error(...args);

function send(object) {
  // Writes to a pipe are synchronous on Linux, so every line is out before the next step.
  process.stdout.write(JSON.stringify(object) + "\n");
}

function describe(error) {
  if (error instanceof Error && error.message) return error.message;
  return String(error);
}

function readRequest() {
  const text = fs.readFileSync(0, "utf8");
  const request = JSON.parse(text);
  if (typeof request.model !== "string" || typeof request.system !== "string" ||
      typeof request.user !== "string" || !Number.isInteger(request.maxTokens) ||
      request.maxTokens < 0) {
    throw new Error("the request needs model, system, user and maxTokens");
  }
  return request;
}

// Small models run fastest on one thread: with more, llama.cpp spends its time waking threads.
const kSmallModelBytes = 64 * 1024 * 1024;

async function main() {
  let request;
  try {
    request = readRequest();
  } catch (error) {
    send({type: "unavailable", reason: "deviceNotEligible", message: "bad request: " + describe(error)});
    return;
  }

  const heartbeat = setInterval(() => send({type: "alive"}), 1000);
  try {
    let llama, LlamaChatSession;
    try {
      const module = await import("node-llama-cpp");
      LlamaChatSession = module.LlamaChatSession;
      llama = await module.getLlama({
        gpu: false,
        build: "never",
        usePrebuiltBinaries: true,
        skipDownload: true,
        progressLogs: false,
        logLevel: "error",
        logger: (level, message) => process.stderr.write(message.endsWith("\n") ? message : message + "\n"),
      });
    } catch (error) {
      send({type: "unavailable", reason: "deviceNotEligible", message: describe(error)});
      return;
    }

    let session;
    try {
      const small = fs.statSync(request.model).size < kSmallModelBytes;
      const model = await llama.loadModel({modelPath: request.model});
      const context = await model.createContext({
        contextSize: {max: 8192},
        ...(small ? {threads: 1} : {}),
      });
      session = new LlamaChatSession({
        contextSequence: context.getSequence(),
        systemPrompt: request.system,
      });
    } catch (error) {
      send({type: "unavailable", reason: "modelNotReady", message: describe(error)});
      return;
    }

    send({type: "ready"});
    try {
      if (request.maxTokens > 0) {
        await session.prompt(request.user, {
          temperature: 0.2,
          maxTokens: request.maxTokens,
          onTextChunk: (text) => {
            if (text.length > 0) send({type: "text", text});
          },
        });
      }
      send({type: "done"});
    } catch (error) {
      send({type: "error", message: describe(error)});
    }
  } finally {
    clearInterval(heartbeat);
  }
}

main().then(
    () => process.exit(0),
    (error) => {
      send({type: "error", message: describe(error)});
      process.exit(1);
    });
