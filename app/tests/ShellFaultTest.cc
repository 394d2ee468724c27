#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "app/Probes.h"
#include "app/Setup.h"
#include "app/tests/ShellFixture.h"
#include "platform/linux/AppDatabase_linux.h"
#include "platform/testing/FaultInjection.h"

namespace orvistelle::shell::testing {
namespace {

namespace fault = platform::fault;

const char kDone[] = "quiet: Setup complete. Restart Final Cut Pro to see the effect.";

// One press of the button as the window handles it: both halves of the run, then the hint with its tone.
std::string PressSetup() {
  SetupResult result = CompleteSetup(StartSetup(ProbeComponents()));
  Hint hint = SetupOutcomeHint(result, ProbeComponents().AllReady());
  const char* tone = hint.tone == Tone::Error ? "error: " : hint.tone == Tone::Warning ? "warning: " : "quiet: ";
  return tone + hint.text;
}

class FaultTemplateInstall : public ShellFixture {
 protected:
  FaultTemplateInstall() { SetHostRegistered(true); }
  fs::path Movies() { return fs::path(home_.Directory()) / "Movies"; }
};

TEST_F(FaultTemplateInstall, ReadOnlyMoviesFolderIsReportedAndNothingIsHalfInstalled) {
  const std::string reason = std::strerror(geteuid() == 0 ? EROFS : EACCES);
  for (bool installed : {false, true}) {
    SCOPED_TRACE(installed ? "replacing a template" : "first install");
    fs::create_directories(Movies());
    SetInstalledTemplate(installed, "previous");
    const auto before = fault::Snapshot(Movies());
    std::optional<std::string> hint = fault::WithReadOnlyFolder(Movies(), PressSetup);
    if (!hint) GTEST_SKIP() << "no read-only folder can be had here: no mount namespace for root";
    EXPECT_EQ(*hint, "error: Could not install template: " + reason);
    EXPECT_EQ(fault::Snapshot(Movies()), before);
  }
}

TEST_F(FaultTemplateInstall, FullDiskKeepsThePreviousTemplate) {
  WriteFile(BundledTemplate() / "Orvistelle Beauty" / "Large.png", std::string(64 * 1024, 'p'));
  SetInstalledTemplate(true, "previous");
  const auto before = fault::Snapshot(home_.Directory());
  std::optional<std::string> hint = fault::WithFileSizeLimit(16 * 1024, PressSetup);
  ASSERT_TRUE(hint);
  // The library's copy reports a short write as an input/output error rather than the disk's own reason.
  EXPECT_TRUE(hint->starts_with("error: Could not install template: ")) << *hint;
  EXPECT_GT(hint->size(), std::strlen("error: Could not install template: "));
  EXPECT_EQ(fault::Snapshot(home_.Directory()), before);
}

// Links in the bundled template that lead out of it stay links, and nothing outside the destination changes, even
// where the old install holds a link in place of a folder the copy brings.
TEST_F(FaultTemplateInstall, LinksPointingOutsideStayLinksAndNothingOutsideIsTouched) {
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

  for (const char* press : {"install over the linked folder", "replace the copy holding links"}) {
    SCOPED_TRACE(press);
    EXPECT_EQ(PressSetup(), kDone);
    for (const auto& [name, target] : links) EXPECT_EQ(fs::read_symlink(InstalledTemplate() / name), target);
    EXPECT_FALSE(fs::is_symlink(InstalledTemplate() / "Orvistelle Beauty"));
    EXPECT_EQ(ReadFile(InstalledTemplate() / "Orvistelle Beauty" / "Orvistelle Beauty.moef"), "<ozml/>");
    EXPECT_EQ(fault::Snapshot(outside), outsideBefore);
    EXPECT_EQ(fault::Snapshot(bundle_), bundleBefore);
  }
}

// The real desktop database, set up so that its own registration fails and the fallback tool has to run.
class FaultRegistration : public ShellFixture {
 protected:
  FaultRegistration() {
    WriteFile(bundle_ / "Contents/Info.plist",
              "<plist><dict><key>CFBundleIdentifier</key><string>net.tarnwix.orvistelle.fcp</string>"
              "<key>CFBundleExecutable</key><string>Orvistelle FCP Beauty</string></dict></plist>");
    fs::permissions(bundleSeam_.Main().executablePath, fs::perms::owner_all);
    env_["XDG_DATA_HOME"] = (temp_.path() / "data").string();
    env_["XDG_DATA_DIRS"] = (temp_.path() / "none").string();
    env_["TMPDIR"] = (temp_.path() / "tmp").string();
    fs::create_directories(env_["TMPDIR"]);
  }

  void UseDatabase(const fs::path& tool) {
    xdgDatabase_ = platform::MakeXdgAppDatabase({[this](const char* name) -> const char* {
                                                auto found = env_.find(name);
                                                return found == env_.end() ? nullptr : found->second.c_str();
                                              },
                                              tool.string()});
    platform::Seam<platform::AppDatabase>::Override(xdgDatabase_.get());
  }

  std::map<std::string, std::string> env_;
  std::unique_ptr<platform::AppDatabase> xdgDatabase_;
};

struct BrokenTool {
  const char* name;
  std::function<void(const fs::path&)> make;
};

void PrintTo(const BrokenTool& tool, std::ostream* out) { *out << tool.name; }

class FaultRegistrationTool : public FaultRegistration, public ::testing::WithParamInterface<BrokenTool> {};

TEST_P(FaultRegistrationTool, ToolThatCannotStartKeepsTheFailureAndSkipsTheTemplate) {
  const fs::path tool = temp_.path() / "registration-tool";
  GetParam().make(tool);
  WriteFile(temp_.path() / "a-file", "");
  env_["XDG_DATA_HOME"] = (temp_.path() / "a-file" / "data").string();
  UseDatabase(tool);
  const auto before = fault::Snapshot(temp_.path());
  EXPECT_EQ(PressSetup(), "error: Registration failed (error " + std::to_string(-ENOTDIR) +
                              "). Move the app to Applications and try again.");
  EXPECT_EQ(fault::Snapshot(temp_.path()), before);
}

INSTANTIATE_TEST_SUITE_P(
    FaultTools, FaultRegistrationTool,
    ::testing::Values(BrokenTool{"missing", [](const fs::path&) {}},
                      BrokenTool{"not executable",
                                 [](const fs::path& tool) {
                                   WriteFile(tool, "#!/bin/sh\nexit 0\n");
                                   fs::permissions(tool, fs::perms::owner_read | fs::perms::owner_write);
                                 }},
                      BrokenTool{"a folder", [](const fs::path& tool) { fs::create_directories(tool); }}));

// The entry is written beside its place and renamed over it, so a full disk leaves the previous entry whole.
TEST_F(FaultRegistration, FullDiskLeavesThePreviousEntryWhole) {
  const fs::path applications = fs::path(env_["XDG_DATA_HOME"]) / "applications";
  WriteFile(applications / "net.tarnwix.orvistelle.fcp.desktop",
            "[Desktop Entry]\nType=Application\nX-Orvistelle-Bundle=/opt/Old.app\n");
  UseDatabase(temp_.path() / "missing-tool");
  const auto before = fault::Snapshot(temp_.path());
  std::optional<std::string> hint = fault::WithFileSizeLimit(64, PressSetup);
  ASSERT_TRUE(hint);
  EXPECT_EQ(*hint, "error: Registration failed (error " + std::to_string(-EFBIG) +
                       "). Move the app to Applications and try again.");
  EXPECT_EQ(fault::Snapshot(temp_.path()), before);
}

}  // namespace
}  // namespace orvistelle::shell::testing
