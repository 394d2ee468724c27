// Browser sign-in from end to end: the service opens the sign-in page, Debian's Chromium fills in the development
// site's form, and the session comes back through the relay of a real development backend on loopback.
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <gtest/gtest.h>
#include <httplib.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>

#include "auth/AuthTesting.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpService.h"
#include "platform/testing/FakePlatform.h"
#include "tools/devbackend/DevBackend.h"

extern char** environ;

namespace orvistelle::e2e {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using platform::testing::WaitUntil;
namespace fs = std::filesystem;

constexpr char kEmail[] = "e2e@example.org";
constexpr auto kPollInterval = 1000ms;  // the product's own: 30 polls a second apart make the budget
constexpr auto kPollBudget = 30 * kPollInterval;
constexpr auto kMaintenancePeriod = 250ms;
constexpr auto kCheckEvery = 20ms;  // how often a wait looks again, sparing the machine Chromium runs on

struct ChildResult {
  int exitCode = -1;
  std::string output;
};

// Runs the program without a shell, its output and errors collected in one file.
ChildResult RunProgram(std::vector<std::string> argv, const fs::path& outputFile) {
  std::vector<char*> args;
  for (auto& arg : argv) args.push_back(arg.data());
  args.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  pid_t child = 0;
  ChildResult result;
  if (posix_spawnp(&child, args[0], &actions, nullptr, args.data(), environ) == 0) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  std::ifstream in(outputFile);
  result.output.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return result;
}

class BrowserSignInTest : public ::testing::Test {
 protected:
  BrowserSignInTest() {
    fs::create_directory(dir_ / "home");
    std::ofstream(dir_ / "latest.json") << R"({"hosts":{"fcp":{"version":"1.0.0"}}})";
  }

  ~BrowserSignInTest() override {
    auth::ResetAuthForTesting();
    backend_.reset();
  }

  void StartBackend(int accessTokenLifetimeSeconds) {
    backend_ = std::make_unique<devbackend::DevBackend>(
        devbackend::Options{0, dir_ / "backend", dir_ / "latest.json", accessTokenLifetimeSeconds, nullptr});
    std::string error;
    ASSERT_TRUE(backend_->Start(&error)) << error;
    client_ = std::make_unique<httplib::Client>("127.0.0.1", backend_->Port());
    auth::AuthSettings settings = auth::ProductionSettings();
    settings.authBaseURL = settings.apiBaseURL = backend_->BaseURL();
    settings.pollInterval = kPollInterval;
    settings.timerFirstDelay = settings.timerPeriod = kMaintenancePeriod;
    auth::SetAuthSettingsForTesting(settings);
  }

  // Starts a sign-in, lets Chromium submit the form at the page the product opened, and returns the flow id.
  std::string SignInInChromium() {
    FcpServiceLogin();
    auto opened = browser_.WaitForFirst(5s);
    if (!opened) {
      ADD_FAILURE() << "the product opened no page";
      return "";
    }
    // The page is the build's site address; the backend under test serves that site on a port of its own.
    const std::string prefix = std::string(config::kSiteURL) + "/sign-in?from=vask&flowId=";
    static const std::regex kLowercaseUuid("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}");
    const std::string tail = opened->substr(std::min(prefix.size(), opened->size()));
    if (opened->rfind(prefix, 0) != 0 || !std::regex_match(tail, kLowercaseUuid)) {
      ADD_FAILURE() << "unexpected sign-in page " << *opened;
      return "";
    }
    const std::string page = backend_->BaseURL() + "/site/sign-in?from=vask&flowId=" + tail;
    ChildResult chromium =
        RunProgram({"node", ORVISTELLE_E2E_SIGN_IN_SCRIPT, page, kEmail, "development"}, dir_ / "node.log");
    EXPECT_EQ(chromium.exitCode, 0) << chromium.output;
    EXPECT_NE(chromium.output.find(std::string("Signed in as ") + kEmail), std::string::npos) << chromium.output;
    return tail;
  }

  // The e-mail of the live session an access token belongs to, or the backend's status code.
  std::string UserOf(const json& accessToken) {
    auto res = client_->Get("/auth/v1/user", {{"apikey", config::kPublicApiKey},
                                              {"Authorization", "Bearer " + accessToken.get<std::string>()}});
    if (!res) return "no answer";
    return res->status == 200 ? json::parse(res->body).value("email", "") : std::to_string(res->status);
  }

