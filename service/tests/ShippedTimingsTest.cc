#include <gtest/gtest.h>

#include "auth/AuthTesting.h"
#include "auth/Http.h"
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
  const struct {
    const char* name;
    std::chrono::milliseconds actual, shipped;
  } rows[] = {
      {"sign-in poll interval", settings.pollInterval, 1s},
      {"first maintenance pass", settings.timerFirstDelay, 30s},
      {"maintenance period", settings.timerPeriod, 30s},
      {"backend silence", backend->idle, 20s},
      {"backend wait", backend->wait, 22s},
      {"manifest silence", manifest.idle, 12s},
      {"manifest wait", manifest.wait, 14s},
      {"default silence", plain.idle, 20s},
      {"default wait", plain.wait, 22s},
  };
  for (const auto& row : rows) EXPECT_EQ(row.actual, row.shipped) << row.name;
  EXPECT_EQ(backend->sameOriginRedirects, 0);  // a token or body is never re-sent after a redirect
  EXPECT_EQ(manifest.sameOriginRedirects, 3);
  EXPECT_EQ(plain.sameOriginRedirects, 0);
  const std::pair<size_t, size_t> limits[] = {{platform::kMaxResponseBytes, 8u << 20},
                                              {platform::kStateFileLimit, 64u << 10},
                                              {platform::kDiagnosticsLogLimit, 256u << 10}};
  for (const auto& [limit, shipped] : limits) EXPECT_EQ(limit, shipped);
}

}  // namespace
}  // namespace orvistelle
