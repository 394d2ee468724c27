#include <gtest/gtest.h>

#include <tuple>

#include "auth/AuthTesting.h"
#include "auth/Http.h"
#include "orvistelle/BuildConfig.h"
#include "platform/DiagnosticsLog.h"
#include "platform/StateFile.h"
#include "update/Manifest.h"

namespace orvistelle {
namespace {

using namespace std::chrono_literals;

// The timings and limits the product ships with, asserted once here: every other test runs them faster or smaller.
TEST(ShippedTimings, AreTheBuiltInOnes) {
  const auth::AuthSettings settings = auth::ProductionSettings();
  const auto backend = auth::BackendRequest("GET", "http://127.0.0.1/", "", {}, "");
  const platform::HttpRequest manifest = update::ManifestRequest("http://127.0.0.1/latest.json"), plain;
  ASSERT_TRUE(backend);
  // Rows: sign-in polls, maintenance (first pass, period); per kind of request, the silence and the whole wait it
  // gives up after and the redirects it follows (a token or body is never re-sent after one); byte limits.
  EXPECT_EQ(std::tuple(settings.authBaseURL, settings.apiBaseURL), std::tuple(config::kAuthURL, config::kApiURL));
  EXPECT_EQ(std::tuple(settings.pollInterval, settings.timerFirstDelay, settings.timerPeriod),
            std::tuple(1s, 30s, 30s));
  // Refresh: the silence after which an answer counts as lost, the pauses before the retries, the wait for another
  // process's lock.
  EXPECT_EQ(std::tuple(settings.refreshIdle, settings.refreshRetryDelays, settings.lockWait),
            std::tuple(6s, std::vector<std::chrono::milliseconds>{1s, 2s, 4s}, 30s));
  EXPECT_EQ(std::tuple(backend->idle, backend->wait, backend->sameOriginRedirects), std::tuple(20s, 22s, 0));
  EXPECT_EQ(std::tuple(manifest.idle, manifest.wait, manifest.sameOriginRedirects), std::tuple(12s, 14s, 3));
  EXPECT_EQ(std::tuple(plain.idle, plain.wait, plain.sameOriginRedirects), std::tuple(20s, 22s, 0));
  EXPECT_EQ(std::tuple(platform::kMaxResponseBytes, platform::kStateFileLimit, platform::kDiagnosticsLogLimit),
            std::tuple(8u << 20, 64u << 10, 256u << 10));
}

}  // namespace
}  // namespace orvistelle
