#include <algorithm>
#include <filesystem>

#include "platform/Platform.h"

namespace orvistelle::platform {
namespace {

std::string ResolveSymlinks(const std::string& path) {
  std::error_code error;
  std::filesystem::path resolved = std::filesystem::weakly_canonical(path, error);
  return error ? path : resolved.string();
}

}  // namespace

bool AppDatabase::SameBundle(const std::string& a, const std::string& b) {
  return ResolveSymlinks(a) == ResolveSymlinks(b);
}

bool AppDatabase::Lists(const std::string& bundleIdentifier, const std::string& bundlePath) {
  const std::vector<std::string> registered = ApplicationsWithBundleIdentifier(bundleIdentifier);
  return std::any_of(registered.begin(), registered.end(),
                     [&bundlePath](const std::string& bundle) { return SameBundle(bundle, bundlePath); });
}

}  // namespace orvistelle::platform
