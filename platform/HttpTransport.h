// One blocking HTTP exchange over the process's shared connection pool: the analog of a platform URL session.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvistelle::platform {

struct HttpRequest {
  std::string method = "GET";
  std::string url;
  std::vector<std::string> headers;          // "Name: value"
  std::optional<std::string> body;           // when set, sent as the body, even when empty
  std::chrono::milliseconds timeout{20000};  // the transfer's own limit, connecting included
  std::chrono::milliseconds wait{22000};     // the longest the caller is kept waiting
};

struct HttpResponse {
  int64_t status = 0;                // 0: no complete HTTP answer arrived
  std::optional<std::string> body;   // present exactly when an answer arrived (possibly empty)
};

// The largest body accepted; a longer one counts as no answer, so a broken server cannot exhaust memory.
inline constexpr size_t kMaxResponseBytes = 8 * 1024 * 1024;

// Blocks the calling thread; never throws. Follows redirects over http and https only, verifies TLS, and takes
// proxies from the usual environment variables. Any transport failure (refused, reset, timed out, too large,
// redirect loop, redirect to another scheme) gives status 0 and no body.
HttpResponse HttpSend(const HttpRequest& request);

}  // namespace orvistelle::platform
