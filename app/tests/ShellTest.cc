// The probes and the set-up run without widgets, also on read-only and full disks.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <set>

#include "app/Probes.h"
#include "app/Setup.h"
#include "app/tests/ShellFixture.h"
#include "platform/testing/FaultInjection.h"

// Stands in for the C library's rename, which the standard library's moves call, so that the move of a staged copy
// into place can fail after the previous template has already been moved aside.
static std::atomic<bool> failStagedMove{false};

extern "C" int rename(const char* from, const char* to) {
  if (failStagedMove && std::strstr(from, ".new-") != nullptr) return errno = EIO, -1;
  return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

namespace orvistelle::shell::testing {
namespace {

namespace fault = platform::fault;

const std::string kDone = "quiet: Setup complete. Restart Final Cut Pro to see the effect.";
const std::string kInstallFailed = "error: Could not install template: ";

// One press of the button as the window handles it: both halves of the run, then the hint with its tone.
std::string PressSetup() {
  SetupResult result = CompleteSetup(StartSetup(ProbeComponents()));
  Hint hint = SetupOutcomeHint(result, ProbeComponents().AllReady());
  return (hint.tone == Tone::Error ? "error: " : hint.tone == Tone::Warning ? "warning: " : "quiet: ") + hint.text;
}

using SetupTest = ShellFixture;

// A run registers unless only the template is missing, copies the template unless only the host is, and says how it
// went; the template is then the fresh copy ("new"), the one found before ("old") or none.
TEST_F(SetupTest, SetupMendsWhatIsMissingAndSaysHowItWent) {
  const struct {
    const char* what;
    bool host = false, templ = false;
    int registerStatus = 0, toolStatus = 0;
    bool listed = true, bundled = true;
    std::vector<std::string> calls = {"register"};
    const char* installed;
    std::string hint;
  } cases[] = {
      {.what = "only host missing", .templ = true, .installed = "old", .hint = kDone},
      {.what = "tool takes over", .registerStatus = -13, .calls = {"register", "tool"}, .installed = "new",
       .hint = kDone},
      {.what = "tool fails too", .registerStatus = -2, .toolStatus = -2, .calls = {"register", "tool"}, .installed = "",
       .hint = "error: Registration failed (error -2). Move the app to Applications and try again."},
      {.what = "the tool, not listed yet", .registerStatus = -13, .listed = false, .calls = {"register", "tool"},
       .installed = "new", .hint = "warning: Registration sent. Try again in a moment if status stays unchanged."},
      {.what = "no bundled template", .bundled = false, .installed = "",
       .hint = kInstallFailed + "Template files are missing from this app. Re-download the package."}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    SetHostRegistered(c.host), SetInstalledTemplate(c.templ), database_.calls.clear();
    std::tie(database_.registerStatus, database_.toolStatus, database_.listWhenRegistered) =
        std::tuple(c.registerStatus, c.toolStatus, c.listed);
    if (!c.bundled) fs::remove_all(BundledTemplate());
    EXPECT_EQ(PressSetup(), c.hint);
    EXPECT_EQ(database_.calls, c.calls);
    EXPECT_EQ(fs::exists(InstalledTemplate() / "marker.txt") ? "old" : fs::exists(InstalledTemplate()) ? "new" : "",
              std::string(c.installed));
  }
  // Without a bundled copy, a development build takes the source tree's, found above its executable.
  WriteFile(bundle_.parent_path() / kDevelopmentTemplate / "Orvistelle Beauty.moef", "<ozml/>");
  EXPECT_EQ(BundledTemplatePath(), (bundle_.parent_path() / kDevelopmentTemplate).string());
}

// A set-up killed halfway leaves its hidden copies behind; the next one removes them, and only them, and replaces
// even a file where the folder belongs. The installed folders and files keep the modes that they have in the bundle.
TEST_F(SetupTest, RemovesWhatAKilledSetUpLeftAndKeepsTheSourceModes) {
  WriteFile(InstalledTemplate(), "a file where the folder belongs");
  const std::string name = InstalledTemplate().filename().string();
  const fs::path parent = InstalledTemplate().parent_path();
  WriteFile(parent / ("." + name + ".new-a1B2c3") / "half.moef", "<oz");
  WriteFile(parent / ("." + name + ".old-d4E5f6") / "marker.txt", "older");
  WriteFile(parent / ".unrelated", "someone else's");
  const std::pair<fs::path, fs::perms> modes[] = {{"", fs::perms(0755)}, {"Orvistelle Beauty", fs::perms(0750)},
                                                  {"Orvistelle Beauty/Orvistelle Beauty.moef", fs::perms(0640)}};
  for (const auto& [path, mode] : modes) fs::permissions(BundledTemplate() / path, mode);
  EXPECT_EQ(PressSetup(), kDone);
  std::set<std::string> beside;
  for (const auto& entry : fs::directory_iterator(parent)) beside.insert(entry.path().filename().string());
  EXPECT_EQ(beside, (std::set<std::string>{".unrelated", name}));
  for (const auto& [path, mode] : modes) EXPECT_EQ(fs::status(InstalledTemplate() / path).permissions(), mode) << path;
  EXPECT_EQ(ReadWholeFile(InstalledTemplate() / "Orvistelle Beauty/Orvistelle Beauty.moef"), "<ozml/>");
}

// A failed install says why and leaves the home as it was: no half copy, no lost previous template.
TEST_F(SetupTest, FailuresAreReportedAndChangeNothing) {
  using Body = std::function<std::string()>;
  const struct {
    const char* what;
    std::function<void()> arrange = [] {};
    std::function<std::optional<std::string>(const Body&)> run = [](const Body& press) { return press(); };
    std::string reason{};  // "": any non-empty one
  } cases[] = {
      {.what = "a file type no copy can take",
       .arrange = [this] { mkfifo((BundledTemplate() / "pipe").c_str(), 0600); }},
      // The library's copy reports a short write as an input/output error rather than the disk's own reason.
      {.what = "a full disk",
       .arrange = [this] { WriteFile(BundledTemplate() / "Large.png", std::string(64 * 1024, 'p')); },
       .run = [](const Body& press) { return fault::WithFileSizeLimit(16 * 1024, press); }},
      {.what = "a copy that cannot be moved into place", .arrange = [] { failStagedMove = true; },
       .reason = std::strerror(EIO)},
      // Last: where no read-only folder can be had, the rest of the test is skipped.
      {.what = "a read-only videos folder",
       .run = [this](auto& press) { return fault::WithReadOnlyFolder(fs::path(home_.Directory()) / "Videos", press); },
       .reason = std::strerror(geteuid() == 0 ? EROFS : EACCES)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    SetHostRegistered(true);
    SetInstalledTemplate(true);
    c.arrange();
    const auto before = fault::Snapshot(home_.Directory());
    std::optional<std::string> hint = c.run(PressSetup);
    if (!hint) GTEST_SKIP() << "no read-only folder can be had here: no mount namespace for root";
    EXPECT_TRUE(hint->starts_with(kInstallFailed)) << *hint;
    EXPECT_GT(hint->size(), kInstallFailed.size());
    if (!c.reason.empty()) { EXPECT_EQ(*hint, kInstallFailed + c.reason); }
    EXPECT_EQ(fault::Snapshot(home_.Directory()), before);
    fs::remove(BundledTemplate() / "pipe");
    failStagedMove = false;
  }
}

}  // namespace
}  // namespace orvistelle::shell::testing
