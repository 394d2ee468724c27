#include <thread>

#include "auth/Maintenance.h"
#include "auth/Session.h"
#include "auth/Status.h"
#include "auth/tests/TestSupport.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpAuth.h"

namespace orvistelle::auth::testing {
namespace {

const std::string kKey = config::kPublicApiKey;
const char kTokenPath[] = "/auth/v1/token";

class Maintenance : public AuthTest {
 protected:
  Maintenance() { backend.Answer("/console/v1/plugin/heartbeat", Reply{}); }

  void SignedIn(double expiresAt, const std::string& email = "e@x.y") {
    WriteSupportFile("fcp-session.json", Dump({{"access_token", "a1"}, {"refresh_token", "r1"}, {"email", email},
                                               {"expires_at", expiresAt}}));
  }
  size_t Refreshes() { return backend.Seen(kTokenPath).size(); }
};

struct MarginCase {
  double secondsLeft;
  bool refreshes;
};

class RefreshMargin : public Maintenance, public ::testing::WithParamInterface<MarginCase> {};

TEST_P(RefreshMargin, RenewsOnlyWithinSixtySecondsOfExpiry) {
  SignedIn(clock.now + GetParam().secondsLeft);
  backend.Answer(kTokenPath, Reply{200, Dump({{"access_token", "a2"}})});
  RefreshIfNeeded();
  ASSERT_EQ(Refreshes(), GetParam().refreshes ? 1u : 0u);
  if (!GetParam().refreshes) return;
  SeenRequest seen = backend.Seen(kTokenPath)[0];
  EXPECT_EQ(seen.method, "POST");
  EXPECT_EQ(seen.target, "/auth/v1/token?grant_type=refresh_token");
  EXPECT_EQ(seen.body, R"({"refresh_token":"r1"})");
  EXPECT_EQ(seen.headers["apikey"], kKey);
  EXPECT_EQ(seen.headers["authorization"], "Bearer " + kKey);
  EXPECT_EQ(seen.headers["content-type"], "application/json");
  EXPECT_EQ(CurrentSession().access, "a2");
}

INSTANTIATE_TEST_SUITE_P(Expiries, RefreshMargin,
                         ::testing::Values(MarginCase{100, false}, MarginCase{60.5, false}, MarginCase{60, true},
                                           MarginCase{-3600, true}));

TEST_F(Maintenance, UnknownExpiryIsNeverRefreshed) {
  SignedIn(0);
  RefreshIfNeeded();
  EXPECT_EQ(Refreshes(), 0u);
  EXPECT_EQ(FcpAuthStatus(), "e@x.y");
}

TEST_F(Maintenance, RefusedRefreshEndsTheSession) {
  for (Reply refusal : {Reply{400}, Reply{401}, Reply{200, R"({"access_token":""})"}}) {
    SignedIn(clock.now);
    SetStatusKey("auth.notSignedIn", false);
    backend.Answer(kTokenPath, refusal);
    RefreshIfNeeded();
    EXPECT_FALSE(ReadSupportFile("fcp-session.json")) << refusal.status;
    EXPECT_FALSE(FcpAuthSignedIn());
    EXPECT_EQ(FcpAuthStatus(), "Session expired. Please sign in again.");
    EXPECT_TRUE(FcpAuthStatusIsError());
    EXPECT_EQ(log.Lines().back(), "[Orvistelle] session expired; cleared local credentials");
  }
}

TEST_F(Maintenance, UnansweredRefreshKeepsTheSessionAndRetriesNextPass) {
  // An answer over the size limit counts as no answer at all.
  for (Reply failure : {Reply{503}, Reply{200, std::string(9 << 20, ' ')}}) {
    SignedIn(clock.now + 10);
    size_t before = Refreshes();
    backend.Answer(kTokenPath, failure);
    RefreshIfNeeded();
    RefreshIfNeeded();
    EXPECT_EQ(Refreshes(), before + 2);
    EXPECT_EQ(LastRefreshStatus(), failure.status == 503 ? 503 : 0);
    EXPECT_TRUE(ReadSupportFile("fcp-session.json"));
    EXPECT_EQ(CurrentSession().access, "a1");
    EXPECT_EQ(FcpAuthStatus(), "e@x.y");
    EXPECT_FALSE(FcpAuthStatusIsError());
  }
}

TEST_F(Maintenance, RefreshAnswerKeepsTheOldRefreshTokenAndUsesExpiresIn) {
  SignedIn(clock.now, "");
  backend.Answer("/auth/v1/user", Reply{500});
  backend.Answer(kTokenPath, Reply{200, Dump({{"access_token", Jwt({{"sub", "u"}})}, {"expires_in", 3600},
                                              {"expires_at", 1}, {"user", {{"email", "user@x.y"}}}})});
  RefreshIfNeeded();
  auto file = JsonObject(ReadSupportFile("fcp-session.json"));
  ASSERT_TRUE(file);
  EXPECT_EQ((*file)["refresh_token"], "r1");
  EXPECT_EQ((*file)["email"], "user@x.y");
  EXPECT_EQ((*file)["expires_at"], static_cast<int64_t>(clock.now + 3600));
  EXPECT_EQ(FcpAuthStatus(), "user@x.y");
  // An e-mail claim in the new token wins over the answer's user.
  clock.now = clock.now + 3600;
  backend.Answer(kTokenPath, Reply{200, Dump({{"access_token", Jwt({{"email", "claim@x.y"}, {"exp", 1}})},
                                              {"refresh_token", "r2"}, {"user", {{"email", "user@x.y"}}}})});
  RefreshIfNeeded();
  EXPECT_EQ(CurrentSession().email, "claim@x.y");
  EXPECT_EQ(CurrentSession().refresh, "r2");
}

TEST_F(Maintenance, UnknownEmailIsFetchedWithTheAccessToken) {
  SignedIn(clock.now + 3600, "");
  backend.Answer("/auth/v1/user", Reply{401, R"({"email":"no@x.y"})"});
  RefreshIfNeeded();
  EXPECT_EQ(FcpAuthStatus(), "Signed in");
  backend.Answer("/auth/v1/user", Reply{200, R"({"email":"u@x.y"})"});
  RefreshIfNeeded();
  SeenRequest seen = backend.Seen("/auth/v1/user").back();
  EXPECT_EQ(seen.method, "GET");
  EXPECT_EQ(seen.headers["authorization"], "Bearer a1");
  EXPECT_EQ(seen.headers["apikey"], kKey);
  EXPECT_EQ(seen.headers.count("content-type"), 0u);
  EXPECT_EQ((*JsonObject(ReadSupportFile("fcp-session.json")))["email"], "u@x.y");
  EXPECT_EQ(FcpAuthStatus(), "u@x.y");
  RefreshIfNeeded();
  EXPECT_EQ(backend.Seen("/auth/v1/user").size(), 2u);
}

TEST_F(Maintenance, ErrorStatusStaysUntilAnExplicitAction) {
  SignedIn(clock.now + 3600);
  SetStatusKey("auth.timeoutRetry", true);
  RefreshIfNeeded();
  EXPECT_EQ(FcpAuthStatus(), "Sign-in timed out. Try again.");
}

TEST_F(Maintenance, StartsOnceWithOneImmediatePass) {
  FcpAuthMaintain();
  FcpAuthMaintain();
  EXPECT_EQ(FcpAuthStatus(), "Not signed in");
  ASSERT_TRUE(WaitUntil([&] { return ReadSupportFile("fcp-heartbeat-day.txt").has_value(); }));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(backend.Seen("/console/v1/plugin/heartbeat").size(), 1u);
}

// Each task has a thread of its own: a hanging heartbeat holds up neither the timer nor a sign-in poll.
TEST_F(Maintenance, TimerKeepsFiringWhileAHeartbeatHangs) {
  backend.Answer("/console/v1/plugin/heartbeat", [this](const SeenRequest&) { gate.Wait(); return Reply{}; });
  backend.Answer(kTokenPath, Reply{503});
  backend.Answer("/rest/v1/auth_relay", Reply{200, "[]"});
  UseSettings([](AuthSettings& settings) {
    settings.timerFirstDelay = 20ms;
    settings.timerPeriod = 20ms;
    settings.pollInterval = 20ms;
  });
  SignedIn(clock.now);
  FcpAuthMaintain();
  FcpAuthLogin();
  EXPECT_TRUE(WaitUntil([&] { return Refreshes() >= 4 && backend.Seen("/rest/v1/auth_relay").size() >= 3; }));
  EXPECT_EQ(backend.Seen("/console/v1/plugin/heartbeat").size(), 1u);
  gate.Open();
}

}  // namespace
}  // namespace orvistelle::auth::testing
