#include <sstream>

#include "app/tests/ShellFixture.h"
#include "platform/linux/DesktopEntry.h"

namespace orvistelle::platform {
namespace {

using namespace shell::testing;
using Keys = std::map<std::string, std::string>;

TEST(DesktopEntry, ReadsTheMainGroupOrRejectsTheText) {
  const std::pair<std::string, std::optional<Keys>> cases[] = {
      {"# comment\n[Desktop Entry]\nName=App\nName[de_DE@euro]=Anw\n\nExec = \"a b\"\n[Other]\nName=x\n",
       Keys{{"Name", "App"}, {"Name[de_DE@euro]", "Anw"}, {"Exec", "\"a b\""}}},
      {"[Desktop Entry]\r\nKey=\\sa\\\\b\\nc\\;d\\\r\nKey=second\n", Keys{{"Key", " a\\b\nc\\;d\\"}}},
      {"Name=before any group\n[Desktop Entry]\n", {}}, {"[Other]\n[Desktop Entry]\nName=x\n", {}},
      {"[Desktop Entry]\n[Desktop Entry]\n", {}},       {"[Desktop Entry]\njust words\n", {}},
      {"[Desktop Entry]\nBad_Key=x\n", {}},             {"[Desktop Entry]\nName[]=x\n", {}},
      {"[Desktop Entry\n", {}},                         {"", {}}};
  for (const auto& [text, keys] : cases) EXPECT_EQ(ParseDesktopEntry(text), keys) << text;
  // Exec arguments survive every reserved character.
  EXPECT_EQ(EscapeDesktopValue(QuoteExecArgument("/A b/$x`\"\\%.app")), R"("/A b/\\$x\\`\\"\\\\%%.app")");
  EXPECT_EQ(EscapeDesktopValue(" a\tb\nc\r"), R"(\sa\tb\nc\r)");
}

class XdgAppDatabaseTest : public ShellFixture {
 protected:
  XdgAppDatabaseTest() { MakeLaunchable(bundle_, executable_); }
  std::unique_ptr<AppDatabase> Database(const fs::path& tool = "/nonexistent/tool") {
    return XdgDatabase(environment_, tool);
  }
  static fs::path EntryIn(const fs::path& data) { return data / "applications/net.tarnwix.orvistelle.fcp.desktop"; }
  std::vector<std::string> Lookup() {
    return Database()->ApplicationsWithBundleIdentifier("net.tarnwix.orvistelle.fcp");
  }

  fs::path executable_ = bundle_ / "Contents/MacOS/Orvistelle FCP Beauty";
  Environment environment_{{"XDG_DATA_HOME", (temp_.path() / "data").string()},
                           {"XDG_DATA_DIRS", (temp_.path() / "none").string()},
                           {"TMPDIR", (temp_.path() / "tmp").string()}};
};

TEST_F(XdgAppDatabaseTest, RegisterWritesAnEntryTheLookupReadsBack) {
  ASSERT_EQ(Database()->Register(bundle_.string()), 0);
  const fs::path entry = EntryIn(environment_["XDG_DATA_HOME"]);
  auto keys = ReadDesktopEntry(entry.string());
  ASSERT_TRUE(keys);
  EXPECT_EQ(keys->at("Exec"), QuoteExecArgument(executable_.string()));
  EXPECT_EQ(keys->at("X-Orvistelle-Bundle"), bundle_.string());
  EXPECT_EQ(keys->at("Type"), "Application");
  EXPECT_EQ(fs::status(entry).permissions() & fs::perms::all, fs::perms(0644));
  // Written through a temporary file that is gone afterwards.
  EXPECT_EQ(std::distance(fs::directory_iterator(entry.parent_path()), fs::directory_iterator()), 1);
  EXPECT_EQ(Lookup(), std::vector<std::string>{bundle_.string()});
  // The window's class is the bundle name, so that the desktop groups the window under this entry.
  EXPECT_EQ(keys->at("StartupWMClass"), "Orvistelle FCP Beauty");
  // Unregistering removes the entry once and is content when it is already gone.
  EXPECT_EQ(Database()->Unregister("net.tarnwix.orvistelle.fcp"), 0);
  EXPECT_FALSE(fs::exists(entry));
  EXPECT_EQ(Database()->Unregister("net.tarnwix.orvistelle.fcp"), 0);
  EXPECT_EQ(Database()->Unregister("../x"), -EINVAL);
  // Unset or relative, the data home is the one under the home folder.
  environment_["XDG_DATA_HOME"] = "relative/data";
  ASSERT_EQ(Database()->Register(bundle_.string()), 0);
  EXPECT_TRUE(fs::exists(EntryIn(fs::path(home_.Directory()) / ".local/share")));
}

TEST_F(XdgAppDatabaseTest, LookupReadsDataHomeThenEachDataDirInOrder) {
  const fs::path first = temp_.path() / "d1", second = temp_.path() / "d2", broken = temp_.path() / "d3";
  environment_["XDG_DATA_DIRS"] = second.string() + "::relative:" + broken.string() + ":" + first.string();
  WriteFile(EntryIn(first), "[Desktop Entry]\nX-Orvistelle-Bundle=/b/first.app\n");
  WriteFile(EntryIn(second), "[Desktop Entry]\nX-Orvistelle-Bundle=/b/second\\sapp\n");
  WriteFile(EntryIn(broken), "X-Orvistelle-Bundle=/b/broken.app\n");
  WriteFile(EntryIn(environment_["XDG_DATA_HOME"]), "[Desktop Entry]\nX-Orvistelle-Bundle=/b/home.app\n");
  EXPECT_EQ(Lookup(), (std::vector<std::string>{"/b/home.app", "/b/second app", "/b/first.app"}));
}

TEST_F(XdgAppDatabaseTest, FailuresGiveNegativeErrnoStatus) {
  EXPECT_EQ(Database()->Register((temp_.path() / "Elsewhere.app").string()), -ENOENT);
  EXPECT_EQ(Database()->RunRegistrationTool(bundle_.string()), -ENOENT);  // no such tool
  fs::permissions(executable_, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(Database()->Register(bundle_.string()), -ENOENT);  // nothing the entry could start
}

TEST_F(XdgAppDatabaseTest, ToolGetsTheEntryAsArgumentsAndCountsAsDoneWhenItRan) {
  const fs::path tool = temp_.path() / "install-tool";
  WriteFile(tool, "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$0.args\"\ncp \"$3\" \"$0.entry\"\nexit 3\n");
  fs::permissions(tool, fs::perms::owner_all);
  fs::create_directories(environment_["TMPDIR"]);
  EXPECT_EQ(Database(tool)->RunRegistrationTool(bundle_.string()), 0);
  std::istringstream args(ReadFile(tool.string() + ".args"));
  std::string flag, folder, file;
  std::getline(std::getline(std::getline(args, flag), folder), file);
  EXPECT_EQ(flag, "--dir");
  EXPECT_EQ(folder, (fs::path(environment_["XDG_DATA_HOME"]) / "applications").string());
  EXPECT_EQ(fs::path(file).filename(), "net.tarnwix.orvistelle.fcp.desktop");
  EXPECT_EQ(fs::path(file).parent_path().parent_path(), environment_["TMPDIR"]);
  EXPECT_EQ(ParseDesktopEntry(ReadFile(tool.string() + ".entry"))->at("X-Orvistelle-Bundle"), bundle_.string());
  EXPECT_TRUE(fs::is_empty(environment_["TMPDIR"]));
}

// The system's own installer validates the entry, so this also proves the entry is one the desktop accepts.
TEST_F(XdgAppDatabaseTest, TheSystemInstallerAcceptsTheEntry) {
  const fs::path tool = "/usr/bin/desktop-file-install";
  if (!fs::exists(tool)) GTEST_SKIP() << tool << " is not installed";
  environment_["TMPDIR"] = temp_.path().string();
  WriteFile(bundle_ / "Contents/Resources/AppIcon.png", "");
  EXPECT_EQ(Database(tool)->RunRegistrationTool(bundle_.string()), 0);
  EXPECT_EQ(Lookup(), std::vector<std::string>{bundle_.string()});
}

}  // namespace
}  // namespace orvistelle::platform
