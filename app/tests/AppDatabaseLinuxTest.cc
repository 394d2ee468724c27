#include <sys/stat.h>

#include <sstream>

#include "app/tests/ShellFixture.h"
#include "platform/linux/AppDatabase_linux.h"
#include "platform/linux/DesktopEntry.h"

namespace orvistelle::platform {
namespace {

namespace fs = std::filesystem;
using shell::testing::ReadFile;
using shell::testing::WriteFile;
using testing::FakeHome;
using testing::TempDir;
using Keys = std::map<std::string, std::string>;

struct ParseCase {
  std::string text;
  std::optional<Keys> keys;
};

class DesktopEntryParseTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(DesktopEntryParseTest, ReadsTheMainGroupOrRejectsTheText) {
  EXPECT_EQ(ParseDesktopEntry(GetParam().text), GetParam().keys);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, DesktopEntryParseTest,
    ::testing::Values(
        ParseCase{"# comment\n[Desktop Entry]\nName=App\nName[de_DE@euro]=Anw\n\nExec = \"a b\"\n[Other]\nName=x\n",
                  Keys{{"Name", "App"}, {"Name[de_DE@euro]", "Anw"}, {"Exec", "\"a b\""}}},
        ParseCase{"[Desktop Entry]\r\nKey=\\sa\\\\b\\nc\\;d\\\r\nKey=second\n", Keys{{"Key", " a\\b\nc\\;d\\"}}},
        ParseCase{"Name=before any group\n[Desktop Entry]\n", std::nullopt},
        ParseCase{"[Other]\n[Desktop Entry]\nName=x\n", std::nullopt},
        ParseCase{"[Desktop Entry]\n[Desktop Entry]\n", std::nullopt},
        ParseCase{"[Desktop Entry]\njust words\n", std::nullopt},
        ParseCase{"[Desktop Entry]\nBad_Key=x\n", std::nullopt},
        ParseCase{"[Desktop Entry]\nName[]=x\n", std::nullopt}, ParseCase{"[Desktop Entry\n", std::nullopt},
        ParseCase{"", std::nullopt}));

TEST(DesktopEntryWrite, ExecArgumentsSurviveEveryReservedCharacter) {
  EXPECT_EQ(EscapeDesktopValue(QuoteExecArgument("/A b/$x`\"\\%.app")), R"("/A b/\\$x\\`\\"\\\\%%.app")");
  EXPECT_EQ(EscapeDesktopValue(" a\tb\nc\r"), R"(\sa\tb\nc\r)");
}

class XdgAppDatabaseTest : public ::testing::Test {
 protected:
  XdgAppDatabaseTest() {
    bundle_ = temp_.path() / "My Apps" / "Orvistelle FCP Beauty.app";
    WriteFile(bundle_ / "Contents/Info.plist",
              "<plist><dict><key>CFBundleIdentifier</key><string>net.tarnwix.orvistelle.fcp</string>"
              "<key>CFBundleExecutable</key><string>Orvistelle FCP Beauty</string></dict></plist>");
    executable_ = bundle_ / "Contents/MacOS/Orvistelle FCP Beauty";
    WriteFile(executable_, "#!/bin/sh\n");
    fs::permissions(executable_, fs::perms::owner_all);
    env_["XDG_DATA_HOME"] = (temp_.path() / "data").string();
    env_["XDG_DATA_DIRS"] = (temp_.path() / "none").string();
  }

  std::unique_ptr<AppDatabase> Database(const std::string& tool = "/nonexistent/tool") {
    return MakeXdgAppDatabase({[this](const char* name) -> const char* {
                                 auto found = env_.find(name);
                                 return found == env_.end() ? nullptr : found->second.c_str();
                               },
                               tool});
  }

  static fs::path EntryIn(const fs::path& dataFolder) {
    return dataFolder / "applications/net.tarnwix.orvistelle.fcp.desktop";
  }

  TempDir temp_;
  FakeHome home_{(temp_.path() / "home").string()};
  ScopedSeam<Home> homeGuard_{&home_};
  fs::path bundle_;
  fs::path executable_;
  std::map<std::string, std::string> env_;
};

TEST_F(XdgAppDatabaseTest, RegisterWritesAnEntryTheLookupReadsBack) {
  auto database = Database();
  ASSERT_EQ(database->Register(bundle_.string()), 0);
  const fs::path entry = EntryIn(env_["XDG_DATA_HOME"]);
  auto keys = ReadDesktopEntry(entry.string());
  ASSERT_TRUE(keys);
  EXPECT_EQ(keys->at("Exec"), QuoteExecArgument(executable_.string()));
  EXPECT_EQ(keys->at("X-Orvistelle-Bundle"), bundle_.string());
  EXPECT_EQ(keys->at("Type"), "Application");
  EXPECT_EQ(fs::status(entry).permissions() & fs::perms::all, fs::perms(0644));
  // Written through a temporary file that is gone afterwards.
  EXPECT_EQ(std::distance(fs::directory_iterator(entry.parent_path()), fs::directory_iterator()), 1);
  EXPECT_EQ(database->ApplicationsWithBundleIdentifier("net.tarnwix.orvistelle.fcp"),
            std::vector<std::string>{bundle_.string()});
  // The window's class is the bundle name, so that the desktop groups the window under this entry.
  EXPECT_EQ(keys->at("StartupWMClass"), "Orvistelle FCP Beauty");
  // Unregistering removes the entry once and is content when it is already gone.
  EXPECT_EQ(database->Unregister("net.tarnwix.orvistelle.fcp"), 0);
  EXPECT_FALSE(fs::exists(entry));
  EXPECT_EQ(database->Unregister("net.tarnwix.orvistelle.fcp"), 0);
  EXPECT_EQ(database->Unregister("../x"), -EINVAL);
}

TEST_F(XdgAppDatabaseTest, DataHomeDefaultsUnderTheHomeFolderWhenUnsetOrRelative) {
  env_["XDG_DATA_HOME"] = "relative/data";
  ASSERT_EQ(Database()->Register(bundle_.string()), 0);
  EXPECT_TRUE(fs::exists(EntryIn(fs::path(home_.Directory()) / ".local/share")));
}

TEST_F(XdgAppDatabaseTest, LookupReadsDataHomeThenEachDataDirInOrder) {
  const fs::path first = temp_.path() / "d1", second = temp_.path() / "d2", broken = temp_.path() / "d3";
  env_["XDG_DATA_DIRS"] = second.string() + "::relative:" + broken.string() + ":" + first.string();
  WriteFile(EntryIn(first), "[Desktop Entry]\nX-Orvistelle-Bundle=/b/first.app\n");
  WriteFile(EntryIn(second), "[Desktop Entry]\nX-Orvistelle-Bundle=/b/second\\sapp\n");
  WriteFile(EntryIn(broken), "X-Orvistelle-Bundle=/b/broken.app\n");
  WriteFile(EntryIn(env_["XDG_DATA_HOME"]), "[Desktop Entry]\nX-Orvistelle-Bundle=/b/home.app\n");
  EXPECT_EQ(Database()->ApplicationsWithBundleIdentifier("net.tarnwix.orvistelle.fcp"),
            (std::vector<std::string>{"/b/home.app", "/b/second app", "/b/first.app"}));
}

TEST_F(XdgAppDatabaseTest, FailuresGiveNegativeErrnoStatus) {
  WriteFile(temp_.path() / "file", "");
  env_["XDG_DATA_HOME"] = (temp_.path() / "file/data").string();
  EXPECT_EQ(Database()->Register(bundle_.string()), -ENOTDIR);
  EXPECT_EQ(Database()->Register((temp_.path() / "Elsewhere.app").string()), -ENOENT);
  fs::permissions(executable_, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(Database()->Register(bundle_.string()), -ENOENT);  // nothing the entry could start
}

TEST_F(XdgAppDatabaseTest, ToolGetsTheEntryAsArgumentsAndCountsAsDoneWhenItRan) {
  const fs::path tool = temp_.path() / "install-tool";
  WriteFile(tool, "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$0.args\"\ncp \"$3\" \"$0.entry\"\nexit 3\n");
  fs::permissions(tool, fs::perms::owner_all);
  env_["TMPDIR"] = (temp_.path() / "tmp").string();
  fs::create_directories(env_["TMPDIR"]);

  EXPECT_EQ(Database(tool.string())->RunRegistrationTool(bundle_.string()), 0);
  const std::string apps = (fs::path(env_["XDG_DATA_HOME"]) / "applications").string();
  std::istringstream args(ReadFile(tool.string() + ".args"));
  std::string flag, folder, file;
  std::getline(std::getline(std::getline(args, flag), folder), file);
  EXPECT_EQ(flag, "--dir");
  EXPECT_EQ(folder, apps);
  EXPECT_EQ(fs::path(file).filename(), "net.tarnwix.orvistelle.fcp.desktop");
  EXPECT_EQ(fs::path(file).parent_path().parent_path(), env_["TMPDIR"]);
  EXPECT_EQ(ParseDesktopEntry(ReadFile(tool.string() + ".entry"))->at("X-Orvistelle-Bundle"), bundle_.string());
  EXPECT_TRUE(fs::is_empty(env_["TMPDIR"]));
  EXPECT_EQ(Database("/nonexistent/tool")->RunRegistrationTool(bundle_.string()), -ENOENT);
}

// The system's own installer validates the entry, so this also proves the entry is one the desktop accepts.
TEST_F(XdgAppDatabaseTest, TheSystemInstallerAcceptsTheEntry) {
  const std::string tool = "/usr/bin/desktop-file-install";
  if (!fs::exists(tool)) GTEST_SKIP() << tool << " is not installed";
  env_["TMPDIR"] = temp_.path().string();
  WriteFile(bundle_ / "Contents/Resources/AppIcon.png", "");
  EXPECT_EQ(Database(tool)->RunRegistrationTool(bundle_.string()), 0);
  EXPECT_EQ(Database()->ApplicationsWithBundleIdentifier("net.tarnwix.orvistelle.fcp"),
            std::vector<std::string>{bundle_.string()});
}

}  // namespace
}  // namespace orvistelle::platform
