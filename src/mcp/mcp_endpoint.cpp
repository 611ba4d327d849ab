#include "mcp/mcp_endpoint.h"

#include <cstring>

#include "text/utf8_text.h"

namespace tallowbrook::McpBridge {
namespace {

bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

int hexValue(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Unreserved and reserved characters of the generic syntax, and '%' of a percent-encoding.
bool isUrlCharacter(char c) {
  return isAlpha(c) || isDigit(c) || (c != '\0' && std::strchr("-._~:/?#[]@!$&'()*+,;=%", c));
}

// Every '%' starts a two-digit hex escape.
bool escapesWellFormed(std::string_view text) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') continue;
    if (i + 2 >= text.size()) return false;
    if (hexValue(text[i + 1]) < 0 || hexValue(text[i + 2]) < 0) return false;
    i += 2;
  }
  return true;
}

std::string percentDecode(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      decoded.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
      i += 2;
    } else {
      decoded.push_back(text[i]);
    }
  }
  return decoded;
}

bool isSchemeText(std::string_view text) {
  if (text.empty() || !isAlpha(text.front())) return false;
  for (char c : text) {
    if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return false;
  }
  return true;
}

// Splits "[user[:password]@]host[:port]" into `url`; false when it cannot be parsed.
bool parseAuthority(std::string_view authority, Url& url) {
  auto at = authority.rfind('@');
  if (at != std::string_view::npos) {
    std::string_view info = authority.substr(0, at);
    auto colon = info.find(':');
    url.user = std::string(info.substr(0, colon));
    if (colon != std::string_view::npos) url.password = std::string(info.substr(colon + 1));
    authority.remove_prefix(at + 1);
  }
  std::string_view host;
  std::string_view rest;
  if (!authority.empty() && authority.front() == '[') {
    auto close = authority.find(']');
    if (close == std::string_view::npos) return false;
    host = authority.substr(0, close + 1);
    rest = authority.substr(close + 1);
    if (!rest.empty() && rest.front() != ':') return false;
  } else {
    auto colon = authority.find(':');
    host = authority.substr(0, colon);
    if (colon != std::string_view::npos) rest = authority.substr(colon);
  }
  if (host.find_first_of("[]") != std::string_view::npos && host.front() != '[') return false;
  url.host = std::string(host);
  if (!rest.empty()) {
    std::string_view digits = rest.substr(1);
    if (digits.size() > 18) return false;
    long long port = 0;
    for (char c : digits) {
      if (!isDigit(c)) return false;
      port = port * 10 + (c - '0');
    }
    if (!digits.empty()) url.port = port;
  }
  return true;
}

}  // namespace

std::optional<Url> parseUrl(std::string_view text) {
  for (char c : text) {
    if (!isUrlCharacter(c)) return std::nullopt;
  }
  if (!escapesWellFormed(text)) return std::nullopt;

  Url url;
  auto hash = text.find('#');
  if (hash != std::string_view::npos) {
    url.fragment = std::string(text.substr(hash + 1));
    text = text.substr(0, hash);
  }
  auto question = text.find('?');
  if (question != std::string_view::npos) {
    url.query = std::string(text.substr(question + 1));
    text = text.substr(0, question);
  }
  auto colon = text.find(':');
  if (colon != std::string_view::npos && isSchemeText(text.substr(0, colon))) {
    url.scheme = std::string(text.substr(0, colon));
    text.remove_prefix(colon + 1);
  }
  if (text.substr(0, 2) == "//") {
    text.remove_prefix(2);
    auto slash = text.find('/');
    if (!parseAuthority(text.substr(0, slash), url)) return std::nullopt;
    text = slash == std::string_view::npos ? std::string_view() : text.substr(slash);
  }
  if (text.find_first_of("[]") != std::string_view::npos) return std::nullopt;

  std::string path = percentDecode(text);
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  if (isValidUtf8(path)) url.path = std::move(path);
  return url;
}

bool isAppEndpoint(const Url& url) {
  if (!url.scheme || *url.scheme != "http") return false;
  if (!url.host || (*url.host != "127.0.0.1" && *url.host != "localhost")) return false;
  if (!url.port || *url.port < 1) return false;
  if (!url.path || *url.path != "/mcp") return false;
  return !url.user && !url.password && !url.query && !url.fragment;
}

}  // namespace tallowbrook::McpBridge
