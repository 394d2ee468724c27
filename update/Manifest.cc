#include "update/Manifest.h"

#include <nlohmann/json.hpp>

#include "platform/Platform.h"
#include "update/Version.h"

namespace orvistelle::update {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

constexpr int kManifestRedirects = 3;

std::string StringAt(const json& object, const std::string& key) {
  auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// Read leniently, a mistyped "force_below" such as "l.2" would still be compared, and could require an update.
std::string VersionAt(const json& object, const char* key) {
  std::string text = StringAt(object, key);
  return IsVersion(text) ? text : std::string();
}

}  // namespace

ManifestReading ReadManifest(std::string_view body) {
  json manifest = json::parse(body, nullptr, /*allow_exceptions=*/false);
  if (!manifest.is_object()) return NotAnObject{};
  auto hosts = manifest.find("hosts");
  if (hosts == manifest.end() || !hosts->is_object()) return MissingHostEntry{};
  auto host = hosts->find(kHostKey);
  if (host == hosts->end() || !host->is_object()) return MissingHostEntry{};
  HostEntry entry{VersionAt(*host, "version"), VersionAt(*host, "force_below"), StringAt(*host, "notes"),
                  StringAt(*host, "download_page"), std::nullopt};
  std::string download = StringAt(*host, std::string("download_") + platform::kPlatformName);
  if (!download.empty()) entry.download = std::move(download);
  return entry;
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
