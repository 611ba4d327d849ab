#include "mcp/curl_http_client.h"

#include <curl/curl.h>

#include <mutex>
#include <utility>

namespace tallowbrook::McpBridge {
namespace {

class CurlHttpClient final : public HttpClient {
 public:
  CurlHttpClient(CURL* easy, curl_slist* headers, std::chrono::milliseconds limit)
      : easy_(easy), headers_(headers), limit_(limit) {}
  ~CurlHttpClient() override {
    curl_easy_cleanup(easy_);
    curl_slist_free_all(headers_);
  }
  CurlHttpClient(const CurlHttpClient&) = delete;
  CurlHttpClient& operator=(const CurlHttpClient&) = delete;

  // Sets the options that stay the same for every exchange; false if libcurl refuses one.
  bool configure(const std::string& url);

  Response post(std::string_view body) override;

 private:
  static size_t onBody(char* data, size_t size, size_t count, void* self);
  static size_t onHeader(char* data, size_t size, size_t count, void* self);
  static int onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t uploaded);

  CURL* easy_;
  curl_slist* headers_;
  std::chrono::milliseconds limit_;
  char errorText_[CURL_ERROR_SIZE] = {};

  // State of the exchange in progress, touched only by libcurl's callbacks on this thread.
  std::string body_;
  curl_off_t received_ = 0;  // header and body bytes received so far
  curl_off_t moved_ = 0;     // bytes moved either way when progress was last seen
  std::chrono::steady_clock::time_point lastProgress_;
  bool stalled_ = false;
};

bool CurlHttpClient::configure(const std::string& url) {
  bool ok = true;
  auto set = [&](CURLoption option, auto value) {
    ok = ok && curl_easy_setopt(easy_, option, value) == CURLE_OK;
  };
  set(CURLOPT_URL, url.c_str());
  set(CURLOPT_POST, 1L);
  set(CURLOPT_HTTPHEADER, headers_);
  set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  set(CURLOPT_ERRORBUFFER, errorText_);
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_PROXY, "");  // the endpoint is on this machine: never through a proxy
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_WRITEFUNCTION, &CurlHttpClient::onBody);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_HEADERFUNCTION, &CurlHttpClient::onHeader);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_NOPROGRESS, 0L);
  set(CURLOPT_XFERINFOFUNCTION, &CurlHttpClient::onProgress);
  set(CURLOPT_XFERINFODATA, this);
  // A connection attempt that never completes moves no bytes either.
  set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limit_.count()));
  return ok;
}

size_t CurlHttpClient::onBody(char* data, size_t size, size_t count, void* self) {
  auto* client = static_cast<CurlHttpClient*>(self);
  client->body_.append(data, size * count);
  client->received_ += static_cast<curl_off_t>(size * count);
  return size * count;
}

size_t CurlHttpClient::onHeader(char*, size_t size, size_t count, void* self) {
  static_cast<CurlHttpClient*>(self)->received_ += static_cast<curl_off_t>(size * count);
  return size * count;
}

int CurlHttpClient::onProgress(void* self, curl_off_t, curl_off_t, curl_off_t,
                               curl_off_t uploaded) {
  auto* client = static_cast<CurlHttpClient*>(self);
  auto now = std::chrono::steady_clock::now();
  curl_off_t moved = uploaded + client->received_;
  if (moved != client->moved_) {
    client->moved_ = moved;
    client->lastProgress_ = now;
    return 0;
  }
  if (now - client->lastProgress_ >= client->limit_) {
    client->stalled_ = true;
    return 1;  // aborts the transfer
  }
  return 0;
}

Response CurlHttpClient::post(std::string_view body) {
  body_.clear();
  received_ = 0;
  moved_ = 0;
  stalled_ = false;
  errorText_[0] = '\0';
  lastProgress_ = std::chrono::steady_clock::now();
  curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, body.data());
  CURLcode code = curl_easy_perform(easy_);
  // A large answer does not stay in memory until the next line.
  std::string received = std::exchange(body_, std::string());
  if (code != CURLE_OK) {
    if (stalled_) {
      long seconds = static_cast<long>(limit_.count() / 1000);
      throw TransportError("Operation timed out: nothing was sent or received for " +
                           (seconds > 0 ? std::to_string(seconds) + " seconds"
                                        : std::to_string(limit_.count()) + " milliseconds"));
    }
    throw TransportError(errorText_[0] != '\0' ? errorText_ : curl_easy_strerror(code));
  }
  Response response;
  response.body = std::move(received);
  long status = 0;
  if (curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK) {
    response.status = status;
  }
  return response;
}

}  // namespace

std::unique_ptr<HttpClient> makeCurlHttpClient(const std::string& url, const std::string& token,
                                               std::chrono::milliseconds noProgressLimit) {
  static std::once_flag started;
  static bool startedOk = false;
  std::call_once(started, [] { startedOk = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; });
  if (!startedOk) return nullptr;

  CURL* easy = curl_easy_init();
  if (easy == nullptr) return nullptr;
  curl_slist* headers = nullptr;
  std::string authorization = "Authorization: Bearer " + token;
  for (const char* header : {"Content-Type: application/json",
                             "Accept: application/json, text/event-stream", authorization.c_str(),
                             // No "Expect: 100-continue" wait before large bodies.
                             "Expect:"}) {
    curl_slist* longer = curl_slist_append(headers, header);
    if (longer == nullptr) {
      curl_slist_free_all(headers);
      curl_easy_cleanup(easy);
      return nullptr;
    }
    headers = longer;
  }
  auto client = std::make_unique<CurlHttpClient>(easy, headers, noProgressLimit);
  if (!client->configure(url)) return nullptr;
  return client;
}

}  // namespace tallowbrook::McpBridge

extern "C" __attribute__((visibility("default"))) tallowbrook::McpBridge::HttpClient*
tallowbrook_mcp_http_client(const char* url, const char* token) {
  return tallowbrook::McpBridge::makeCurlHttpClient(url, token).release();
}
