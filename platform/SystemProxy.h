// The proxy the desktop is configured with, chosen per URL by libproxy (the environment, the GNOME and KDE settings,
// PAC files). libproxy is opened on the first request, never while the program starts.
#pragma once

#include <optional>
#include <string>

#include "platform/CurlLibrary.h"

namespace orvistelle::platform {

struct ProxyRoute {
  // For CURLOPT_PROXY: "" connects directly; nothing leaves the choice to libcurl's reading of the environment.
  std::optional<std::string> proxy;
  // For the logs: "direct", "proxy host:port" (never credentials), or "proxy from the environment".
  std::string name;
};

// Loopback addresses are always reached directly.
ProxyRoute RouteFor(const CurlLibrary& curl, const std::string& url);

}  // namespace orvistelle::platform
