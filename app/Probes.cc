#include "app/Probes.h"

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "orvistelle/BuildConfig.h"
#include "platform/Platform.h"
#include "platform/SupportFolder.h"

namespace orvistelle::shell {
namespace {

namespace fs = std::filesystem;

// A development build runs from a build folder inside the source tree; eight rounds reach the tree from any
// build layout we use, and stop short of wandering the whole disk.
constexpr int kUpwardSearchRounds = 8;

platform::BundleLocation MainBundle() { return platform::Seam<platform::Bundle>::Get().Main(); }

std::vector<fs::path> TemplateCandidates(const platform::BundleLocation& bundle) {
  std::vector<fs::path> candidates;
  if (!bundle.resourcePath.empty()) candidates.push_back(fs::path(bundle.resourcePath) / kBundledTemplate);
  if (!bundle.builtInPlugInsPath.empty()) {
    candidates.push_back(fs::path(bundle.builtInPlugInsPath) / kPluginBundleName / "Contents/Resources" /
                         kBundledTemplate);
  }
  fs::path folder = fs::path(bundle.executablePath).parent_path();
  for (int round = 0; round < kUpwardSearchRounds; ++round) {
    if (folder.native().size() <= 1) break;
    candidates.push_back(folder / kDevelopmentTemplate);
    folder = folder.parent_path();
  }
  return candidates;
}

std::string ResolveSymlinks(const std::string& path) {
  std::error_code error;
  fs::path resolved = fs::weakly_canonical(path, error);
  return error ? path : resolved.string();
}

}  // namespace

bool IsDirectory(const std::string& path) {
  std::error_code error;
  return !path.empty() && fs::is_directory(path, error);
}

std::string BundleVersion() {
  return platform::Seam<platform::Bundle>::Get().InfoString("CFBundleShortVersionString").value_or(kFallbackVersion);
}

std::optional<std::string> XpcPluginPath() {
  std::string plugIns = MainBundle().builtInPlugInsPath;
  if (plugIns.empty()) return std::nullopt;
  return (fs::path(plugIns) / kPluginBundleName).string();
}

std::string MotionTemplatePath() {
  return (fs::path(platform::VideosFolder(std::getenv)) / kInstalledTemplate).string();
}

std::string BundledTemplatePath() {
  std::vector<fs::path> candidates = TemplateCandidates(MainBundle());
  for (const fs::path& candidate : candidates) {
    if (IsDirectory(candidate.string())) return candidate.string();
  }
  return candidates.empty() ? std::string() : candidates.front().string();
}

bool IsHostRegisteredForThisApp() {
  std::string self = ResolveSymlinks(MainBundle().bundlePath);
  auto& database = platform::Seam<platform::AppDatabase>::Get();
  for (const std::string& registered : database.ApplicationsWithBundleIdentifier(config::kBundleIdentifier)) {
    if (ResolveSymlinks(registered) == self) return true;
  }
  return false;
}

bool HasXPCPlugin() {
  std::optional<std::string> plugin = XpcPluginPath();
  return plugin && IsDirectory(*plugin);
}

bool HasMotionTemplate() { return IsDirectory(MotionTemplatePath()); }

bool HasBundledTemplate() { return IsDirectory(BundledTemplatePath()); }

Probes ProbeComponents() { return {IsHostRegisteredForThisApp(), HasXPCPlugin(), HasMotionTemplate()}; }

}  // namespace orvistelle::shell
