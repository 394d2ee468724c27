// orvistelle-fcp run as a child process, with a home, state and data folder of its own, against the built bundle.
#include <nlohmann/json.hpp>

#include "app/Probes.h"
#include "app/cli/SupportCommand.h"
#include "app/tests/ShellFixture.h"
#include "platform/testing/ChildProcess.h"
#include "orvistelle/BuildConfig.h"
#include "platform/DiagnosticsLog.h"

namespace orvistelle::shell::testing {
namespace {

using Outcome = platform::testing::ChildRun;

class SupportCommand : public ::testing::Test {
 protected:
  Outcome Run(const std::vector<std::string>& arguments) {
    std::vector<std::string> words{ORVISTELLE_TEST_CLI};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> environment = {"HOME=" + Home().string(), "XDG_STATE_HOME=" + (root() / "state").string(),
                                            "XDG_DATA_HOME=" + DataHome().string(),
                                            "XDG_DATA_DIRS=" + (root() / "none").string(), "LANGUAGE=en",
                                            "ORVISTELLE_DEV_HOME=" + Home().string()};
    for (const char* inherited : {"PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
      if (const char* value = std::getenv(inherited)) environment.push_back(std::string(inherited) + "=" + value);
    }
    return platform::testing::RunChild(std::move(words), std::move(environment), root(), std::chrono::seconds(60));
  }

  const fs::path& root() const { return temp_.path(); }
  fs::path Home() const { return root() / "home"; }
  fs::path DataHome() const { return root() / "data"; }
  fs::path LogFile() const { return root() / "state/orvistelle/orvistelle.log"; }

  platform::testing::TempDir temp_;
};

struct UsageCase {
  std::vector<std::string> arguments;
  int exit;
  std::string out;  // the start of standard output
  std::string err;  // the start of standard error
};

class SupportCommandUsage : public SupportCommand, public ::testing::WithParamInterface<UsageCase> {};

TEST_P(SupportCommandUsage, ExitCodeAndWhereTheTextGoes) {
  const UsageCase& c = GetParam();
  Outcome outcome = Run(c.arguments);
  EXPECT_EQ(outcome.exitCode, c.exit);
  EXPECT_EQ(outcome.out.substr(0, c.out.size()), c.out);
  EXPECT_EQ(outcome.err.substr(0, c.err.size()), c.err);
}

const char kUsage[] = "Usage: orvistelle-fcp [--bundle PATH] COMMAND\n";

INSTANTIATE_TEST_SUITE_P(
    Table, SupportCommandUsage,
    ::testing::Values(
        UsageCase{{"--version"}, 0, std::string("orvistelle-fcp ") + config::kVersion + "\n", ""},
        UsageCase{{"--help"}, 0, kUsage, ""}, UsageCase{{}, 2, "", kUsage}, UsageCase{{"frobnicate"}, 2, "", kUsage},
        UsageCase{{"reset", "--json"}, 2, "", kUsage},
        UsageCase{{"--help", "status"}, 2, "", kUsage}, UsageCase{{"status", "--json", "--json"}, 2, "", kUsage},
        UsageCase{{"--bundle"}, 2, "", kUsage},
        UsageCase{{"--bundle", "/nonexistent/Orvistelle FCP Beauty.app", "status"}, 1, "",
                  "orvistelle-fcp: no application bundle at /nonexistent/"},
        // Were the refusal broken, a missing bundle still stops the child before it reaches the real support folder.
        UsageCase{{"--bundle", "/nonexistent/Orvistelle FCP Beauty.app", "reset"}, 1, "",
                  "orvistelle-fcp: reset removes the installed template"},
        UsageCase{{"status"}, 1, "Plugin host: Needed\nEffect service: Ready\nMotion template: Needed\n", ""}));

TEST_F(SupportCommand, SetUpThenDiagnoseAsAUserWould) {
  Outcome before = Run({"status", "--json"});
  EXPECT_EQ(before.exitCode, 1);
  nlohmann::json status = nlohmann::json::parse(before.out, nullptr, false);
  for (const char* part : {"host", "service", "template"}) {
    EXPECT_TRUE(status[part]["ready"].is_boolean()) << part;
    EXPECT_TRUE(status[part]["path"].is_string()) << part;
  }
  EXPECT_EQ(status["ready"], false);
  EXPECT_EQ(status["template"]["path"], (Home() / kInstalledTemplate).string());

  EXPECT_EQ(Run({"setup"}).out, "Setup complete. Restart Final Cut Pro to see the effect.\n");
  EXPECT_EQ(Run({"status"}).exitCode, 0);
  EXPECT_TRUE(fs::exists(DataHome() / "applications/net.tarnwix.orvistelle.fcp.desktop"));

  Outcome report = Run({"diagnose"});
  EXPECT_EQ(report.exitCode, 0);
  for (const std::string& line :
       {std::string("\nApp version: ") + config::kVersion + "\n", std::string("\nLibrary version: ") + config::kVersion,
        std::string("\nTemplate: same as this app's copy\n"), "\nLog file: " + LogFile().string() + "\n",
        std::string("\nMotion template: Ready\n"), std::string("Z set-up: template "),
        std::string("Z http GET ")}) {
    EXPECT_NE(report.out.find(line), std::string::npos) << line << " not in:\n" << report.out;
  }
  EXPECT_EQ(ReadFile(LogFile()).find(config::kPublicApiKey), std::string::npos);
}

// In-process, because the support folder follows the user database rather than $HOME: a child would reach the real
// one. The fixture's fakes answer for the home folder and the application database instead.
using SupportCommandReset = ShellFixture;

TEST_F(SupportCommandReset, RemovesTemplateEntryAndSupportFilesOnlyWhenConfirmed) {
  SetInstalledTemplate(true);
  SetHostRegistered(true);
  const fs::path support = fs::path(home_.Directory()) / "Library/Application Support/Orvistelle";
  WriteFile(support / "fcp-session.json", "{}");
  platform::SetDiagnosticsFolder((temp_.path() / "state").string());
  EXPECT_EQ(cli::SupportMain({"--bundle", bundle_.string(), "reset"}), 1);
  EXPECT_TRUE(fs::exists(support / "fcp-session.json"));
  EXPECT_EQ(cli::SupportMain({"--bundle", bundle_.string(), "reset", "--yes"}), 0);
  platform::SetDiagnosticsFolder("");
  EXPECT_FALSE(fs::exists(InstalledTemplate()));
  EXPECT_FALSE(fs::exists(support));
  EXPECT_TRUE(database_.listed.empty());
}

}  // namespace
}  // namespace orvistelle::shell::testing
