// Every request of the account session and the heartbeat: the backend's headers, one blocking exchange.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/HttpTransport.h"

namespace orvistelle::auth {

// The request that Http sends: "apikey" (the given key, else the built-in public key), "Authorization" (the bearer
// token, else that same key), "Accept" and, with a body only (even an empty one), "Content-Type". Empty strings
// count as absent. Nothing when the URL is not a web URL (platform::IsWebUrl) or a header value would carry a line
// break.
std::optional<platform::HttpRequest> BackendRequest(std::string_view method, std::string_view url,
                                                    std::string_view bearerToken,
                                                    const std::optional<std::string>& body, std::string_view apiKey);

struct HttpAnswer {
  int64_t status = 0;               // 0 when no answer came, the URL was not valid included
  std::optional<std::string> body;  // present exactly when an answer came (possibly empty)
};

// Sends the request above and blocks for at most its whole wait, giving up after its silence or `shorterIdle`,
// whichever is shorter. Never retries, never logs.
HttpAnswer Http(std::string_view method, std::string_view url, std::string_view bearerToken,
                const std::optional<std::string>& body, std::string_view apiKey,
                std::optional<std::chrono::milliseconds> shorterIdle = std::nullopt);

}  // namespace orvistelle::auth
