// Browser sign-in from end to end: the service opens the sign-in page, Debian's Chromium fills in the development
// site's form, and the session comes back through the relay of a real development backend on loopback.
#include <gtest/gtest.h>
#include <httplib.h>

#include <nlohmann/json.hpp>

#include "auth/AuthTesting.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpService.h"
#include "platform/testing/ChildProcess.h"
#include "platform/testing/FakePlatform.h"
#include "tools/devbackend/DevBackend.h"

extern char** environ;

namespace orvistelle::e2e {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using platform::testing::WaitUntil;

constexpr char kEmail[] = "e2e@example.org";

class BrowserSignInTest : public ::testing::Test {
 protected:
  ~BrowserSignInTest() override { auth::ResetAuthForTesting(); }

  std::string RefreshToken() const {
    const auto file = dir_ / "home/.local/share/orvistelle/fcp-session.json";
    const json session = json::parse(platform::testing::ReadWholeFile(file), nullptr, false);
    return session.is_object() ? session.value("refresh_token", "") : "";
  }

  platform::testing::TempDir temp_;
  const std::filesystem::path dir_ = temp_.path();
  platform::testing::FakeHome home_{(dir_ / "home").string()};
  platform::testing::RecordingBrowser browser_;  // stands in for the desktop's browser: the test opens the page
  platform::testing::RecordingLog log_;
  platform::testing::FakeLanguages languages_{{"en-US"}};
  platform::testing::ScopedFakes seams_{&home_, &browser_, &log_, &languages_};
};

// Tokens this short are due for renewal at every maintenance pass, so the sign-in's maintenance refreshes at once,
// and the revocation shows at the next pass.
TEST_F(BrowserSignInTest, SignInThroughChromiumKeepsARefreshedSessionUntilItIsRevoked) {
  devbackend::DevBackend backend({0, dir_ / "backend", dir_ / "latest.json", 30, nullptr});
  std::string error;
  ASSERT_TRUE(backend.Start(&error)) << error;
  auth::AuthSettings settings = auth::ProductionSettings();
  settings.authBaseURL = settings.apiBaseURL = backend.BaseURL();
  settings.timerFirstDelay = settings.timerPeriod = 250ms;
  auth::SetAuthSettingsForTesting(settings);

  FcpServiceLogin();
  const std::optional<std::string> opened = browser_.WaitForFirst(5s);
  const std::string site = config::kSiteURL;
  ASSERT_TRUE(opened && opened->starts_with(site + "/sign-in?from=vask&flowId=")) << opened.value_or("no page");
  // The page is the build's site address; the backend under test serves that site on a port of its own.
  const std::string page = backend.BaseURL() + "/site" + opened->substr(site.size());
  std::vector<std::string> env(environ, environ + std::char_traits<char*>::length(environ));
  const auto chromium = platform::testing::RunChild(
      {"/usr/bin/node", ORVISTELLE_E2E_SIGN_IN_SCRIPT, page, kEmail, "development"}, env, dir_, 60s);
  ASSERT_EQ(chromium.exitCode, 0) << chromium.out << chromium.err;

  // The product's own poll interval: 30 polls make the budget.
  ASSERT_TRUE(WaitUntil([] { return std::string(FcpServiceEmail()) == kEmail && !FcpServiceBusy(); },
                        30 * settings.pollInterval))
      << "status: " << FcpServiceStatus();
  const std::string first = RefreshToken();
  ASSERT_TRUE(WaitUntil([&] { return RefreshToken() != first; }, 30s)) << "no refresh was saved";
  auto revoked = httplib::Client("127.0.0.1", backend.Port())
                     .Post(std::string("/dev/revoke?email=") + kEmail + "&csrf=" + backend.FormToken());
  ASSERT_TRUE(revoked && revoked->status == 200);
  ASSERT_TRUE(WaitUntil([] { return FcpServiceStatusIsError(); }, 10s)) << FcpServiceStatus();
  EXPECT_EQ(std::string(FcpServiceStatus()), "Session expired. Please sign in again.");
  EXPECT_FALSE(FcpServiceHasSession());
  EXPECT_EQ(RefreshToken(), "");
}

}  // namespace
}  // namespace orvistelle::e2e
