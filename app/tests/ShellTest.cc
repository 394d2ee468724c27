// The probes and the set-up run without widgets, also on read-only and full disks, with links leading out of the
// template and registration tools that cannot start.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "app/Probes.h"
#include "app/Setup.h"
#include "app/tests/ShellFixture.h"
#include "platform/testing/FaultInjection.h"

namespace orvistelle::shell::testing {
namespace {

namespace fault = platform::fault;

const std::string kDone = "quiet: Setup complete. Restart Final Cut Pro to see the effect.";
const std::string kInstallFailed = "error: Could not install template: ";

std::string RegistrationFailed(int error) {
  return "error: Registration failed (error " + std::to_string(-error) +
         "). Move the app to Applications and try again.";
}

// One press of the button as the window handles it: both halves of the run, then the hint with its tone.
std::string PressSetup() {
  SetupResult result = CompleteSetup(StartSetup(ProbeComponents()));
  Hint hint = SetupOutcomeHint(result, ProbeComponents().AllReady());
  return (hint.tone == Tone::Error ? "error: " : hint.tone == Tone::Warning ? "warning: " : "quiet: ") + hint.text;
}

using ProbeTest = ShellFixture;

TEST_F(ProbeTest, PlainFilesInPlaceOfFoldersCountAsAbsent) {
  fs::remove_all(Plugin());
  WriteFile(Plugin(), "not a bundle");
  WriteFile(InstalledTemplate(), "not a template");
  EXPECT_FALSE(HasXPCPlugin());
  EXPECT_FALSE(HasMotionTemplate());
}

TEST_F(ProbeTest, TemplateSearchPrefersResourcesThenPluginThenTheTreeAboveTheExecutable) {
  const fs::path pluginCopy = Plugin() / "Contents/Resources/MotionTemplates/Effects/Orvistelle.localized";
  fs::create_directories(pluginCopy);
  EXPECT_EQ(BundledTemplatePath(), BundledTemplate().string());
  fs::remove_all(BundledTemplate());
  EXPECT_EQ(BundledTemplatePath(), pluginCopy.string());
  // Without a PlugIns folder there is no plug-in and no plug-in copy: the first candidate is named, absent.
  bundleSeam_.ChangeLocation([](platform::BundleLocation& location) { location.builtInPlugInsPath.clear(); });
  EXPECT_EQ(XpcPluginPath(), std::nullopt);
  EXPECT_FALSE(HasXPCPlugin());
  EXPECT_EQ(BundledTemplatePath(), BundledTemplate().string());
  EXPECT_FALSE(HasBundledTemplate());
  // The executable's folder and its seven nearest ancestors are searched; the eighth is not.
  const fs::path tree = temp_.path() / "tree";
  bundleSeam_.ChangeLocation([&tree](platform::BundleLocation& location) {
    location.executablePath = (tree / "1/2/3/4/5/6/7/8/exe").string();
  });
  fs::create_directories(tree / kDevelopmentTemplate);
  EXPECT_FALSE(HasBundledTemplate());
  fs::create_directories(tree / "1" / kDevelopmentTemplate);
  EXPECT_EQ(BundledTemplatePath(), (tree / "1" / kDevelopmentTemplate).string());
  // The walk stops at the root.
  bundleSeam_.SetLocation({"/orvistelle-nowhere", "/orvistelle-nowhere/exe", "", ""});
  EXPECT_EQ(BundledTemplatePath(), "/orvistelle-nowhere/templates/Effects/Orvistelle.localized");
  bundleSeam_.SetLocation({});
  EXPECT_EQ(BundledTemplatePath(), "");
}

TEST_F(ProbeTest, HostProbeMatchesOnlyThisBundleWithLinksResolved) {
  const fs::path link = temp_.path() / "link.app";
  fs::create_directory_symlink(bundle_, link);
  database_.listed = {(temp_.path() / "Downloads/Orvistelle FCP Beauty.app").string()};
  EXPECT_FALSE(IsHostRegisteredForThisApp());
  database_.listed.push_back(link.string());
  EXPECT_TRUE(IsHostRegisteredForThisApp());
  EXPECT_EQ(database_.queried.back(), "net.tarnwix.orvistelle.fcp");
  // Started through the link while the database lists the real folder.
  database_.listed = {bundle_.string()};
  bundleSeam_.ChangeLocation([&link](platform::BundleLocation& location) { location.bundlePath = link.string(); });
  EXPECT_TRUE(IsHostRegisteredForThisApp());
}

class TemplateInstallTest : public ShellFixture {
 protected:
  TemplateInstallTest() { SetHostRegistered(true); }
  fs::path Movies() { return fs::path(home_.Directory()) / "Movies"; }
};

TEST_F(TemplateInstallTest, AFileWhereTheFolderBelongsIsReplacedAndNothingIsLeftBeside) {
  WriteFile(InstalledTemplate(), "a file where the folder belongs");
  EXPECT_EQ(PressSetup(), kDone);
  EXPECT_EQ(ReadFile(InstalledTemplate() / "Orvistelle Beauty/Orvistelle Beauty.moef"), "<ozml/>");
  EXPECT_EQ(std::distance(fs::directory_iterator(InstalledTemplate().parent_path()), fs::directory_iterator()), 1);
}

// A failed install says why and leaves the home as it was: no half copy, no lost previous template.
// A set-up killed halfway leaves its hidden copies behind; the next one removes them, and only them. The installed
// folders and files keep the modes that they have in the bundle.
TEST_F(TemplateInstallTest, RemovesWhatAKilledSetUpLeftAndKeepsTheSourceModes) {
  SetInstalledTemplate(true);
  const std::string name = InstalledTemplate().filename().string();
  const fs::path parent = InstalledTemplate().parent_path();
  WriteFile(parent / ("." + name + ".new-a1B2c3") / "half.moef", "<oz");
  WriteFile(parent / ("." + name + ".old-d4E5f6") / "marker.txt", "older");
  WriteFile(parent / ".unrelated", "someone else's");
  const struct {
    fs::path path;
    fs::perms mode;
  } modes[] = {{"", fs::perms(0755)}, {"Orvistelle Beauty", fs::perms(0750)},
               {"Orvistelle Beauty/Orvistelle Beauty.moef", fs::perms(0640)}};
  for (const auto& row : modes) fs::permissions(BundledTemplate() / row.path, row.mode);
  EXPECT_EQ(PressSetup(), kDone);
  std::vector<std::string> hidden;
  for (const auto& entry : fs::directory_iterator(parent)) {
    if (entry.path().filename().string().front() == '.') hidden.push_back(entry.path().filename().string());
  }
  EXPECT_EQ(hidden, std::vector<std::string>{".unrelated"});
  for (const auto& row : modes) {
    EXPECT_EQ(fs::status(InstalledTemplate() / row.path).permissions(), row.mode) << row.path;
  }
}

TEST_F(TemplateInstallTest, FailuresAreReportedAndChangeNothing) {
  using Body = std::function<std::string()>;
  const struct {
    const char* what;
    std::function<void()> arrange;
    std::function<std::optional<std::string>(const Body&)> run;
    std::string reason;  // "": any non-empty one
    bool firstInstallToo = true;  // false where the copy fails only after making the folders it goes into
  } cases[] = {
      {"a file type no copy can take", [this] { mkfifo((BundledTemplate() / "pipe").c_str(), 0600); },
       [](const Body& press) { return press(); }, "", false},
      // The library's copy reports a short write as an input/output error rather than the disk's own reason.
      {"a full disk", [this] { WriteFile(BundledTemplate() / "Large.png", std::string(64 * 1024, 'p')); },
       [](const Body& press) { return fault::WithFileSizeLimit(16 * 1024, press); }, "", false},
      {"a file where Movies belongs", [this] {
         fs::remove_all(Movies());
         WriteFile(Movies(), "file");
       },
       [](const Body& press) { return press(); }, std::strerror(ENOTDIR)},
      // Last: where no read-only folder can be had, the rest of the test is skipped.
      {"a read-only Movies folder", [] {},
       [this](const Body& press) { return fault::WithReadOnlyFolder(Movies(), press); },
       std::strerror(geteuid() == 0 ? EROFS : EACCES)},
  };
  for (const auto& c : cases) {
    for (bool installed : {true, false}) {
      if (!installed && !c.firstInstallToo) continue;
      SCOPED_TRACE(std::string(c.what) + (installed ? ", replacing a template" : ", first install"));
      fs::remove_all(Movies());
      fs::create_directories(Movies());
      SetInstalledTemplate(installed, "previous");
      c.arrange();
      const auto before = fault::Snapshot(home_.Directory());
      std::optional<std::string> hint = c.run(PressSetup);
      if (!hint) GTEST_SKIP() << "no read-only folder can be had here: no mount namespace for root";
      EXPECT_TRUE(hint->starts_with(kInstallFailed) && hint->size() > kInstallFailed.size()) << *hint;
      if (!c.reason.empty()) EXPECT_EQ(*hint, kInstallFailed + c.reason);
      EXPECT_EQ(fault::Snapshot(home_.Directory()), before);
    }
    fs::remove(BundledTemplate() / "pipe");
    fs::remove(BundledTemplate() / "Large.png");
  }
}

// Links in the bundled template that lead out of it stay links, and nothing outside the destination changes, even
// where the old install holds a link in place of a folder the copy brings, or is itself a link.
TEST_F(TemplateInstallTest, LinksPointingOutsideStayLinksAndNothingOutsideIsTouched) {
  const fs::path outside = temp_.path() / "outside";
  WriteFile(outside / "Orvistelle Beauty" / "Mine.moef", "the user's own");
  WriteFile(outside / "secret.txt", "secret");
  const std::map<std::string, fs::path> links{{"to-folder", outside},
                                              {"to-file", outside / "secret.txt"},
                                              {"relative", "../../../../../../outside/secret.txt"},
                                              {"dangling", outside / "missing"}};
  for (const auto& [name, target] : links) fs::create_symlink(target, BundledTemplate() / name);
  fs::create_directories(InstalledTemplate());
  fs::create_directory_symlink(outside / "Orvistelle Beauty", InstalledTemplate() / "Orvistelle Beauty");
  const auto outsideBefore = fault::Snapshot(outside);
  const auto bundleBefore = fault::Snapshot(bundle_);

  for (const char* press : {"install over the linked folder", "replace the copy holding links", "over a link"}) {
    SCOPED_TRACE(press);
    if (std::string(press) == "over a link") {
      fs::remove_all(InstalledTemplate());
      fs::create_directory_symlink(outside, InstalledTemplate());
    }
    EXPECT_EQ(PressSetup(), kDone);
    for (const auto& [name, target] : links) EXPECT_EQ(fs::read_symlink(InstalledTemplate() / name), target);
    EXPECT_FALSE(fs::is_symlink(InstalledTemplate()));
    EXPECT_FALSE(fs::is_symlink(InstalledTemplate() / "Orvistelle Beauty"));
    EXPECT_EQ(ReadFile(InstalledTemplate() / "Orvistelle Beauty" / "Orvistelle Beauty.moef"), "<ozml/>");
    EXPECT_EQ(fault::Snapshot(outside), outsideBefore);
    EXPECT_EQ(fault::Snapshot(bundle_), bundleBefore);
  }
}

// The real desktop database, whose own registration fails, so that the fallback tool has to run: a tool that cannot
// start keeps the failure, the template is skipped, and a full disk leaves the previous entry whole.
using RegistrationTest = ShellFixture;

TEST_F(RegistrationTest, FailuresAreReportedAndChangeNothing) {
  MakeLaunchable(bundle_, bundleSeam_.Main().executablePath);
  const fs::path tool = temp_.path() / "registration-tool", data = temp_.path() / "data";
  WriteFile(temp_.path() / "a-file", "");
  Environment environment{{"XDG_DATA_DIRS", (temp_.path() / "none").string()},
                          {"TMPDIR", (temp_.path() / "tmp").string()}};
  fs::create_directories(environment["TMPDIR"]);
  const struct {
    const char* what;
    std::function<void()> makeTool;
    rlim_t fileSizeLimit;  // 0: none
    int error;
  } cases[] = {
      {"missing tool", [] {}, 0, ENOTDIR},
      {"tool not executable", [&tool] { WriteFile(tool, "#!/bin/sh\nexit 0\n"); }, 0, ENOTDIR},
      {"tool a folder", [&tool] { fs::create_directories(tool); }, 0, ENOTDIR},
      {"full disk", [] {}, 64, EFBIG},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    fs::remove_all(tool);
    c.makeTool();
    WriteFile(data / "applications/net.tarnwix.orvistelle.fcp.desktop",
              "[Desktop Entry]\nType=Application\nX-Orvistelle-Bundle=/opt/Old.app\n");
    environment["XDG_DATA_HOME"] = (c.fileSizeLimit ? data : temp_.path() / "a-file/data").string();
    auto database = XdgDatabase(environment, tool);
    platform::ScopedSeam<platform::AppDatabase> seam(database.get());
    const auto before = fault::Snapshot(temp_.path());
    auto hint = c.fileSizeLimit ? fault::WithFileSizeLimit(c.fileSizeLimit, PressSetup) : PressSetup();
    EXPECT_EQ(hint, RegistrationFailed(c.error));
    EXPECT_EQ(fault::Snapshot(temp_.path()), before);
  }
}

}  // namespace
}  // namespace orvistelle::shell::testing
