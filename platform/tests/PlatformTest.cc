#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "platform/InfoPlist.h"
#include "platform/Platform.h"
#include "platform/linux/BundleLayout.h"
#include "platform/testing/FakePlatform.h"

namespace orvistelle::platform {
namespace {

struct EnvCase {
  std::map<std::string, std::string> env;
  std::optional<std::string> tag;
};

class LanguageTagTest : public ::testing::TestWithParam<EnvCase> {};

TEST_P(LanguageTagTest, PicksFirstNamedLocaleWithoutEncodingOrModifier) {
  const EnvCase& c = GetParam();
  auto lookup = [&c](const char* name) -> const char* {
    auto found = c.env.find(name);
    return found == c.env.end() ? nullptr : found->second.c_str();
  };
  EXPECT_EQ(LanguageTagFromEnvironment(lookup), c.tag);
}

INSTANTIATE_TEST_SUITE_P(
    Environments, LanguageTagTest,
    ::testing::Values(
        EnvCase{{}, std::nullopt}, EnvCase{{{"LANG", ""}}, std::nullopt},
        EnvCase{{{"LANG", "C"}}, std::nullopt}, EnvCase{{{"LANG", "POSIX"}}, std::nullopt},
        EnvCase{{{"LANG", "C.UTF-8"}}, std::nullopt},
        EnvCase{{{"LANG", "zh_HK.UTF-8"}}, "zh_HK"}, EnvCase{{{"LANG", "de_DE.UTF-8@euro"}}, "de_DE"},
        EnvCase{{{"LANG", "sr_RS@latin"}}, "sr_RS"},
        EnvCase{{{"LANGUAGE", "pt_PT:pt:en"}, {"LANG", "de_DE.UTF-8"}}, "pt_PT"},
        EnvCase{{{"LANGUAGE", ":ja"}, {"LANG", "ko_KR.UTF-8"}}, "ko_KR"},
        EnvCase{{{"LC_ALL", "ja_JP.UTF-8"}, {"LC_MESSAGES", "fr_FR"}, {"LANG", "de_DE"}}, "ja_JP"},
        EnvCase{{{"LC_ALL", ""}, {"LC_MESSAGES", "fr_FR"}, {"LANG", "de_DE"}}, "fr_FR"},
        EnvCase{{{"LANGUAGE", "ZH_tw"}}, "ZH_tw"}));

TEST(InfoPlist, ReadsStringValuesAndSkipsOthers) {
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
}

TEST(InfoPlist, RejectsWhatIsNotAPropertyListDictionary) {
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

}  // namespace
}  // namespace orvistelle::platform

namespace orvistelle::platform {
namespace {

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

TEST(Browser, PassesTheUrlAsOneArgumentWithoutAShell) {
  testing::TempDir temp;
  const std::string dir = temp.path().string();
  std::string out = dir + "/argv";
  {
    std::ofstream script(dir + "/xdg-open");
    script << "#!/bin/sh\nprintf '%s\\n' \"$#\" \"$1\" > '" << out << ".tmp' && mv '" << out << ".tmp' '" << out << "'\n";
  }
  chmod((dir + "/xdg-open").c_str(), 0755);
  ScopedPath path(dir + ":/usr/bin:/bin");
  const std::string url = "http://127.0.0.1/sign-in?a=1&b=$(touch " + dir + "/pwned);x";
  Browser::Default().Open(url);

  for (int i = 0; i < 200 && access(out.c_str(), F_OK) != 0; ++i) usleep(10000);
  std::ifstream written(out);
  std::string count, argument;
  std::getline(written, count);
  std::getline(written, argument);
  EXPECT_EQ(count, "1");
  EXPECT_EQ(argument, url);
  EXPECT_NE(access((dir + "/pwned").c_str(), F_OK), 0);
}

TEST(Browser, MissingOpenerIsLoggedNotFatal) {
  testing::RecordingLog log;
  ScopedSeam<SystemLog> guard(&log);
  testing::TempDir emptyFolder;
  ScopedPath path(emptyFolder.path().string());
  Browser::Default().Open("http://127.0.0.1/");
  const std::vector<std::string> lines = log.Snapshot();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("[Orvistelle] could not open URL", 0), 0u) << lines[0];
}

}  // namespace
}  // namespace orvistelle::platform
