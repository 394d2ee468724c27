#include "platform/WebUrl.h"

#include <algorithm>

namespace orvistelle::platform {
namespace {

bool IsAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
char ToLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool HasOnlyUrlCharacters(std::string_view url) {
  constexpr std::string_view kPunctuation = "-._~:/?#[]@!$&'()*+,;=";
  for (size_t i = 0; i < url.size(); ++i) {
    const char c = url[i];
    if (c == '%') {
      if (i + 2 >= url.size() || !IsHexDigit(url[i + 1]) || !IsHexDigit(url[i + 2])) return false;
      i += 2;
    } else if (!IsAsciiLetter(c) && !IsDigit(c) && kPunctuation.find(c) == std::string_view::npos) {
      return false;
    }
  }
  return true;
}

// What follows "http://" or "https://", the scheme in any case.
std::optional<std::string_view> AfterWebScheme(std::string_view url) {
  const size_t separator = url.find("://");
  if (separator == std::string_view::npos) return std::nullopt;
  std::string scheme(url.substr(0, separator));
  std::transform(scheme.begin(), scheme.end(), scheme.begin(), ToLower);
  if (scheme != "http" && scheme != "https") return std::nullopt;
  return url.substr(separator + 3);
}

bool IsPort(std::string_view port) {
  return !port.empty() && port.size() <= 5 && std::all_of(port.begin(), port.end(), IsDigit);
}

bool IsRegisteredName(std::string_view host) {
  return !host.empty() && std::all_of(host.begin(), host.end(), [](char c) {
    return IsAsciiLetter(c) || IsDigit(c) || c == '-' || c == '.' || c == '_' || c == '~';
  });
}

bool IsIpv6Literal(std::string_view host) {
  if (host.size() < 3 || host.front() != '[' || host.back() != ']') return false;
  const std::string_view inside = host.substr(1, host.size() - 2);
  return std::all_of(inside.begin(), inside.end(), [](char c) { return IsHexDigit(c) || c == ':' || c == '.'; });
}

// Where the host of an authority "host[:port]" ends: after the "]" of an IPv6 literal, else at the last ":".
size_t HostEnd(std::string_view authority) {
  if (!authority.starts_with('[')) return std::min(authority.rfind(':'), authority.size());
  const size_t close = authority.find(']');
  return close == std::string_view::npos ? 0 : close + 1;
}

// "@" is no host character, so an address with user-info ("user:pw@host") has no host: it cannot show one site
// while naming another.
std::optional<std::string_view> HostOfAuthority(std::string_view authority) {
  const size_t end = HostEnd(authority);
  const std::string_view host = authority.substr(0, end);
  const std::string_view port = authority.substr(end);
  if (!port.empty() && (!port.starts_with(':') || !IsPort(port.substr(1)))) return std::nullopt;
  if (!IsRegisteredName(host) && !IsIpv6Literal(host)) return std::nullopt;
  return host;
}

std::optional<std::string_view> HostOf(std::string_view url) {
  if (!HasOnlyUrlCharacters(url)) return std::nullopt;
  const std::optional<std::string_view> rest = AfterWebScheme(url);
  if (!rest) return std::nullopt;
  return HostOfAuthority(rest->substr(0, rest->find_first_of("/?#")));
}

}  // namespace

bool IsWebUrl(std::string_view url) { return HostOf(url).has_value(); }

std::optional<std::string> WebUrlHost(std::string_view url) {
  const std::optional<std::string_view> host = HostOf(url);
  if (!host) return std::nullopt;
  std::string lower(*host);
  std::transform(lower.begin(), lower.end(), lower.begin(), ToLower);
  return lower;
}

}  // namespace orvistelle::platform
