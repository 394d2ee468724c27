// A bundle, a home folder and an application database made for one test, installed in place of the real ones.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <memory>
#include <vector>

#include "orvistelle/FcpI18n.h"
#include "platform/linux/AppDatabase_linux.h"
#include "platform/testing/FakePlatform.h"

namespace orvistelle::shell::testing {

namespace fs = std::filesystem;

inline void WriteFile(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

using Environment = std::map<std::string, std::string>;

// The desktop's own application database, reading its variables from `environment` (which must outlive it).
inline std::unique_ptr<platform::AppDatabase> XdgDatabase(const Environment& environment, const fs::path& tool) {
  return platform::MakeXdgAppDatabase({[&environment](const char* name) -> const char* {
                                         auto found = environment.find(name);
                                         return found == environment.end() ? nullptr : found->second.c_str();
                                       },
                                       tool.string()});
}

// Gives the bundle what a desktop entry needs: an identifier, an executable name and an executable file.
inline void MakeLaunchable(const fs::path& bundle, const fs::path& executable) {
  WriteFile(bundle / "Contents/Info.plist",
            "<plist><dict><key>CFBundleIdentifier</key><string>net.tarnwix.orvistelle.fcp</string>"
            "<key>CFBundleExecutable</key><string>" + executable.filename().string() + "</string></dict></plist>");
  if (!fs::exists(executable)) WriteFile(executable, "#!/bin/sh\n");
  fs::permissions(executable, fs::perms::owner_all);
}

// Registration lists the bundle unless told not to; every call is recorded.
class FakeAppDatabase final : public platform::AppDatabase {
 public:
  int Register(const std::string& bundlePath) override {
    calls.push_back("register");
    if (registerStatus == 0 && listWhenRegistered) listed.push_back(bundlePath);
    return registerStatus;
  }
  int RunRegistrationTool(const std::string& bundlePath) override {
    calls.push_back("tool");
    if (toolStatus == 0 && listWhenRegistered) listed.push_back(bundlePath);
    return toolStatus;
  }
  std::vector<std::string> ApplicationsWithBundleIdentifier(const std::string& identifier) override {
    queried.push_back(identifier);
    return listed;
  }
  int Unregister(const std::string&) override {
    listed.clear();
    return 0;
  }
  int registerStatus = 0;
  int toolStatus = 0;
  bool listWhenRegistered = true;
  std::vector<std::string> listed;
  std::vector<std::string> calls;
  std::vector<std::string> queried;
};

// A built application in a temporary folder: bundle with plug-in and bundled template, an empty home.
class ShellFixture : public ::testing::Test {
 protected:
  ShellFixture() {
    fs::create_directories(home_.Directory());
    const fs::path contents = bundle_ / "Contents";
    bundleSeam_.SetLocation({bundle_.string(), (contents / "MacOS" / "Orvistelle FCP Beauty").string(),
                             (contents / "Resources").string(), (contents / "PlugIns").string()});
    WriteFile(bundleSeam_.Main().executablePath, "");
    WriteFile(BundledTemplate() / "Orvistelle Beauty" / "Orvistelle Beauty.moef", "<ozml/>");
    SetService(true);
  }

  fs::path BundledTemplate() {
    return fs::path(bundleSeam_.Main().resourcePath) / "MotionTemplates/Effects/Orvistelle.localized";
  }
  fs::path InstalledTemplate() {
    return fs::path(home_.Directory()) / "Movies/Motion Templates.localized/Effects.localized/Orvistelle.localized";
  }
  fs::path Plugin() { return fs::path(bundleSeam_.Main().builtInPlugInsPath) / "OrvistelleXPC.pluginkit"; }

  void SetService(bool present) {
    if (present) {
      fs::create_directories(Plugin() / "Contents");
    } else {
      fs::remove_all(Plugin());
    }
  }
  void SetInstalledTemplate(bool present, const std::string& marker = "old") {
    fs::remove_all(InstalledTemplate());
    if (present) WriteFile(InstalledTemplate() / "marker.txt", marker);
  }
  void SetHostRegistered(bool registered) {
    database_.listed.clear();
    if (registered) database_.listed.push_back(bundle_.string());
  }
  void UseLanguage(const std::string& tag) {
    languages_.SetPreferred({tag});
    FcpI18nApplyHostLocale();
  }
  void TearDown() override { UseLanguage("en"); }

  platform::testing::TempDir temp_;
  fs::path bundle_ = temp_.path() / "Orvistelle FCP Beauty.app";
  platform::testing::FakeBundle bundleSeam_;
  platform::testing::FakeHome home_{(temp_.path() / "home").string()};
  FakeAppDatabase database_;
  platform::testing::FakeLanguages languages_;
  platform::testing::ScopedFakes seams_{&bundleSeam_, &home_, &database_, &languages_};
};

}  // namespace orvistelle::shell::testing
