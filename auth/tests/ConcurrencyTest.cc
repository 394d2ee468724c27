#include "auth/Maintenance.h"
#include "auth/Session.h"
#include "auth/tests/TestSupport.h"

namespace orvistelle::auth::testing {
namespace {

// Every public function at once from many threads, with the timer, polls, refreshes and heartbeats running.
TEST_F(AuthTest, PublicFunctionsMayBeCalledFromAnyThread) {
  auto round = std::make_shared<std::atomic<int>>(0);  // the handler may run after the test body has returned
  std::string session = Dump(Json::array(
      {{{"session_payload", {{"access_token", Jwt({{"exp", clock.Now() + 10}})}, {"refresh_token", "r"}}}}}));
  backend.Answer("/rest/v1/auth_relay", [round, session](const SeenRequest&) {
    return ++*round % 3 != 0 ? Reply{200, "[]"} : Reply{200, session};
  });
  backend.Answer("/console/v1/plugin/heartbeat", Reply{503});
  backend.Answer("/auth/v1/user", Reply{200, R"({"email":"u@x.y"})"});
  backend.Answer("/auth/v1/token", Reply{200, Dump({{"access_token", Jwt({{"exp", clock.Now() + 30}})}})});
  UseSettings([](AuthSettings& settings) { settings.timerFirstDelay = settings.timerPeriod = 3ms; });
  std::vector<std::function<void()>> calls = {
      FcpAuthMaintain,          FcpAuthLogin,           FcpAuthLogout,          FcpAuthOpenSite,
      FcpAuthOpenSignup,        [] { FcpAuthHasSession(); }, [] { FcpAuthBusy(); }, [] { FcpAuthStatus(); },
      [] { FcpAuthStatusIsError(); }, [] { FcpAuthEmail(); }};
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 8; ++t) {
    threads.emplace_back([&calls, t] {
      for (size_t i = 0; i < 60; ++i, std::this_thread::sleep_for(1ms)) calls[(t + i * 7) % calls.size()]();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(round->load(), 0);
}

// A refresh, e-mail fetch or relay poll whose answer arrives after a sign-out, or after a newer sign-in began,
// changes nothing: neither the session, nor the file, nor the status.
TEST_F(AuthTest, AnswersArrivingAfterASignOutOrANewerSignInAreDropped) {
  const std::string relayRow = Dump(Json::array({{{"session_payload", {{"access_token", "a2"}, {"refresh_token", "r2"}}}}}));
  struct Case {
    const char* path;
    Reply answer;
    std::string email;                // in the session file
    std::function<void()> send;       // on a thread of its own
    std::function<void()> interrupt;  // while the answer is held
    std::string status;
    bool busy;
  };
  for (const Case& c : std::vector<Case>{
           {"/auth/v1/token", Reply{200, R"({"access_token":"a2","refresh_token":"r2"})"}, "e@x.y", RefreshIfNeeded,
            FcpAuthLogout, "Signed out", false},
           {"/auth/v1/token", Reply{400}, "e@x.y", RefreshIfNeeded, [] { FcpAuthLogout(), FcpAuthLogin(); },
            "Browser opened. Come back after you sign in.", true},
           {"/auth/v1/user", Reply{200, R"({"email":"late@x.y"})"}, "", RefreshIfNeeded, FcpAuthLogout, "Signed out",
            false},
           {"/rest/v1/auth_relay", Reply{200, relayRow}, "", FcpAuthLogin, FcpAuthLogout, "Signed out", false}}) {
    release = false;
    UseSettings([](AuthSettings& settings) { settings.pollInterval = 50ms; });
    for (const char* path : {"/auth/v1/token", "/auth/v1/user"}) backend.Answer(path, Reply{503});
    backend.Answer("/rest/v1/auth_relay", Reply{200, "[]"});
    auto answered = std::make_shared<std::atomic<int>>(0);
    backend.Answer(c.path, [answered, held = Held(c.answer)](const SeenRequest& seen) {
      Reply reply = held(seen);
      ++*answered;
      return reply;
    });
    Write("fcp-session.json",
          Dump({{"access_token", "a1"}, {"refresh_token", "r1"}, {"email", c.email}, {"expires_at", clock.Now()}}));
    size_t before = backend.Seen(c.path).size();
    std::thread sender(c.send);
    ASSERT_TRUE(WaitUntil([&] { return backend.Seen(c.path).size() > before; })) << c.path;
    c.interrupt();
    release = true;
    sender.join();
    ASSERT_TRUE(WaitUntil([&] { return *answered > 0; }));
    std::this_thread::sleep_for(100ms);  // for the answer to reach the session, were it applied
    EXPECT_FALSE(Read("fcp-session.json")) << c.path;
    EXPECT_FALSE(HoldsSession(CurrentSession())) << c.path;
    EXPECT_EQ(Status(), c.status) << c.path;
    EXPECT_EQ(FcpAuthBusy(), c.busy) << c.path;
    ResetAuthForTesting();
  }
}

// A sign-out racing a caller that finds memory empty and reloads the file: the old session never comes back.
TEST_F(AuthTest, SignOutRacingAReloadLeavesNoSession) {
  std::atomic<int> racing{0}, signedOut{0}, raced{0};  // rounds; racing -1 ends the reader
  std::thread reader([&] {
    for (int round; (round = racing.load()) >= 0;) {
      if (round == raced.load()) continue;
      while (signedOut.load() != round) FcpAuthHasSession();
      raced = round;
    }
  });
  int resurrected = 0, round = 1;
  for (auto end = std::chrono::steady_clock::now() + 5s; round <= 1000 && std::chrono::steady_clock::now() < end;
       ++round) {
    Write("fcp-session.json", Dump({{"access_token", "a"}, {"refresh_token", "r"}}));
    FcpAuthHasSession();
    racing = round;
    FcpAuthLogout();
    signedOut = round;
    while (raced.load() != round) std::this_thread::yield();
    resurrected += HoldsSession(CurrentSession());
  }
  racing = -1;
  reader.join();
  EXPECT_EQ(resurrected, 0) << "in " << round - 1 << " rounds";
}

}  // namespace
}  // namespace orvistelle::auth::testing
