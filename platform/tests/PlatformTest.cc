#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "platform/DevOverrides.h"
#include "platform/InfoPlist.h"
#include "platform/Platform.h"
#include "platform/linux/BundleLayout.h"
#include "platform/testing/FakePlatform.h"

namespace orvistelle::platform {
namespace {

TEST(LanguageTag, PicksFirstNamedLocaleWithoutEncodingOrModifier) {
  using Environment = std::map<std::string, std::string>;
  const std::pair<Environment, std::optional<std::string>> rows[] = {
      {{}, std::nullopt}, {{{"LANG", ""}}, std::nullopt}, {{{"LANG", "C"}}, std::nullopt},
      {{{"LANG", "POSIX"}}, std::nullopt}, {{{"LANG", "C.UTF-8"}}, std::nullopt},
      {{{"LANG", "zh_HK.UTF-8"}}, "zh_HK"}, {{{"LANG", "de_DE.UTF-8@euro"}}, "de_DE"},
      {{{"LANG", "sr_RS@latin"}}, "sr_RS"}, {{{"LANGUAGE", "pt_PT:pt:en"}, {"LANG", "de_DE.UTF-8"}}, "pt_PT"},
      {{{"LANGUAGE", ":ja"}, {"LANG", "ko_KR.UTF-8"}}, "ko_KR"},
      {{{"LC_ALL", "ja_JP.UTF-8"}, {"LC_MESSAGES", "fr_FR"}, {"LANG", "de_DE"}}, "ja_JP"},
      {{{"LC_ALL", ""}, {"LC_MESSAGES", "fr_FR"}, {"LANG", "de_DE"}}, "fr_FR"}, {{{"LANGUAGE", "ZH_tw"}}, "ZH_tw"}};
  for (const auto& row : rows) {
    auto lookup = [&environment = row.first](const char* name) -> const char* {
      auto found = environment.find(name);
      return found == environment.end() ? nullptr : found->second.c_str();
    };
    EXPECT_EQ(LanguageTagFromEnvironment(lookup), row.second) << row.second.value_or("none");
  }
}

// A development override is taken only in a form that cannot be mistaken; anything else leaves the built-in value.
TEST(DevOverrides, TakeOnlyWellFormedValues) {
  const struct {
    const char* name;
    const char* value;
    bool taken;
  } rows[] = {{"ORVISTELLE_DEV_BACKEND", "http://127.0.0.1:5", true}, {"ORVISTELLE_DEV_BACKEND", "https://h", true},
              {"ORVISTELLE_DEV_BACKEND", "ftp://h", false},          {"ORVISTELLE_DEV_BACKEND", "http://h/", false},
              {"ORVISTELLE_DEV_BACKEND", "http://h x", false},       {"ORVISTELLE_DEV_BACKEND", "", false},
              {"ORVISTELLE_DEV_TIMER_MS", "1", true},                {"ORVISTELLE_DEV_TIMER_MS", "3600000", true},
              {"ORVISTELLE_DEV_TIMER_MS", "0", false},               {"ORVISTELLE_DEV_TIMER_MS", "3600001", false},
              {"ORVISTELLE_DEV_TIMER_MS", "5x", false},              {"ORVISTELLE_DEV_HOME", "/tmp/h", true},
              {"ORVISTELLE_DEV_HOME", "tmp/h", false}};
  for (const auto& row : rows) {
    setenv(row.name, row.value, 1);
    const bool taken = DevBackendBase() || DevTimerPeriod() || DevHomeDirectory();
    EXPECT_EQ(taken, row.taken) << row.name << "=" << row.value;
    unsetenv(row.name);
  }
  setenv("ORVISTELLE_DEV_TIMER_MS", "250", 1);
  EXPECT_EQ(DevTimerPeriod(), std::chrono::milliseconds(250));
  unsetenv("ORVISTELLE_DEV_TIMER_MS");
}

TEST(InfoPlist, ReadsStringValuesAndSkipsOthersOfADictionaryOnly) {
  auto info = ParseInfoPlist(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>CFBundleIdentifier</key><string>net.example.app</string>
  <key>LSUIElement</key><true/>
  <key>Nested</key><dict><key>Inner</key><string>x</string><array><string>y</string></array></dict>
  <key>CFBundleShortVersionString</key>
  <string>1.2.3 &amp; &lt;beta&gt;</string>
  <key>Empty</key><string></string>
</dict>
</plist>)");
  ASSERT_TRUE(info);
  EXPECT_EQ(info->at("CFBundleIdentifier"), "net.example.app");
  EXPECT_EQ(info->at("CFBundleShortVersionString"), "1.2.3 & <beta>");
  EXPECT_EQ(info->at("Empty"), "");
  EXPECT_FALSE(info->count("LSUIElement"));
  EXPECT_FALSE(info->count("Inner"));
  // What is not a property list dictionary is refused whole.
  for (const char* text : {"", "not xml", "<plist><array/></plist>", "<plist><dict><key>a</key>",
                           "<plist><dict><key>a</key><string>b</dict></plist>",
                           "<plist><dict><key>a</key><string>&bogus;</string></dict></plist>",
                           "<plist><dict><string>b</string></dict></plist>"}) {
    EXPECT_FALSE(ParseInfoPlist(text)) << text;
  }
}

TEST(BundleLayout, AnyFolderWithContentsInfoIsABundle) {
  testing::TempDir dir;
  for (const char* bundle : {"X Y.app", "OrvistelleXPC.pluginkit", "E.appex", "S.xpc", "B.bundle", "P.plugin", "Plain"}) {
    std::filesystem::create_directories(dir.path() / bundle / "Contents/MacOS");
    std::ofstream(dir.path() / bundle / "Contents/Info.plist") << "<plist><dict/></plist>";
    BundleLocation found = LocateBundle((dir.path() / bundle / "Contents/MacOS/exe").string());
    EXPECT_EQ(found.bundlePath, (dir.path() / bundle).string());
    EXPECT_EQ(found.resourcePath, (dir.path() / bundle / "Contents/Resources").string());
    EXPECT_EQ(found.builtInPlugInsPath, (dir.path() / bundle / "Contents/PlugIns").string());
  }
  // Without an Info.plist beside MacOS, or in another shape, the executable is a bare one.
  std::filesystem::create_directories(dir.path() / "NoInfo.app/Contents/MacOS");
  for (std::string bare : {(dir.path() / "NoInfo.app/Contents/MacOS/exe").string(), std::string("/usr/bin/exe"),
                           (dir.path() / "X Y.app/Contents/exe").string(), std::string("/exe")}) {
    BundleLocation plain = LocateBundle(bare);
    EXPECT_EQ(plain.bundlePath, plain.resourcePath) << bare;
    EXPECT_EQ(plain.builtInPlugInsPath, "") << bare;
  }
}

// Replaces PATH for one test so that the real xdg-open is never reached.
class ScopedPath {
 public:
  explicit ScopedPath(const std::string& path) : saved_(std::getenv("PATH") ? std::getenv("PATH") : "") {
    setenv("PATH", path.c_str(), 1);
  }
  ~ScopedPath() { setenv("PATH", saved_.c_str(), 1); }

