#include <fcntl.h>
#include <sys/file.h>

#include "auth/Maintenance.h"
#include "auth/Session.h"
#include "auth/Status.h"
#include "auth/tests/TestSupport.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::auth::testing {
namespace {

const std::string kKey = config::kPublicApiKey;
const char kToken[] = "/auth/v1/token";

class Maintenance : public AuthTest {
 protected:
  Maintenance() { backend.Answer("/console/v1/plugin/heartbeat", Reply{}); }
  void SignedIn(double expiresAt, const std::string& email = "e@x.y") {
    Write("fcp-session.json",
          Dump({{"access_token", "a1"}, {"refresh_token", "r1"}, {"email", email}, {"expires_at", expiresAt}}));
  }
  size_t Refreshes() { return backend.Seen(kToken).size(); }
};

TEST_F(Maintenance, RenewsOnlyWithinSixtySecondsOfAKnownExpiry) {
  backend.Answer(kToken, Reply{200, Dump({{"access_token", "a2"}})});
  for (auto [expiresAt, refreshes] :
       {std::pair{clock.Now() + 100, 0u}, std::pair{clock.Now() + 60.5, 0u}, std::pair{0.0, 0u},
        std::pair{clock.Now() + 60, 1u}, std::pair{clock.Now() - 9, 2u}}) {
    ClearSessionState();  // so that the pass loads the file
    SignedIn(expiresAt);
    RefreshIfNeeded();
    EXPECT_EQ(Refreshes(), refreshes) << expiresAt - clock.Now();
  }
  SeenRequest seen = backend.Seen(kToken)[0];
  EXPECT_EQ(seen.method + " " + seen.target, "POST /auth/v1/token?grant_type=refresh_token");
  EXPECT_EQ(seen.body, R"({"refresh_token":"r1"})");
  EXPECT_EQ(seen.headers["authorization"] + " " + seen.headers["apikey"], "Bearer " + kKey + " " + kKey);
  EXPECT_EQ(CurrentSession().access, "a2");
}

TEST_F(Maintenance, RefusedRefreshEndsTheSession) {
  for (Reply refusal : {Reply{400}, Reply{401}, Reply{200, R"({"access_token":""})"}}) {
    SignedIn(clock.Now());
    SetStatusKey("auth.notSignedIn", false);
    backend.Answer(kToken, refusal);
    RefreshIfNeeded();
    EXPECT_FALSE(Read("fcp-session.json")) << refusal.status;
    EXPECT_FALSE(FcpAuthSignedIn());
    EXPECT_EQ(Status(), "Session expired. Please sign in again. (error)");
    EXPECT_EQ(log.Snapshot().back(), "[Orvistelle] session expired; cleared local credentials");
  }
}

TEST_F(Maintenance, UnansweredRefreshKeepsTheSessionAndRetriesNextPass) {
  SignedIn(clock.Now() + 10);
  // An answer over the size limit counts as no answer at all.
  for (Reply failure : {Reply{503}, Reply{200, std::string(9 << 20, ' ')}}) {
    size_t before = Refreshes();
    backend.Answer(kToken, failure);
    RefreshIfNeeded();
    RefreshIfNeeded();
    EXPECT_EQ(Refreshes(), before + 2);
    EXPECT_EQ(LastRefreshStatus(), failure.status == 503 ? 503 : 0);
    EXPECT_TRUE(Read("fcp-session.json"));
    EXPECT_EQ(Status(), "e@x.y");
  }
}

TEST_F(Maintenance, RefreshAnswerKeepsTheOldRefreshTokenAndUsesExpiresIn) {
  SignedIn(clock.Now(), "");
  backend.Answer(kToken, Reply{200, Dump({{"access_token", Jwt({{"sub", "u"}})},
                                          {"expires_in", 3600},
                                          {"expires_at", 1},
                                          {"user", {{"email", "user@x.y"}}}})});
  RefreshIfNeeded();
  EXPECT_EQ(Read("fcp-session.json"), Dump({{"access_token", Jwt({{"sub", "u"}})},
                                            {"email", "user@x.y"},
                                            {"expires_at", static_cast<int64_t>(clock.Now() + 3600)},
                                            {"refresh_token", "r1"}}));
  EXPECT_EQ(Status(), "user@x.y");
  clock.Advance(3600);  // an e-mail claim in the new token wins over the answer's user
  backend.Answer(kToken, Reply{200, Dump({{"access_token", Jwt({{"email", "claim@x.y"}, {"exp", 1}})},
                                          {"refresh_token", "r2"},
                                          {"user", {{"email", "user@x.y"}}}})});
  RefreshIfNeeded();
  EXPECT_EQ(CurrentSession().email + " " + CurrentSession().refresh, "claim@x.y r2");
}

TEST_F(Maintenance, UnknownEmailIsFetchedWithTheAccessToken) {
  SignedIn(clock.Now() + 3600, "");
  backend.Answer("/auth/v1/user", Reply{401, R"({"email":"no@x.y"})"});
  RefreshIfNeeded();
  EXPECT_EQ(Status(), "Signed in");
  backend.Answer("/auth/v1/user", Reply{200, R"({"email":"u@x.y"})"});
  RefreshIfNeeded();
  RefreshIfNeeded();
  ASSERT_EQ(backend.Seen("/auth/v1/user").size(), 2u);
  SeenRequest seen = backend.Seen("/auth/v1/user")[1];
  EXPECT_EQ(seen.method + " " + seen.headers["authorization"] + " " + seen.headers["apikey"], "GET Bearer a1 " + kKey);
  EXPECT_EQ((*JsonObject(Read("fcp-session.json")))["email"], "u@x.y");
  EXPECT_EQ(Status(), "u@x.y");
}

// Another process sharing the file refreshes under the lock beside it, or signs out by deleting it: this one waits
// for the lock and follows the file instead of presenting a refresh token that is already spent.
TEST_F(Maintenance, FollowsTheSessionFileThatAnotherProcessWrites) {
  backend.Answer(kToken, Reply{200, Dump({{"access_token", "a9"}, {"refresh_token", "r9"}})});
  auto otherProcessRefreshed = [&](const std::string& refresh) {
    Write("fcp-session.json",
          Dump({{"access_token", "a"}, {"refresh_token", refresh}, {"expires_at", clock.Now() + 3600}}));
  };
  SignedIn(clock.Now() + 10);
  ASSERT_TRUE(FcpAuthHasSession());
  otherProcessRefreshed("r2");
  RefreshIfNeeded();
  EXPECT_EQ(CurrentSession().refresh, "r2");

  SignedIn(clock.Now() + 3600);
  RefreshIfNeeded();
  clock.Advance(3590);
  int lock = open(Support("fcp-session.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  std::thread pass(RefreshIfNeeded);
  std::this_thread::sleep_for(200ms);
  otherProcessRefreshed("r3");
  close(lock);
  pass.join();
  EXPECT_EQ(CurrentSession().refresh, "r3");
  EXPECT_EQ(Refreshes(), 0u);

  std::filesystem::remove(Support("fcp-session.json"));
  RefreshIfNeeded();
  EXPECT_FALSE(FcpAuthSignedIn());
  EXPECT_EQ(Status(), "Signed out");
}

// A pass that finds this process's refresh in flight skips its own rather than wait, and still shows the account.
TEST_F(Maintenance, APassDuringARefreshSkipsItsOwn) {
  backend.Answer(kToken, Held(Reply{503}));
  SignedIn(clock.Now());
  std::thread pass(RefreshIfNeeded);
  ASSERT_TRUE(WaitUntil([&] { return Refreshes() == 1; }));
  SetStatusKey("auth.notSignedIn", false);
  RefreshIfNeeded();
  EXPECT_EQ(Status(), "e@x.y");
  release = true;
  pass.join();
  EXPECT_EQ(Refreshes(), 1u);
}

TEST_F(Maintenance, ErrorStatusStaysUntilAnExplicitAction) {
  SignedIn(clock.Now() + 3600);
  SetStatusKey("auth.timeoutRetry", true);
  RefreshIfNeeded();
  EXPECT_EQ(Status(), "Sign-in timed out. Try again. (error)");
}

TEST_F(Maintenance, StartsOnceWithOneImmediatePass) {
  FcpAuthMaintain();
  EXPECT_EQ(Status(), "Not signed in");
  FcpAuthLogout();
  FcpAuthMaintain();  // reloads nothing, restarts nothing
  EXPECT_EQ(Status(), "Signed out");
  ASSERT_TRUE(WaitUntil([&] { return Read("fcp-heartbeat-day.txt").has_value(); }));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(backend.Seen("/console/v1/plugin/heartbeat").size(), 1u);
}

// Each task has a thread of its own: a hanging heartbeat holds up neither the timer nor a sign-in poll.
TEST_F(Maintenance, TimerKeepsFiringWhileAHeartbeatHangs) {
  backend.Answer("/console/v1/plugin/heartbeat", Held(Reply{}));
  backend.Answer(kToken, Reply{503});
  backend.Answer("/rest/v1/auth_relay", Reply{200, "[]"});
  UseSettings([](AuthSettings& s) { s.timerFirstDelay = s.timerPeriod = s.pollInterval = 20ms; });
  SignedIn(clock.Now());
  FcpAuthMaintain();
  FcpAuthLogin();
  EXPECT_TRUE(WaitUntil([&] { return Refreshes() >= 4 && backend.Seen("/rest/v1/auth_relay").size() >= 3; }));
  EXPECT_EQ(backend.Seen("/console/v1/plugin/heartbeat").size(), 1u);
}

// A firing while a pass still waits on a request is skipped, not run beside it; the beat resumes afterwards.
TEST_F(Maintenance, FiringsWhileAPassRunsAreSkipped) {
  backend.Answer("/auth/v1/user", Held(Reply{}));
  UseSettings([](AuthSettings& s) { s.timerFirstDelay = s.timerPeriod = 20ms; });
  SignedIn(clock.Now() + 3600, "");
  FcpAuthMaintain();
  ASSERT_TRUE(WaitUntil([&] { return backend.Seen("/auth/v1/user").size() == 1; }));
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(backend.Seen("/auth/v1/user").size(), 1u);
  release = true;
  EXPECT_TRUE(WaitUntil([&] { return backend.Seen("/auth/v1/user").size() >= 3; }));
}

}  // namespace
}  // namespace orvistelle::auth::testing
