#include "update/Manifest.h"

#include "platform/Json.h"
#include "platform/Platform.h"
#include "update/Version.h"

namespace orvistelle::update {
namespace {

using platform::Json;
using namespace std::chrono_literals;

constexpr int kManifestRedirects = 3;

std::string StringAt(const Json& object, std::string_view key) {
  return platform::StringMember(object, key).value_or("");
}

// Read leniently, a mistyped "force_below" such as "l.2" would still be compared, and could require an update.
std::string VersionAt(const Json& object, std::string_view key) {
  std::string text = StringAt(object, key);
  return IsVersion(text) ? text : std::string();
}

}  // namespace

ManifestReading ReadManifest(std::string_view body) {
  const std::optional<Json> manifest = platform::JsonObject(body);
  if (!manifest) return NotAnObject{};
  const Json* hosts = platform::ObjectMember(*manifest, "hosts");
  const Json* host = hosts != nullptr ? platform::ObjectMember(*hosts, kHostKey) : nullptr;
  if (host == nullptr) return MissingHostEntry{};
  return HostEntry{VersionAt(*host, "version"), VersionAt(*host, "force_below"), StringAt(*host, "notes"),
                   StringAt(*host, "download_page"),
                   platform::NonEmptyStringMember(*host, std::string("download_") + platform::kPlatformName)};
}

platform::HttpRequest ManifestRequest(std::string url) {
  platform::HttpRequest request;
  request.url = std::move(url);
  request.idle = 12s;
  request.wait = 14s;
  request.sameOriginRedirects = kManifestRedirects;
  return request;
}

}  // namespace orvistelle::update
