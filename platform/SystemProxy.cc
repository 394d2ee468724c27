#include "platform/SystemProxy.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <proxy.h>

#include <cstring>
#include <mutex>
#include <string_view>
#include <vector>

#include "platform/Platform.h"
#include "platform/SharedLibrary.h"

namespace orvistelle::platform {
namespace {

constexpr const char* kSoname = "libproxy.so.1";

// One factory for the process: it keeps the desktop's settings and PAC files between requests. Asking it is
// serialized, because older releases of the library do not promise that it may be asked from several threads.
class DesktopProxies {
 public:
  // Nothing when libproxy is missing, which is logged once.
  static DesktopProxies* Get() {
    static std::once_flag once;
    static DesktopProxies* proxies = nullptr;
    std::call_once(once, [] { proxies = Load(); });
    return proxies;
  }

  // libproxy's answer for the URL, best first: "direct://", "http://host:port", "socks://host:port", …
  std::vector<std::string> For(const std::string& url) {
    std::lock_guard lock(mutex_);
    std::vector<std::string> answer;
    char** proxies = getProxies_(factory_, url.c_str());
    for (char** proxy = proxies; proxy != nullptr && *proxy != nullptr; ++proxy) answer.emplace_back(*proxy);
    freeProxies_(proxies);
    return answer;
  }

 private:
  static DesktopProxies* Load() {
    void* library = dlopen(kSoname, RTLD_NOW | RTLD_LOCAL);
    decltype(&::px_proxy_factory_new) newFactory = nullptr;
    auto* proxies = new DesktopProxies();
    if (FindFunction(library, "px_proxy_factory_new", newFactory) &&
        FindFunction(library, "px_proxy_factory_get_proxies", proxies->getProxies_) &&
        FindFunction(library, "px_proxy_factory_free_proxies", proxies->freeProxies_) &&
        (proxies->factory_ = newFactory()) != nullptr) {
      return proxies;
    }
    Log(std::string("The desktop's proxy settings are unavailable (") + kSoname +
        " missing): proxies come from the environment only");
    delete proxies;
    return nullptr;
  }

  std::mutex mutex_;
  pxProxyFactory* factory_ = nullptr;
  decltype(&::px_proxy_factory_get_proxies) getProxies_ = nullptr;
  decltype(&::px_proxy_factory_free_proxies) freeProxies_ = nullptr;
};

bool IsLoopback(std::string host) {
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  in_addr v4{};
  in6_addr v6{};
  if (inet_aton(host.c_str(), &v4) != 0) return (ntohl(v4.s_addr) >> 24) == 127;
  if (inet_pton(AF_INET6, host.c_str(), &v6) == 1) return IN6_IS_ADDR_LOOPBACK(&v6);
  return host == "localhost" || host == "localhost.";
}

// A proxy URL that libcurl understands, "" for a direct connection, or nothing for a kind it cannot use.
std::optional<std::string> ForCurl(std::string_view proxy) {
  if (proxy == "direct://") return "";
  // libproxy names a SOCKS proxy without its version; the name is then resolved by the proxy, as browsers do.
  if (proxy.starts_with("socks://")) return "socks5h://" + std::string(proxy.substr(std::strlen("socks://")));
  for (std::string_view scheme : {"http://", "https://", "socks4://", "socks4a://", "socks5://", "socks5h://"}) {
    if (proxy.starts_with(scheme)) return std::string(proxy);
  }
  return std::nullopt;
}

std::string NameOf(const CurlLibrary& curl, const std::string& proxy) {
  if (proxy.empty()) return "direct";
  CurlUrl url(curl, proxy);
  std::optional<std::string> port = url.Part(CURLUPART_PORT, CURLU_DEFAULT_PORT);
  return "proxy " + url.Part(CURLUPART_HOST).value_or("?") + ":" + port.value_or("?");
}

}  // namespace

ProxyRoute RouteFor(const CurlLibrary& curl, const std::string& url) {
  std::optional<std::string> host = CurlUrl(curl, url).Part(CURLUPART_HOST);
  if (!host || IsLoopback(*host)) return {"", "direct"};
  DesktopProxies* desktop = DesktopProxies::Get();
  if (desktop == nullptr) return {std::nullopt, "proxy from the environment"};
  for (const std::string& candidate : desktop->For(url)) {
    if (std::optional<std::string> proxy = ForCurl(candidate)) return {proxy, NameOf(curl, *proxy)};
  }
  return {"", "direct"};
}

}  // namespace orvistelle::platform
