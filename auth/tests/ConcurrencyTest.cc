#include <thread>

#include "auth/tests/TestSupport.h"
#include "orvistelle/FcpAuth.h"

namespace orvistelle::auth::testing {
namespace {

// Every public function at once from many threads, with the timer, polls, refreshes and heartbeats running.
TEST_F(AuthTest, PublicFunctionsMayBeCalledFromAnyThread) {
  // Shared with the server's handler, which may still run after the test body has returned.
  auto relayRound = std::make_shared<std::atomic<int>>(0);
  backend.Answer("/console/v1/plugin/heartbeat", Reply{503});
  backend.Answer("/auth/v1/user", Reply{200, R"({"email":"u@x.y"})"});
  backend.Answer("/auth/v1/token", Reply{200, Dump({{"access_token", Jwt({{"exp", clock.now + 30}})}})});
  backend.Answer("/rest/v1/auth_relay", [this, relayRound](const SeenRequest&) {
    return ++*relayRound % 3 != 0 ? Reply{200, "[]"}
                                 : Reply{200, Dump(Json::array({{{"session_payload", {{"access_token", Jwt({{"exp", clock.now + 10}})},
                                                                                      {"refresh_token", "r"}}}}}))};
  });
  UseSettings([](AuthSettings& settings) {
    settings.timerFirstDelay = 1ms;
    settings.timerPeriod = 3ms;
  });
  std::vector<std::function<void()>> calls = {
      FcpAuthMaintain, FcpAuthLogin, FcpAuthLogout, FcpAuthOpenSite, FcpAuthOpenSignup,
      [] { FcpAuthHasSession(); }, [] { FcpAuthSignedIn(); }, [] { FcpAuthBusy(); },
      [] { FcpAuthStatus(); }, [] { FcpAuthStatusIsError(); }, [] { FcpAuthEmail(); }};
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 8; ++t) {
    threads.emplace_back([&calls, t] {
      for (size_t i = 0; i < 60; ++i) {
        calls[(t + i * 7) % calls.size()]();
        std::this_thread::sleep_for(1ms);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(relayRound->load(), 0);
}

}  // namespace
}  // namespace orvistelle::auth::testing
