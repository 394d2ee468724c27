#include <regex>

#include "auth/Session.h"
#include "auth/tests/TestSupport.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::auth::testing {
namespace {

const char kRelay[] = "/rest/v1/auth_relay";

class SignIn : public AuthTest {
 protected:
  SignIn() {
    backend.Answer("/console/v1/plugin/heartbeat", Reply{});
    backend.Answer("/auth/v1/user", Reply{401});
  }
  size_t Polls() { return backend.Seen(kRelay).size(); }
  std::string FlowId() {  // of the last sign-in page opened
    std::string url = browser.Snapshot().back();
    return url.substr(url.find("flowId=") + 7);
  }
  bool Finished() {
    return WaitUntil([] { return !FcpAuthBusy(); });
  }
};

Reply Row(const Json& payload) { return {200, Dump(Json::array({{{"session_payload", payload}}}))}; }

TEST_F(SignIn, RelayDeliversTheSession) {
  std::string access = Jwt({{"email", "new@x.y"}, {"exp", 1700003600}});
  backend.Answer(kRelay, [this, access](const SeenRequest&) {
    return Polls() < 3 ? Reply{200, "[]"} : Row({{"access_token", access}, {"refresh_token", "r"}, {"x", 1}});
  });
  FcpAuthLogin();
  FcpAuthMaintain();  // the sign-in has started the maintenance already: nothing is reloaded
  EXPECT_EQ(Status() + (FcpAuthBusy() ? " (busy)" : ""), "Browser opened. Come back after you sign in. (busy)");
  EXPECT_EQ(browser.Snapshot(), std::vector{std::string(config::kSiteURL) + "/sign-in?from=vask&flowId=" + FlowId()});
  EXPECT_TRUE(
      std::regex_match(FlowId(), std::regex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")));
  ASSERT_TRUE(Finished());
  ASSERT_EQ(Polls(), 3u);
  SeenRequest poll = backend.Seen(kRelay)[0];
  EXPECT_EQ(poll.method + " " + poll.target, "GET /rest/v1/auth_relay?id=eq." + FlowId() + "&select=session_payload");
  EXPECT_EQ(poll.headers["authorization"], std::string("Bearer ") + config::kPublicApiKey);
  EXPECT_EQ(Status(), "new@x.y");
  EXPECT_EQ(CurrentSession().expiresAt, 1700003600);
  EXPECT_EQ((*JsonObject(Read("fcp-session.json")))["refresh_token"], "r");
}

// None of these answers is a session: polling goes on until the budget of 30 rounds is spent.
TEST_F(SignIn, UnusableAnswersTimeOutAfterThirtyRounds) {
  std::string row = R"({"session_payload":{"access_token":"a","refresh_token":"r"}})";
  for (Reply answer : {Row({{"access_token", "a"}, {"refresh_token", ""}}), Row("a"), Row({{"access_token", "a"}}),
                       Reply{200, row}, Reply{200, "[" + row + "]x"}, Reply{500, "[" + row + "]"}, Reply{200, "[7]"}}) {
    size_t before = Polls();
    backend.Answer(kRelay, answer);
    FcpAuthLogin();
    ASSERT_TRUE(Finished()) << answer.body;
    EXPECT_EQ(Polls() - before, 30u) << answer.body;
    EXPECT_EQ(Status(), "Sign-in timed out. Try again. (error)");
    EXPECT_FALSE(FcpAuthSignedIn());
  }
}

TEST_F(SignIn, SecondSignInSupersedesTheFirst) {
  backend.Answer(kRelay, Reply{200, "[]"});
  UseSettings([](AuthSettings& settings) { settings.pollInterval = 10ms; });
  FcpAuthLogin();
  std::string first = FlowId();
  ASSERT_TRUE(WaitUntil([&] { return Polls() >= 2; }));
  FcpAuthLogin();
  ASSERT_TRUE(Finished());
  size_t firstPolls = 0;
  for (const SeenRequest& poll : backend.Seen(kRelay)) firstPolls += poll.target.find(first) != std::string::npos;
  EXPECT_LT(firstPolls, 30u);
  EXPECT_EQ(Polls() - firstPolls, 30u);
  EXPECT_EQ(Status(), "Sign-in timed out. Try again. (error)");
}

TEST_F(SignIn, SignOutEndsThePollQuietly) {
  backend.Answer(kRelay, Reply{200, "[]"});
  FcpAuthLogin();
  ASSERT_TRUE(WaitUntil([&] { return Polls() >= 1; }));
  FcpAuthLogout();
  EXPECT_FALSE(FcpAuthBusy());
  size_t polls = Polls();
  std::this_thread::sleep_for(200ms);  // longer than the rest of the polling budget
  EXPECT_LE(Polls(), polls + 1);
  EXPECT_EQ(Status(), "Signed out");
}

}  // namespace
}  // namespace orvistelle::auth::testing
