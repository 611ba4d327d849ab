// A small HTTP/1.1 server on 127.0.0.1 standing in for the application's MCP endpoint in the
// bridge's tests: keep-alive, one thread per connection, answers chosen per request by the
// test, including answers that stall, trickle or close the connection.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

struct HttpRequest {
  std::string method;
  std::string target;
  // Header lines as received: the name, and the value after the colon with leading blanks
  // removed and trailing blanks kept.
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  std::string head;    // the exact bytes before the blank line that ends the headers
  int connection = 0;  // 1 for the first connection accepted, 2 for the next, ...

  // The value of the first header called `name` (case-insensitive), if any.
  std::optional<std::string> header(const std::string& name) const;
  // How many headers called `name` (case-insensitive) the request has.
  int headerCount(const std::string& name) const;
};

struct HttpResponse {
  enum class Action {
    respond,  // status and body, with Content-Length
    stall,    // read the request, then send nothing for `delay`, then close
    close,    // close the connection without answering
    trickle,  // status line and headers at once, then the body one byte every `delay`
  };
  int status = 200;
  std::string body;
  std::string contentType = "application/json";
  Action action = Action::respond;
  std::chrono::milliseconds delay{0};
};

// An answer with `status` and `body`.
HttpResponse respond(int status, std::string body = {});
// Reads the request, then sends nothing for `delay` (or until the server stops) and closes.
HttpResponse stall(std::chrono::milliseconds delay);
// Closes the connection without answering.
HttpResponse closeWithoutAnswer();
// Status line and headers at once, then the body one byte every `gap`.
HttpResponse trickle(int status, std::string body, std::chrono::milliseconds gap);

class LoopbackHttpServer {
 public:
  using Handler = std::function<HttpResponse(const HttpRequest&)>;

  // Listens on 127.0.0.1 at a free port; the handler runs on the connection's thread (one
  // request at a time per connection).
  explicit LoopbackHttpServer(Handler handler);
  // Stops accepting, wakes stalled answers, closes every connection and joins all threads.
  ~LoopbackHttpServer();
  LoopbackHttpServer(const LoopbackHttpServer&) = delete;
  LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

  int port() const { return port_; }
  // "http://127.0.0.1:<port>/mcp".
  std::string url() const;
  // Every complete request received so far. Any thread.
  std::vector<HttpRequest> requests() const;
  // Connections accepted so far. Any thread.
  int connections() const { return connections_.load(); }

 private:
  void acceptLoop();
  void serve(int fd, int connection);
  // Sleeps for `delay` unless the server stops first; false when it stopped.
  bool sleepUnlessStopped(std::chrono::milliseconds delay);

  Handler handler_;
  int listenFd_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<int> connections_{0};
  std::thread acceptor_;

  mutable std::mutex mutex_;  // guards everything below
  std::condition_variable stopped_;
  std::vector<HttpRequest> requests_;
  std::vector<int> openFds_;
  std::vector<std::thread> workers_;
};

// A port on 127.0.0.1 where nothing listens (bound once, then released).
int deadLoopbackPort();
