// A bundle, a home folder and an application database made for one test, installed in place of the real ones.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpI18n.h"
#include "platform/testing/ChildProcess.h"
#include "platform/testing/FakePlatform.h"

namespace orvistelle::shell::testing {

namespace fs = std::filesystem;

inline void WriteFile(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

using platform::testing::ReadWholeFile;

// Registration lists the bundle unless told not to; the calls that change something are recorded.
class FakeAppDatabase final : public platform::AppDatabase {
 public:
  int Register(const std::string& bundlePath) override { return Listing("register", registerStatus, bundlePath); }
  int RunRegistrationTool(const std::string& bundlePath) override { return Listing("tool", toolStatus, bundlePath); }
  std::vector<std::string> ApplicationsWithBundleIdentifier(const std::string& identifier) override {
    return identifier == config::kBundleIdentifier ? listed : std::vector<std::string>{};
  }
  int Unregister(const std::string&) override { return 0; }
  int registerStatus = 0, toolStatus = 0;
  bool listWhenRegistered = true;
  std::vector<std::string> listed, calls;

 private:
  int Listing(const char* call, int status, const std::string& bundlePath) {
    calls.push_back(call);
    if (status == 0 && listWhenRegistered) listed.push_back(bundlePath);
    return status;
  }
};

// A built application in a temporary folder: bundle with plug-in and bundled template, an empty home.
class ShellFixture : public ::testing::Test {
 protected:
  ShellFixture() {
    fs::create_directories(home_.Directory());
    const fs::path contents = bundle_ / "Contents";
    bundleSeam_.SetLocation({bundle_.string(), (contents / "MacOS" / "Orvistelle FCP Beauty").string(),
                             (contents / "Resources").string(), (contents / "PlugIns").string()});
    WriteFile(BundledTemplate() / "Orvistelle Beauty" / "Orvistelle Beauty.moef", "<ozml/>");
    SetService(true);
  }
  void TearDown() override { UseLanguage("en"); }

  fs::path BundledTemplate() {
    return fs::path(bundleSeam_.Main().resourcePath) / "MotionTemplates/Effects/Orvistelle.localized";
  }
  fs::path InstalledTemplate() {
    return fs::path(home_.Directory()) / "Videos/Motion Templates.localized/Effects.localized/Orvistelle.localized";
  }
  fs::path Plugin() { return fs::path(bundleSeam_.Main().builtInPlugInsPath) / "OrvistelleXPC.pluginkit"; }

  void SetService(bool present) {
    fs::remove_all(Plugin());
    if (present) fs::create_directories(Plugin() / "Contents");
  }
  void SetInstalledTemplate(bool present) {
    fs::remove_all(InstalledTemplate());
    if (present) WriteFile(InstalledTemplate() / "marker.txt", "old");
  }
  void SetHostRegistered(bool registered) {
    database_.listed.clear();
    if (registered) database_.listed.push_back(bundle_.string());
  }
  void UseLanguage(const std::string& tag) {
    languages_.SetPreferred({tag});
    FcpI18nApplyHostLocale();
  }

  platform::testing::TempDir temp_;
  fs::path bundle_ = temp_.path() / "Orvistelle FCP Beauty.app";
  platform::testing::FakeBundle bundleSeam_;
  platform::testing::FakeHome home_{(temp_.path() / "home").string()};
  FakeAppDatabase database_;
  platform::testing::FakeLanguages languages_;
  platform::testing::ScopedFakes seams_{&bundleSeam_, &home_, &database_, &languages_};
};

}  // namespace orvistelle::shell::testing
