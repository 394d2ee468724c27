#include "auth/Http.h"

#include <algorithm>

#include "orvistelle/BuildConfig.h"
#include "platform/WebUrl.h"

namespace orvistelle::auth {
namespace {

using namespace std::chrono_literals;

bool IsSafeHeaderValue(std::string_view value) {
  return std::none_of(value.begin(), value.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

}  // namespace

std::optional<platform::HttpRequest> BackendRequest(std::string_view method, std::string_view url,
                                                    std::string_view bearerToken,
                                                    const std::optional<std::string>& body, std::string_view apiKey) {
  std::string_view key = apiKey.empty() ? std::string_view(config::kPublicApiKey) : apiKey;
  std::string_view bearer = bearerToken.empty() ? key : bearerToken;
  if (!platform::IsWebUrl(url) || !IsSafeHeaderValue(key) || !IsSafeHeaderValue(bearer)) return std::nullopt;
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

HttpAnswer Http(std::string_view method, std::string_view url, std::string_view bearerToken,
                const std::optional<std::string>& body, std::string_view apiKey,
                std::optional<std::chrono::milliseconds> shorterIdle) {
  std::optional<platform::HttpRequest> request = BackendRequest(method, url, bearerToken, body, apiKey);
  if (request && shorterIdle) request->idle = std::min(*shorterIdle, request->idle);
  platform::HttpResponse response = request ? platform::HttpSend(*request) : platform::HttpResponse{};
  return {response.status, std::move(response.body)};
}

}  // namespace orvistelle::auth