  fs::path SupportFile(const std::string& name) const {
    return dir_ / "home" / "Library/Application Support/Orvistelle" / name;
  }

  json SessionFile() const {
    std::ifstream in(SupportFile("fcp-session.json"));
    json session = json::parse(in, nullptr, false);
    return session.is_object() ? session : json::object();
  }

  platform::testing::TempDir temp_;
  const fs::path dir_ = temp_.path();
  std::unique_ptr<devbackend::DevBackend> backend_;
  std::unique_ptr<httplib::Client> client_;
  platform::testing::FakeHome home_{(dir_ / "home").string()};
  platform::testing::RecordingBrowser browser_;  // stands in for the desktop's browser: the test opens the page
  platform::testing::RecordingLog log_;  // stands in for the system log
  platform::testing::FakeLanguages languages_{{"en-US"}};

 private:
  platform::testing::ScopedFakes seams_{&home_, &browser_, &log_, &languages_};
};

TEST_F(BrowserSignInTest, SignInThroughChromiumStoresThePrivateSessionAndSignOutRemovesIt) {
  StartBackend(3600);
  const auto started = std::chrono::steady_clock::now();
  ASSERT_FALSE(SignInInChromium().empty());
  const auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
  ASSERT_TRUE(WaitUntil([] { return std::string(FcpServiceEmail()) == kEmail && !FcpServiceBusy(); },
                        kPollBudget - spent, kCheckEvery))
      << "status: " << FcpServiceStatus();
  EXPECT_EQ(std::string(FcpServiceStatus()), kEmail);
  EXPECT_FALSE(FcpServiceStatusIsError());
  EXPECT_TRUE(FcpServiceHasSession());

  const json saved = SessionFile();
  EXPECT_EQ(UserOf(saved["access_token"]), kEmail);
  EXPECT_EQ(saved["email"], kEmail);

  // The maintenance that the sign-in started has reported this installation, and the backend's page shows it.
  ASSERT_TRUE(WaitUntil([&] { return fs::exists(SupportFile("fcp-heartbeat-day.txt")); }, 5s, kCheckEvery));
  std::ifstream installId(SupportFile("fcp-install-id.txt"));
  const std::string id(std::istreambuf_iterator<char>(installId), {});
  EXPECT_NE(client_->Get("/dev")->body.find(id), std::string::npos) << id;

  FcpServiceLogout();
  EXPECT_FALSE(fs::exists(SupportFile("fcp-session.json")));
  EXPECT_FALSE(FcpServiceHasSession());
  EXPECT_EQ(std::string(FcpServiceStatus()), "Signed out");
}

TEST_F(BrowserSignInTest, ARevokedRefreshTokenExpiresTheSession) {
  // Tokens this short are due for renewal at every maintenance pass, so each pass refreshes.
  StartBackend(30);
  ASSERT_FALSE(SignInInChromium().empty());
  ASSERT_TRUE(WaitUntil([&] { return SessionFile()["refresh_token"].is_string(); }, kPollBudget, kCheckEvery));
  const json first = SessionFile()["refresh_token"];
  auto renewed = [&] {
    const json token = SessionFile()["refresh_token"];
    return token.is_string() && token != first;
  };
  ASSERT_TRUE(WaitUntil(renewed, kPollBudget, kCheckEvery)) << "no refresh reached the session file";

  auto revoked = client_->Post(std::string("/dev/revoke?email=") + kEmail + "&csrf=" + backend_->FormToken());
  ASSERT_TRUE(revoked && revoked->status == 200);
  ASSERT_TRUE(WaitUntil([] { return FcpServiceStatusIsError(); }, 10s, kCheckEvery))
      << "status: " << FcpServiceStatus();
  EXPECT_EQ(std::string(FcpServiceStatus()), "Session expired. Please sign in again.");
  EXPECT_FALSE(FcpServiceHasSession());
  EXPECT_FALSE(fs::exists(SupportFile("fcp-session.json")));
}

}  // namespace
}  // namespace orvistelle::e2e