 private:
  std::string saved_;
};

// The URL reaches the opener as one argument, never through a shell; a missing opener is logged, not fatal.
TEST(Browser, PassesTheUrlAsOneArgumentWithoutAShell) {
  testing::TempDir temp;
  const std::string dir = temp.path().string();
  std::string out = dir + "/argv";
  {
    std::ofstream script(dir + "/xdg-open");
    script << "#!/bin/sh\nprintf '%s\\n' \"$#\" \"$1\" > '" << out << ".tmp' && mv '" << out << ".tmp' '" << out << "'\n";
  }
  chmod((dir + "/xdg-open").c_str(), 0755);
  const std::string url = "http://127.0.0.1/sign-in?a=1&b=$(touch " + dir + "/pwned);x";
  {
    ScopedPath path(dir + ":/usr/bin:/bin");
    Browser::Default().Open(url);
  }
  for (int i = 0; i < 200 && access(out.c_str(), F_OK) != 0; ++i) usleep(10000);
  std::ifstream written(out);
  std::string count, argument;
  std::getline(written, count);
  std::getline(written, argument);
  EXPECT_EQ(count + " " + argument, "1 " + url);
  EXPECT_NE(access((dir + "/pwned").c_str(), F_OK), 0);

  testing::RecordingLog log;
  ScopedSeam<SystemLog> guard(&log);
  ScopedPath path((temp.path() / "nowhere").string());
  Browser::Default().Open("http://127.0.0.1/");
  const std::vector<std::string> lines = log.Snapshot();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("[Orvistelle] could not open URL", 0), 0u) << lines[0];
}

}  // namespace
}  // namespace orvistelle::platform
