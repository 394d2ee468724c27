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
  std::vector<std::function<void()>> calls = {FcpAuthMaintain,
                                              FcpAuthLogin,
                                              FcpAuthLogout,
                                              FcpAuthOpenSite,
                                              FcpAuthOpenSignup,
                                              [] { FcpAuthHasSession(); },
                                              [] { FcpAuthBusy(); },
                                              [] { FcpAuthStatus(); },
                                              [] { FcpAuthStatusIsError(); },
                                              [] { FcpAuthEmail(); }};
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 8; ++t) {
    threads.emplace_back([&calls, t] {
      for (size_t i = 0; i < 60; ++i, std::this_thread::sleep_for(1ms)) calls[(t + i * 7) % calls.size()]();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(round->load(), 0);
}

}  // namespace
}  // namespace orvistelle::auth::testing
