// orvistelle-fcp run as a child process, with a home, state and data folder of its own, against the built bundle.
#include <nlohmann/json.hpp>

#include "app/Probes.h"
#include "app/tests/ShellFixture.h"

namespace orvistelle::shell::testing {
namespace {

class SupportCommand : public ::testing::Test {
 protected:
  platform::testing::ChildRun Run(std::vector<std::string> words) {
    words.insert(words.begin(), ORVISTELLE_TEST_CLI);
    std::vector<std::string> environment = {
        "HOME=" + Home().string(), "ORVISTELLE_DEV_HOME=" + Home().string(), "LANGUAGE=en",
        "XDG_STATE_HOME=" + (root() / "state").string(), "XDG_DATA_HOME=" + (root() / "data").string(),
        "XDG_DATA_DIRS=" + (root() / "d2").string() + "::relative:" + (root() / "d1").string()};
    for (const char* inherited : {"PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
      if (const char* value = std::getenv(inherited)) environment.push_back(std::string(inherited) + "=" + value);
    }
    return platform::testing::RunChild(std::move(words), std::move(environment), root(), std::chrono::seconds(60));
  }
  const fs::path& root() const { return temp_.path(); }
  fs::path Home() const { return root() / "home"; }
  fs::path EntryIn(const char* data) { return root() / data / "applications/net.tarnwix.orvistelle.fcp.desktop"; }

  platform::testing::TempDir temp_;
};

TEST_F(SupportCommand, ExitCodeAndWhereTheTextGoes) {
  static const std::string usage = "Usage: orvistelle-fcp [--bundle PATH] COMMAND\n", missing = "/nonexistent/Some.app";
  const struct {
    std::vector<std::string> args;
    int exit = 2;
    std::string out{}, err = usage;  // the start of standard output and error
  } cases[] = {
      {.args = {"--version"}, .exit = 0, .out = std::string("orvistelle-fcp ") + config::kVersion + "\n", .err = ""},
      {.args = {"--help"}, .exit = 0, .out = usage, .err = ""}, {.args = {}}, {.args = {"frobnicate"}},
      {.args = {"reset", "--json"}}, {.args = {"--help", "status"}}, {.args = {"status", "--json", "--json"}},
      {.args = {"--bundle"}},
      {.args = {"--bundle", missing, "status"}, .exit = 1,
       .err = "orvistelle-fcp: no application bundle at /nonexistent/"},
      // Were the refusal broken, a missing bundle still stops the child before it reaches the real support folder.
      {.args = {"--bundle", missing, "reset"}, .exit = 1,
       .err = "orvistelle-fcp: reset removes the installed template"},
      {.args = {"status"}, .exit = 1, .out = "Plugin host: Needed\nEffect service: Ready\nMotion template: Needed\n",
       .err = ""}};
  for (const auto& c : cases) {
    const auto outcome = Run(c.args);
    EXPECT_EQ(std::tuple(outcome.exitCode, outcome.out.substr(0, c.out.size()), outcome.err.substr(0, c.err.size())),
              std::tuple(c.exit, c.out, c.err)) << ::testing::PrintToString(c.args);
  }
}

// Entries of other copies lie in the data folders, which the lookup reads after the user's own, in their order.
TEST_F(SupportCommand, SetUpThenDiagnoseAsAUserWould) {
  WriteFile(EntryIn("d1"), "[Desktop Entry]\nX-Orvistelle-Bundle=/b/first.app\n");
  WriteFile(EntryIn("d2"), "[Desktop Entry]\nX-Orvistelle-Bundle=/b/second\\sapp\n");
  // An earlier version installed the template under ~/Movies: it moves, whole, and set-up then keeps it.
  const fs::path bundle = ORVISTELLE_TEST_APP_BUNDLE;
  fs::create_directories(Home() / "Movies" / kInstalledTemplate);
  fs::copy(bundle / "Contents/Resources" / kBundledTemplate, Home() / "Movies" / kInstalledTemplate,
           fs::copy_options::recursive);
  const auto before = Run({"status", "--json"});
  const nlohmann::json status = nlohmann::json::parse(before.out, nullptr, false);
  const nlohmann::json moved = {{"ready", true}, {"path", (Home() / "Videos" / kInstalledTemplate).string()}};
  EXPECT_EQ(std::pair(before.exitCode, status["template"]), std::pair(1, moved));
  EXPECT_EQ(Run({"setup"}).out, "Setup complete. Restart Final Cut Pro to see the effect.\n");
  EXPECT_EQ(Run({"status"}).exitCode, 0);
  // The entry the bundle carries, with the texts and themed icon of the installed one, completed for this copy.
  const std::string carried = ReadWholeFile(bundle / "Contents/Resources/net.tarnwix.orvistelle.fcp.desktop");
  EXPECT_EQ(ReadWholeFile(EntryIn("data")), carried + "Exec=\"" + (bundle / "Contents/MacOS/").string() +
                                                "Orvistelle FCP Beauty\"\nX-Orvistelle-Bundle=" + bundle.string() +
                                                "\n");
  for (const char* line :
       {"\nComment[de]=", "\nIcon=net.tarnwix.orvistelle.fcp\n", "\nStartupWMClass=Orvistelle FCP Beauty\n"})
    EXPECT_NE(carried.find(line), std::string::npos) << line << " not in:\n" << carried;
  const auto report = Run({"diagnose"});
  const std::string log = (root() / "state/orvistelle/orvistelle.log").string();
  for (const std::string& line : std::vector<std::string>{
           "\nApp version: " + std::string(config::kVersion) + "\n", "\nLog file: " + log + "\n",
           "\nTemplate: same as this app's copy\n", "\nBundled template: " + (bundle / "Contents/Resources/").string(),
           "\nRegistered bundles: " + bundle.string() + "; /b/second app; /b/first.app\n", "Z set-up: register ",
           "Z moved " + (Home() / "Movies" / kInstalledTemplate).string() + " to ", "Z http GET ", "\nSession: none\n",
           "\nUpdate manifest: signature "}) {
    EXPECT_NE(report.out.find(line), std::string::npos) << line << " not in:\n" << report.out;
  }
  EXPECT_EQ(ReadWholeFile(log).find(config::kPublicApiKey), std::string::npos);
}

// The installed entry names the installed bundle, here through a link: set-up adds none of its own. Reset removes
// the user's entry only while it names this bundle, and the folders that set-up made and that are left empty.
TEST_F(SupportCommand, AnEntryNamingTheBundleIsItsRegistrationAndResetRemovesOnlySetUpsOwn) {
  const fs::path bundle = ORVISTELLE_TEST_APP_BUNDLE, link = root() / "link.app";
  fs::create_directory_symlink(bundle, link);
  WriteFile(EntryIn("d1"), "[Desktop Entry]\nX-Orvistelle-Bundle=" + link.string() + "\n");
  // The second run, with everything ready, registers again.
  for (int run = 0; run < 2; ++run) {
    const int exitCode = Run({"setup"}).exitCode;
    EXPECT_EQ(std::pair(exitCode, fs::exists(root() / "data/applications")), std::pair(0, false));
  }
  const fs::path templateFolders = (Home() / kInstalledTemplate).parent_path().parent_path();
  const struct {
    const char* name;
    std::string named;
    bool stays;
  } entries[] = {{.name = "another copy's", .named = "/b/other.app", .stays = true},
                 {.name = "set-up's", .named = bundle.string(), .stays = false},
                 {.name = "set-up's, through a link", .named = link.string(), .stays = false}};
  for (const auto& entry : entries) {
    WriteFile(EntryIn("data"), "[Desktop Entry]\nX-Orvistelle-Bundle=" + entry.named + "\n");
    const int exitCode = Run({"reset", "--yes"}).exitCode;  // before the checks, whatever order they run in
    EXPECT_EQ(std::tuple(exitCode, fs::exists(EntryIn("data")), fs::exists(root() / "data/applications"),
                         fs::exists(templateFolders)),
              std::tuple(0, entry.stays, entry.stays, false)) << entry.name;
  }
}

}  // namespace
}  // namespace orvistelle::shell::testing
