#include "auth/Http.h"

#include <algorithm>
#include <cctype>

#include "orvistelle/BuildConfig.h"

namespace orvistelle::auth {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view kUrlPunctuation = "-._~:/?#[]@!$&'()*+,;=";

bool IsHexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

bool HasOnlyURLCharacters(std::string_view url) {
  for (size_t i = 0; i < url.size(); ++i) {
    char c = url[i];
    if (c == '%') {
      if (i + 2 >= url.size() || !IsHexDigit(url[i + 1]) || !IsHexDigit(url[i + 2])) return false;
      i += 2;
    } else if (!std::isalnum(static_cast<unsigned char>(c)) && kUrlPunctuation.find(c) == std::string_view::npos) {
      return false;
    }
  }
  return true;
}

// "scheme://" with http or https in any case; returns what follows it.
std::optional<std::string_view> AfterHttpScheme(std::string_view url) {
  size_t separator = url.find("://");
  if (separator == std::string_view::npos) return std::nullopt;
  std::string scheme(url.substr(0, separator));
  std::transform(scheme.begin(), scheme.end(), scheme.begin(), [](unsigned char c) { return std::tolower(c); });
  if (scheme != "http" && scheme != "https") return std::nullopt;
  return url.substr(separator + 3);
}

// The host between any "user@" and any ":port".
bool HasHost(std::string_view rest) {
  std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
  size_t at = authority.rfind('@');
  if (at != std::string_view::npos) authority.remove_prefix(at + 1);
  if (authority.starts_with('[')) return authority.size() > 2;
  return !authority.substr(0, authority.find(':')).empty();
}

bool IsSafeHeaderValue(std::string_view value) {
  return std::none_of(value.begin(), value.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

}  // namespace

bool IsValidURL(std::string_view url) {
  if (!HasOnlyURLCharacters(url)) return false;
  std::optional<std::string_view> rest = AfterHttpScheme(url);
  return rest && HasHost(*rest);
}

std::optional<platform::HttpRequest> BackendRequest(std::string_view method, std::string_view url,
                                                    std::string_view bearerToken,
                                                    const std::optional<std::string>& body, std::string_view apiKey) {
  std::string_view key = apiKey.empty() ? std::string_view(config::kPublicApiKey) : apiKey;
  std::string_view bearer = bearerToken.empty() ? key : bearerToken;
  if (!IsValidURL(url) || !IsSafeHeaderValue(key) || !IsSafeHeaderValue(bearer)) return std::nullopt;
  platform::HttpRequest request;
  request.method = std::string(method);
  request.url = std::string(url);
  request.headers = {"apikey: " + std::string(key), "Authorization: Bearer " + std::string(bearer),
                     "Accept: application/json"};
  if (body) {
    request.headers.push_back("Content-Type: application/json");
    request.body = body;
  }
  request.idle = 20s;
  request.wait = 22s;
  return request;
}

std::optional<std::string> Http(std::string_view method, std::string_view url, std::string_view bearerToken,
                                const std::optional<std::string>& body, std::string_view apiKey, int64_t* status,
                                std::chrono::milliseconds idle) {
  std::optional<platform::HttpRequest> request = BackendRequest(method, url, bearerToken, body, apiKey);
  if (request) request->idle = std::min(idle, request->idle);
  platform::HttpResponse response = request ? platform::HttpSend(*request) : platform::HttpResponse{};
  if (status != nullptr) *status = response.status;
  return std::move(response.body);
}

}  // namespace orvistelle::auth
