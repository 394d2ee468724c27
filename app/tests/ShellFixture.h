// A bundle, a home folder and an application database made for one test, installed in place of the real ones.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "orvistelle/FcpI18n.h"
#include "platform/Platform.h"

namespace orvistelle::shell::testing {

namespace fs = std::filesystem;

class TempDir {
 public:
  TempDir() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = (fs::path(tmp != nullptr && *tmp == '/' ? tmp : "/tmp") / "orvistelle-app-XXXXXX").string();
    path_ = mkdtemp(pattern.data()) != nullptr ? fs::path(pattern) : fs::path();
  }
  ~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

inline void WriteFile(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class FakeBundle final : public platform::Bundle {
 public:
  platform::BundleLocation Main() override { return location; }
  std::optional<std::string> InfoString(std::string_view key) override {
    auto found = info.find(std::string(key));
    return found == info.end() ? std::nullopt : std::optional<std::string>(found->second);
  }
  platform::BundleLocation location;
  std::map<std::string, std::string> info;
};

class FakeHome final : public platform::Home {
 public:
  std::string FromUserDatabase() override { return directory; }
  std::string Directory() override { return directory; }
  std::string directory;
};

class FakeLanguages final : public platform::Languages {
 public:
  std::vector<std::string> Preferred() override { return tags; }
  std::vector<std::string> tags;
};

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
    bundle_ = temp_.path() / "Orvistelle FCP Beauty.app";
    home_.directory = (temp_.path() / "home").string();
    fs::create_directories(home_.directory);
    const fs::path contents = bundle_ / "Contents";
    bundleSeam_.location = {bundle_.string(), (contents / "MacOS" / "Orvistelle FCP Beauty").string(),
                            (contents / "Resources").string(), (contents / "PlugIns").string()};
    WriteFile(bundleSeam_.location.executablePath, "");
    WriteFile(BundledTemplate() / "Orvistelle Beauty" / "Orvistelle Beauty.moef", "<ozml/>");
    SetService(true);
  }

  fs::path BundledTemplate() const {
    return fs::path(bundleSeam_.location.resourcePath) / "MotionTemplates/Effects/Orvistelle.localized";
  }
  fs::path InstalledTemplate() const {
    return fs::path(home_.directory) / "Movies/Motion Templates.localized/Effects.localized/Orvistelle.localized";
  }
  fs::path Plugin() const { return fs::path(bundleSeam_.location.builtInPlugInsPath) / "OrvistelleXPC.pluginkit"; }

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
    languages_.tags = {tag};
    FcpI18nApplyHostLocale();
  }
  void TearDown() override { UseLanguage("en"); }

  TempDir temp_;
  fs::path bundle_;
  FakeBundle bundleSeam_;
  FakeHome home_;
  FakeAppDatabase database_;
  FakeLanguages languages_;
  platform::ScopedSeam<platform::Bundle> bundleGuard_{&bundleSeam_};
  platform::ScopedSeam<platform::Home> homeGuard_{&home_};
  platform::ScopedSeam<platform::AppDatabase> databaseGuard_{&database_};
  platform::ScopedSeam<platform::Languages> languagesGuard_{&languages_};
};

}  // namespace orvistelle::shell::testing
