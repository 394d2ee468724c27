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
  // One maintenance pass's worth: the day test, then the report finished.
  size_t Report() {
    ReportHeartbeatIfNeeded();
    WaitForBackgroundTasks();
    return backend.Seen(kHeartbeat).size();
  }
};

TEST_F(Heartbeat, ReportsOncePerUtcDayWithTheSameInstallId) {
  backend.Answer(kHeartbeat, Reply{200, "not json"});
  bundle.info = {{"CFBundleShortVersionString", "2.1.0"}, {"CFBundleVersion", "57"}};
  clock.now = 1709251199;  // 2024-02-29 23:59:59 UTC
  EXPECT_EQ(Report(), 1u);
  EXPECT_EQ(Report(), 1u);
  EXPECT_EQ(ReadSupportFile("fcp-heartbeat-day.txt"), "2024-02-29");
  clock.now = 1709251200;  // midnight: a new UTC day
  EXPECT_EQ(Report(), 2u);
  EXPECT_EQ(ReadSupportFile("fcp-heartbeat-day.txt"), "2024-03-01");

  std::optional<std::string> id = ReadSupportFile("fcp-install-id.txt");
  ASSERT_TRUE(id);
  EXPECT_TRUE(std::regex_match(*id, std::regex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")));
  for (SeenRequest seen : backend.Seen(kHeartbeat)) {
    EXPECT_EQ(seen.method, "POST");
    EXPECT_EQ(seen.target, kHeartbeat);
    EXPECT_EQ(seen.headers["apikey"], config::kPublicApiKey);
    EXPECT_EQ(seen.headers["authorization"], std::string("Bearer ") + config::kPublicApiKey);
    EXPECT_EQ(seen.headers["content-type"], "application/json");
    EXPECT_EQ(seen.body, Dump({{"host", "fcp"}, {"installId", *id}, {"platform", "macos"}, {"product", "vask"},
                               {"version", "2.1.0"}}));
  }
}

TEST_F(Heartbeat, FailuresAreLoggedAndRetriedOnTheNextPass) {
  backend.Answer(kHeartbeat, Reply{503});
  EXPECT_EQ(Report(), 1u);
  EXPECT_EQ(Report(), 2u);
  EXPECT_FALSE(ReadSupportFile("fcp-heartbeat-day.txt"));
  UseSettings([](AuthSettings& settings) { settings.apiBaseURL = "http://127.0.0.1:1"; });
  Report();
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"[Orvistelle] heartbeat failed (503)",
                                                   "[Orvistelle] heartbeat failed (503)",
                                                   "[Orvistelle] heartbeat failed (0)"}));
}

TEST_F(Heartbeat, StoredDayAndIdAreReadTrimmed) {
  backend.Answer(kHeartbeat, Reply{});
  WriteSupportFile("fcp-heartbeat-day.txt", "2023-11-14\n");
  EXPECT_EQ(Report(), 0u);
  WriteSupportFile("fcp-heartbeat-day.txt", "2023-11-13");
  WriteSupportFile("fcp-install-id.txt", "  kept-id\n");
  EXPECT_EQ(Report(), 1u);
  EXPECT_EQ((*JsonObject(backend.Seen(kHeartbeat)[0].body))["installId"], "kept-id");
  EXPECT_EQ(ReadSupportFile("fcp-install-id.txt"), "  kept-id\n");
}

TEST_F(Heartbeat, OneReportInFlightAtATime) {
  backend.Answer(kHeartbeat, [this](const SeenRequest&) { gate.Wait(); return Reply{}; });
  ReportHeartbeatIfNeeded();
  ASSERT_TRUE(WaitUntil([&] { return backend.Seen(kHeartbeat).size() == 1; }));
  ReportHeartbeatIfNeeded();
  gate.Open();
  WaitForBackgroundTasks();
  EXPECT_EQ(backend.Seen(kHeartbeat).size(), 1u);
}

TEST_F(Heartbeat, VersionFallsBackToTheBuildNumberThenZero) {
  backend.Answer(kHeartbeat, Reply{500});
  using Info = std::map<std::string, std::string>;
  for (auto [info, version] : {std::pair<Info, std::string>{{{"CFBundleShortVersionString", ""}, {"CFBundleVersion", "57"}}, "57"},
                               {{{"CFBundleVersion", ""}}, ""}, {{{"CFBundleShortVersionString", "1.0"}}, "1.0"},
                               {{}, "0"}}) {
    bundle.info = info;
    Report();
    EXPECT_EQ((*JsonObject(backend.Seen(kHeartbeat).back().body))["version"], version);
  }
}

}  // namespace
}  // namespace orvistelle::auth::testing
