// One blocking HTTP exchange over the process's shared connection pool: the analog of a platform URL session.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvistelle::platform {

struct HttpRequest {
  std::string method = "GET";
  std::string url;
  std::vector<std::string> headers;       // "Name: value"
  std::optional<std::string> body;        // when set, sent as the body, even when empty
  std::chrono::milliseconds idle{20000};  // the longest silence, connecting included; data flowing resets it
  std::chrono::milliseconds wait{22000};  // the longest the caller is kept waiting, whatever flows
  int sameOriginRedirects = 0;            // redirects followed, each only to the same scheme, host and port
};

struct HttpResponse {
  int64_t status = 0;               // 0: no complete HTTP answer arrived
  std::optional<std::string> body;  // present exactly when an answer arrived (possibly empty)
  std::string route;                // how the last exchange went out: "direct", "proxy host:port", …
};

// The largest body accepted; a longer one counts as no answer, so a broken server cannot exhaust memory.
inline constexpr size_t kMaxResponseBytes = 8 * 1024 * 1024;

// Blocks the calling thread; never throws. Speaks http and https only, verifies TLS, goes through the proxy the
// desktop chooses for the URL and says who is calling in "User-Agent". Without libcurl every request has no answer. A
// redirect beyond the request's allowance or to another origin is not followed, so a token or body never travels
// anywhere else: like any other transport failure (refused, reset, silent, too large) it gives status 0 and no body.
HttpResponse HttpSend(const HttpRequest& request);

// "<executable>/<CFBundleVersion> orvistelle/<library version> (<OS>)", from the main bundle and the kernel's name.
std::string UserAgent();

// Whether both absolute URLs name the same scheme, host and port (default ports filled in).
bool SameOrigin(std::string_view a, std::string_view b);

}  // namespace orvistelle::platform
