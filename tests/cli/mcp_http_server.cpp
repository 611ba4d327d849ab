#include "mcp_http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <strings.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {

constexpr size_t kMaxHead = 64 * 1024;
constexpr size_t kMaxBody = 64 * 1024 * 1024;

bool sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

const char* reason(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 202:
      return "Accepted";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 500:
      return "Internal Server Error";
    case 503:
      return "Service Unavailable";
    default:
      return "Status";
  }
}

std::string answerBytes(const HttpResponse& response) {
  std::string bytes =
      "HTTP/1.1 " + std::to_string(response.status) + " " + reason(response.status) + "\r\n";
  if (!response.body.empty()) bytes += "Content-Type: " + response.contentType + "\r\n";
  bytes += "Content-Length: " + std::to_string(response.body.size()) + "\r\n\r\n";
  bytes += response.body;
  return bytes;
}

}  // namespace

HttpResponse respond(int status, std::string body) {
  HttpResponse response;
  response.status = status;
  response.body = std::move(body);
  return response;
}

HttpResponse stall(std::chrono::milliseconds delay) {
  HttpResponse response;
  response.action = HttpResponse::Action::stall;
  response.delay = delay;
  return response;
}

HttpResponse closeWithoutAnswer() {
  HttpResponse response;
  response.action = HttpResponse::Action::close;
  return response;
}

HttpResponse trickle(int status, std::string body, std::chrono::milliseconds gap) {
  HttpResponse response = respond(status, std::move(body));
  response.action = HttpResponse::Action::trickle;
  response.delay = gap;
  return response;
}

std::optional<std::string> HttpRequest::header(const std::string& name) const {
  for (const auto& [key, value] : headers) {
    if (strcasecmp(key.c_str(), name.c_str()) == 0) return value;
  }
  return std::nullopt;
}

int HttpRequest::headerCount(const std::string& name) const {
  return static_cast<int>(std::count_if(headers.begin(), headers.end(), [&](const auto& h) {
    return strcasecmp(h.first.c_str(), name.c_str()) == 0;
  }));
}

LoopbackHttpServer::LoopbackHttpServer(Handler handler) : handler_(std::move(handler)) {
  listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listenFd_ < 0) throw std::runtime_error("socket failed");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  if (::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listenFd_, 16) != 0 ||
      ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ::close(listenFd_);
    throw std::runtime_error("could not listen on 127.0.0.1");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptLoop(); });
}

LoopbackHttpServer::~LoopbackHttpServer() {
  stopping_ = true;
  ::shutdown(listenFd_, SHUT_RDWR);
  acceptor_.join();
  ::close(listenFd_);
  std::vector<std::thread> workers;
  {
    std::lock_guard<std::mutex> held(mutex_);
    for (int fd : openFds_) ::shutdown(fd, SHUT_RDWR);
    workers.swap(workers_);
  }
  stopped_.notify_all();
  for (auto& worker : workers) worker.join();
}

std::string LoopbackHttpServer::url() const {
  return "http://127.0.0.1:" + std::to_string(port_) + "/mcp";
}

std::vector<HttpRequest> LoopbackHttpServer::requests() const {
  std::lock_guard<std::mutex> held(mutex_);
  return requests_;
}

void LoopbackHttpServer::acceptLoop() {
  while (!stopping_) {
    int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR) continue;
      return;  // shut down
    }
    int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    int connection = ++connections_;
    std::lock_guard<std::mutex> held(mutex_);
    if (stopping_) {
      ::close(fd);
      return;
    }
    openFds_.push_back(fd);
    workers_.emplace_back([this, fd, connection] { serve(fd, connection); });
  }
}

bool LoopbackHttpServer::sleepUnlessStopped(std::chrono::milliseconds delay) {
  std::unique_lock<std::mutex> held(mutex_);
  return !stopped_.wait_for(held, delay, [this] { return stopping_.load(); });
}

void LoopbackHttpServer::serve(int fd, int connection) {
  std::string buffer;
  char chunk[65536];
  for (;;) {
    // The head, then Content-Length bytes of body.
    size_t headEnd;
    while ((headEnd = buffer.find("\r\n\r\n")) == std::string::npos) {
      if (buffer.size() > kMaxHead) goto done;
      ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
      if (n <= 0) goto done;
      buffer.append(chunk, static_cast<size_t>(n));
    }
    {
      HttpRequest request;
      request.connection = connection;
      std::string head = buffer.substr(0, headEnd);
      request.head = head;
      buffer.erase(0, headEnd + 4);
      size_t lineEnd = head.find("\r\n");
      std::string first = head.substr(0, lineEnd);
      auto space = first.find(' ');
      auto space2 = first.find(' ', space + 1);
      request.method = first.substr(0, space);
      request.target = first.substr(space + 1, space2 - space - 1);
      size_t contentLength = 0;
      while (lineEnd != std::string::npos) {
        size_t next = head.find("\r\n", lineEnd + 2);
        std::string line = head.substr(
            lineEnd + 2, next == std::string::npos ? std::string::npos : next - lineEnd - 2);
        lineEnd = next;
        auto colon = line.find(':');
        if (colon == std::string::npos) continue;
        std::string name = line.substr(0, colon);
        std::string value = line.substr(colon + 1);
        value.erase(0, value.find_first_not_of(' '));
        if (strcasecmp(name.c_str(), "Content-Length") == 0) {
          contentLength = std::strtoull(value.c_str(), nullptr, 10);
        }
        request.headers.emplace_back(std::move(name), std::move(value));
      }
      if (contentLength > kMaxBody) goto done;
      while (buffer.size() < contentLength) {
        ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
        if (n <= 0) goto done;
        buffer.append(chunk, static_cast<size_t>(n));
      }
      request.body = buffer.substr(0, contentLength);
      buffer.erase(0, contentLength);

      HttpResponse response = handler_(request);
      {
        std::lock_guard<std::mutex> held(mutex_);
        requests_.push_back(std::move(request));
      }
      switch (response.action) {
        case HttpResponse::Action::respond:
          if (!sendAll(fd, answerBytes(response))) goto done;
          break;
        case HttpResponse::Action::stall:
          sleepUnlessStopped(response.delay);
          goto done;
        case HttpResponse::Action::close:
          goto done;
        case HttpResponse::Action::trickle: {
          std::string bytes = answerBytes(response);
          size_t head = bytes.size() - response.body.size();
          if (!sendAll(fd, std::string_view(bytes).substr(0, head))) goto done;
          for (char c : response.body) {
            if (!sendAll(fd, std::string_view(&c, 1))) goto done;
            if (!sleepUnlessStopped(response.delay)) goto done;
          }
          break;
        }
      }
    }
  }
done:
  std::lock_guard<std::mutex> held(mutex_);
  openFds_.erase(std::remove(openFds_.begin(), openFds_.end(), fd), openFds_.end());
  ::close(fd);
}

int deadLoopbackPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(fd);
  return ntohs(address.sin_port);
}
