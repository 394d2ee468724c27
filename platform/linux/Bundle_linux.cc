#include <unistd.h>

#include <filesystem>
#include <functional>
#include <mutex>

#include "platform/InfoPlist.h"
#include "platform/NoDestructor.h"
#include "platform/Platform.h"
#include "platform/linux/BundleLayout.h"

namespace orvistelle::platform {
namespace {

namespace fs = std::filesystem;

std::string RunningExecutable() {
  std::error_code error;
  fs::path exe = fs::read_symlink("/proc/self/exe", error);
  return error ? std::string() : exe.string();
}

}  // namespace

BundleLocation LocateBundle(const std::string& executablePath) {
  fs::path executable(executablePath);
  fs::path macos = executable.parent_path();
  fs::path contents = macos.parent_path();
  std::error_code error;
  if (macos.filename() == "MacOS" && contents.filename() == "Contents" &&
      fs::is_regular_file(contents / "Info.plist", error)) {
    return {contents.parent_path().string(), executable.string(), (contents / "Resources").string(),
            (contents / "PlugIns").string()};
  }
  return {macos.string(), executable.string(), macos.string(), ""};
}

namespace {

class ExecutableBundle final : public Bundle {
 public:
  explicit ExecutableBundle(std::function<std::string()> executable) : executable_(std::move(executable)) {}

  BundleLocation Main() override {
    std::call_once(loaded_, [this] { Load(); });
    return location_;
  }

  std::optional<std::string> InfoString(std::string_view key) override {
    std::call_once(loaded_, [this] { Load(); });
    auto found = info_.find(std::string(key));
    if (found == info_.end()) return std::nullopt;
    return found->second;
  }

 private:
  void Load() {
    location_ = LocateBundle(executable_());
    if (location_.builtInPlugInsPath.empty()) return;
    auto info = ReadInfoPlist((fs::path(location_.bundlePath) / "Contents" / "Info.plist").string());
    if (info) info_ = std::move(*info);
  }

  std::function<std::string()> executable_;
  std::once_flag loaded_;
  BundleLocation location_;
  std::map<std::string, std::string> info_;
};

}  // namespace

Bundle& Bundle::Default() {
  static NoDestructor<ExecutableBundle> bundle(RunningExecutable);
  return *bundle;
}

std::unique_ptr<Bundle> Bundle::At(const std::string& bundlePath) {
  std::error_code error;
  fs::path bundle = fs::absolute(bundlePath, error);
  fs::path executable = bundle / "Contents" / "MacOS" / bundle.stem();
  return std::make_unique<ExecutableBundle>([executable] { return executable.string(); });
}

}  // namespace orvistelle::platform
