#include <regex>

#include "auth/Background.h"
#include "auth/Heartbeat.h"
#include "auth/tests/TestSupport.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::auth::testing {
namespace {

const char kHeartbeat[] = "/console/v1/plugin/heartbeat";

class Heartbeat : public AuthTest {
 protected:
  size_t Report() {  // one maintenance pass's worth: the day test, then the report finished
    ReportHeartbeatIfNeeded();
    WaitForBackgroundTasks();
    return backend.Seen(kHeartbeat).size();
  }
};

TEST_F(Heartbeat, ReportsOncePerUtcDayWithTheSameInstallId) {
  backend.Answer(kHeartbeat, Reply{200, "not json"});
  bundle.ReplaceInfo({{"CFBundleShortVersionString", "2.1.0"}, {"CFBundleVersion", "57"}});
  clock.Set(1709251199);  // 2024-02-29 23:59:59 UTC
  EXPECT_EQ(Report(), 1u);
  EXPECT_EQ(Read("fcp-heartbeat-day.txt"), "2024-02-29");
  Write("fcp-heartbeat-day.txt", "2024-02-29\n");
  EXPECT_EQ(Report(), 1u);
  clock.Set(1709251200);  // midnight: a new UTC day
  EXPECT_EQ(Report(), 2u);
  EXPECT_EQ(Read("fcp-heartbeat-day.txt"), "2024-03-01");
  std::string id = Read("fcp-install-id.txt").value_or("");
  EXPECT_TRUE(std::regex_match(id, std::regex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")));
  for (SeenRequest seen : backend.Seen(kHeartbeat)) {
    EXPECT_EQ(seen.method + " " + seen.target + " " + seen.headers["authorization"],
              std::string("POST /console/v1/plugin/heartbeat Bearer ") + config::kPublicApiKey);
    EXPECT_EQ(
        seen.body,
        Dump({{"host", "fcp"}, {"installId", id}, {"platform", "macos"}, {"product", "vask"}, {"version", "2.1.0"}}));
  }
}

TEST_F(Heartbeat, FailuresAreLoggedAndRetriedOnTheNextPass) {
  backend.Answer(kHeartbeat, Reply{503});
  Write("fcp-install-id.txt", "  kept-id\n");
  EXPECT_EQ(Report(), 1u);
  EXPECT_EQ(Report(), 2u);
  EXPECT_FALSE(Read("fcp-heartbeat-day.txt"));
  EXPECT_EQ((*JsonObject(backend.Seen(kHeartbeat)[1].body))["installId"], "kept-id");
  UseSettings([](AuthSettings& settings) { settings.apiBaseURL = "http://127.0.0.1:1"; });
  Report();
  EXPECT_EQ(log.Snapshot(),
            (std::vector<std::string>{"[Orvistelle] heartbeat failed (503)", "[Orvistelle] heartbeat failed (503)",
                                      "[Orvistelle] heartbeat failed (0)"}));
}

TEST_F(Heartbeat, OneReportInFlightAtATime) {
  backend.Answer(kHeartbeat, Held(Reply{}));
  ReportHeartbeatIfNeeded();
  ASSERT_TRUE(WaitUntil([&] { return backend.Seen(kHeartbeat).size() == 1; }));
  ReportHeartbeatIfNeeded();
  release = true;
  EXPECT_EQ(Report(), 1u);
}

TEST_F(Heartbeat, VersionFallsBackToTheBuildNumberThenZero) {
  backend.Answer(kHeartbeat, Reply{500});
  using Info = std::map<std::string, std::string>;
  for (auto [info, version] : std::vector<std::pair<Info, std::string>>{
           {{{"CFBundleShortVersionString", ""}, {"CFBundleVersion", "57"}}, "57"},
           {{{"CFBundleVersion", ""}}, ""},
           {{{"CFBundleShortVersionString", "1.0"}}, "1.0"},
           {{}, "0"}}) {
    bundle.ReplaceInfo(info);
    Report();
    EXPECT_EQ((*JsonObject(backend.Seen(kHeartbeat).back().body))["version"], version);
  }
}

}  // namespace
}  // namespace orvistelle::auth::testing
