#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "orvistelle/FcpUpdate.h"
#include "platform/testing/FaultInjection.h"
#include "platform/testing/LoopbackServer.h"
#include "update/DismissalFile.h"
#include "update/UpdateTesting.h"
#include "update/tests/TestSupport.h"

namespace orvistelle::update {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
namespace fault = platform::fault;

constexpr double kSixHours = 21600.0;
constexpr char kZipPath[] = "/orvistelle/vask/fcp/orvistelle-fcp-macos-latest.zip";

std::string Manifest(const json& fcp) { return json{{"hosts", {{"fcp", fcp}}}, {"schema", 2}}.dump(); }

std::string Manifest(const std::string& version, const std::string& forceBelow) {
  return Manifest(json{{"version", version}, {"force_below", forceBelow}, {"notes", "Faster skin smoothing."},
                       {"download_page", "https://example.test/get"},
                       {"download_macos", "https://example.test/get/orvistelle-1.2.0.zip"}});
}

class UpdateCheck : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetForTesting();
    SetDownloadBaseURLForTesting(server.BaseURL());
    fakes.bundle.SetInfo("CFBundleShortVersionString", "1.1.5");
  }
  void TearDown() override {
    server.Release();
    ResetForTesting();
  }

  // One maintenance call that is due, run to its end.
  void Check() {
    FcpUpdateMaintain();
    ASSERT_TRUE(WaitForCheckForTesting(20s));
  }
  void CheckLater(double seconds = kSixHours) {
    fakes.clock.Advance(seconds);
    Check();
  }
  std::string DismissFile() const {
    return fakes.homeFolder.path().string() + "/Library/Application Support/Orvistelle/fcp-update-dismiss.json";
  }

  testing::FakeSystem fakes;
  testing::ManifestServer server;
};

TEST_F(UpdateCheck, GoodManifestReplacesState) {
  server.Answer(200, Manifest("1.2.0", "1.1.0"));
  Check();
  EXPECT_EQ(FcpUpdateLatestVersion(), "1.2.0");
  EXPECT_EQ(FcpUpdateNotes(), "Faster skin smoothing.");
  EXPECT_EQ(FcpUpdateDownloadURL(), "https://example.test/get/orvistelle-1.2.0.zip");
  EXPECT_EQ(fakes.log.Take(),
            std::vector<std::string>{"[Orvistelle] update check host=fcp latest=1.2.0 force_below=1.1.0"});
}

TEST_F(UpdateCheck, MistypedOrMissingValuesReadAsEmptyAndTheDownloadFallsBackToTheZip) {
  for (const json& fcp : {json{{"version", "1.2.0"}, {"download_page", "https://example.test/get"}},
                          json{{"version", "1.2.0"}, {"download_macos", ""}},
                          json{{"version", "1.2.0"}, {"notes", 3}, {"force_below", nullptr}, {"download_macos", 5}}}) {
    SCOPED_TRACE(fcp.dump());
    server.Answer(200, Manifest(fcp));
    CheckLater();
    EXPECT_EQ(FcpUpdateLatestVersion(), "1.2.0");
    EXPECT_EQ(FcpUpdateNotes(), "");
    EXPECT_FALSE(FcpUpdateForced());
    EXPECT_EQ(FcpUpdateDownloadURL(), server.BaseURL() + kZipPath);
  }
  server.Answer(200, Manifest(json{{"version", json::array({"1.3.0"})}}));
  CheckLater();
  EXPECT_EQ(FcpUpdateLatestVersion(), "");
}

TEST_F(UpdateCheck, EveryFailureKeepsTheLastGoodAnswer) {
  server.Answer(200, Manifest("1.2.0", "1.0.0"));
  Check();
  fakes.log.Take();
  struct Failure {
    int status;
    std::string body;
    std::vector<std::string> log;
  };
  const std::string missing = "[Orvistelle] update check: missing hosts.fcp";
  for (const Failure& failure : std::vector<Failure>{
           {404, "{}", {"[Orvistelle] update check failed (404)"}},
           {500, Manifest("9.0.0", "9.0.0"), {"[Orvistelle] update check failed (500)"}},
           {200, "", {"[Orvistelle] update check failed (200)"}},
           {200, R"([{"hosts": {}}])", {}},
           {200, R"({"hosts": )", {}},
           {200, "\"1.3.0\"", {}},
           {200, "{}", {missing}},
           {200, R"({"hosts": []})", {missing}},
           {200, R"({"hosts": {"fcp": "1.3.0"}})", {missing}},
           {200, R"({"hosts": {"fcpx": {"version": "1.3.0"}}})", {missing}}}) {
    SCOPED_TRACE(std::to_string(failure.status) + " " + failure.body);
    server.Answer(failure.status, failure.body);
    CheckLater();
    EXPECT_EQ(fakes.log.Take(), failure.log);
    EXPECT_EQ(FcpUpdateLatestVersion(), "1.2.0");
    EXPECT_EQ(FcpUpdateNotes(), "Faster skin smoothing.");
    EXPECT_TRUE(FcpUpdateSoftAvailable());
    EXPECT_EQ(FcpUpdateDownloadURL(), "https://example.test/get/orvistelle-1.2.0.zip");
  }
  for (const fault::Misbehaviour& peerFault :
       {fault::Misbehaviour{"refused", nullptr, 0}, {"reset mid-body", fault::ResetMidBody, 0},
        {"500 with an HTML page", fault::HtmlServerError, 500}, {"not HTTP", fault::NotHttp, 0},
        {"redirect to a file", [] { return fault::RedirectTo("file:///etc/passwd"); }, 0},
        {"100 MB without a length", fault::Flood, 0}}) {
    std::optional<fault::RawPeer> peer;
    if (peerFault.make) peer.emplace(peerFault.make());
    SetDownloadBaseURLForTesting(peer ? peer->BaseURL() : testing::kRefusingBaseURL);
    CheckLater();
    EXPECT_EQ(fakes.log.Take(), std::vector<std::string>{"[Orvistelle] update check failed (" +
                                                         std::to_string(peerFault.status) + ")"}) << peerFault.name;
    EXPECT_EQ(FcpUpdateLatestVersion(), "1.2.0") << peerFault.name;
    EXPECT_TRUE(FcpUpdateSoftAvailable()) << peerFault.name;
  }
}

TEST_F(UpdateCheck, ForcedFollowsForceBelowAndSoftNeedsANewerUnforcedVersion) {
  const struct {
    std::optional<std::string> installed;
    std::string version, forceBelow;
    bool forced, soft;
  } offers[] = {{"1.0.0", "1.2.0", "1.1.0", true, false}, {"1.1.5", "1.2.0", "1.1.0", false, true},
                {"1.1.0", "1.2.0", "1.1.0", false, true}, {"1.2.0", "1.2.0", "1.3.0", true, false},
                {"1.3.0", "1.2.0", "", false, false},     {"v1.2", "1.2.0", "", false, false},
                {std::nullopt, "0.0.1", "", false, true}, {std::nullopt, "", "0.1", true, false}};
  for (const auto& offer : offers) {
    fakes.bundle.SetInfo("CFBundleShortVersionString", offer.installed);
    server.Answer(200, Manifest(offer.version, offer.forceBelow));
    CheckLater();
    EXPECT_EQ(FcpUpdateForced(), offer.forced) << offer.installed.value_or("none") << " of " << offer.version;
    EXPECT_EQ(FcpUpdateSoftAvailable(), offer.soft) << offer.installed.value_or("none") << " of " << offer.version;
  }
}

TEST_F(UpdateCheck, DismissalHidesThatVersionForADayAndANewerOneAtOnceNot) {
  FcpUpdateDismissSoft();  // before any manifest: matches nothing
  server.Answer(200, Manifest("1.2.0", "1.0.0"));
  Check();
  EXPECT_TRUE(FcpUpdateSoftAvailable());
  FcpUpdateDismissSoft();
  EXPECT_FALSE(FcpUpdateSoftAvailable());
  fakes.clock.Advance(86399.9);
  EXPECT_FALSE(FcpUpdateSoftAvailable());
  fakes.clock.Advance(0.1);
  EXPECT_TRUE(FcpUpdateSoftAvailable());

  FcpUpdateDismissSoft();
  server.Answer(200, Manifest("1.2.1", "1.0.0"));
  CheckLater();
  EXPECT_TRUE(FcpUpdateSoftAvailable());
}

TEST_F(UpdateCheck, DismissalSurvivesARestartInWholeSeconds) {
  server.Answer(200, Manifest("1.2.0", ""));
  Check();
  FcpUpdateDismissSoft();
  std::ifstream file(DismissFile());
  json record = json::parse(file, nullptr, false);
  EXPECT_EQ(record, (json{{"version", "1.2.0"}, {"until", 1'700'086'400}}));

  ResetForTesting();
  SetDownloadBaseURLForTesting(server.BaseURL());
  CheckLater(86399.0);
  EXPECT_FALSE(FcpUpdateSoftAvailable());
  fakes.clock.Advance(0.75);  // the in-memory end was a quarter second later
  EXPECT_TRUE(FcpUpdateSoftAvailable());
}

TEST_F(UpdateCheck, StaleOrMalformedDismissalFilesHideNothing) {
  server.Answer(200, Manifest("1.2.0", ""));
  std::filesystem::create_directories(std::filesystem::path(DismissFile()).parent_path());
  for (const char* content : {R"({"version":"1.2.0","until":0})", R"({"version":"1.2.0","until":1600000000})",
                                     R"({"version":"1.2.0","until":"1800000000"})", R"({"version":"1.2.0"})",
                                     R"({"version":120,"until":1800000000})", R"(["1.2.0",1800000000])", "{"}) {
    SCOPED_TRACE(content);
    ResetForTesting();
    SetDownloadBaseURLForTesting(server.BaseURL());
    std::ofstream(DismissFile(), std::ios::trunc) << content;
    Check();
    EXPECT_TRUE(FcpUpdateSoftAvailable());
  }
  ResetForTesting();
  SetDownloadBaseURLForTesting(server.BaseURL());
  std::ofstream(DismissFile(), std::ios::trunc) << R"({"version":"1.2.0","until":1800000000.5})";
  Check();
  EXPECT_FALSE(FcpUpdateSoftAvailable());
}

// Whatever stands in the way of the file, the dismissal holds for this run, nothing is reported and the obstacle
// stays as it was.
TEST_F(UpdateCheck, UnwritableDismissalStillHoldsInMemory) {
  server.Answer(200, Manifest("1.2.0", ""));
  namespace fs = std::filesystem;
  for (bool supportFolderIsAFile : {true, false}) {
    fs::remove_all(fakes.homeFolder.path() / "Library");
    CheckLater();
    fs::create_directories(fs::path(SupportDir()).parent_path());
    if (supportFolderIsAFile) {
      std::ofstream(SupportDir()) << "not a folder";
    } else {
      fs::create_directories(fs::path(DismissPath()) / "kept");
    }
    auto before = fault::Snapshot(fakes.home.Directory());
    fakes.log.Take();
    FcpUpdateDismissSoft();
    EXPECT_FALSE(FcpUpdateSoftAvailable()) << supportFolderIsAFile;
    EXPECT_TRUE(fakes.log.Take().empty()) << supportFolderIsAFile;
    EXPECT_EQ(fault::Snapshot(fakes.home.Directory()), before) << supportFolderIsAFile;
  }
}

TEST_F(UpdateCheck, OpenDownloadHandsOnlyAWellFormedWebUrlToTheBrowser) {
  FcpUpdateOpenDownload();
  server.Answer(200, Manifest(json{{"version", "1.2.0"}, {"download_macos", "https://example.test/a b.zip"}}));
  CheckLater();
  FcpUpdateOpenDownload();
  for (const char* elsewhere : {"file:///etc/passwd", "javascript:alert(1)", "ftp://example.test/a.zip"}) {
    server.Answer(200, Manifest(json{{"version", "1.2.0"}, {"download_macos", elsewhere}}));
    CheckLater();
    FcpUpdateOpenDownload();
  }
  server.Answer(200, Manifest("1.2.0", ""));
  CheckLater();
  FcpUpdateOpenDownload();
  EXPECT_EQ(fakes.browser.Snapshot(), (std::vector<std::string>{server.BaseURL() + kZipPath,
                                                              "https://example.test/get/orvistelle-1.2.0.zip"}));
}

// The check runs aside: while the server hangs, the host is neither kept waiting nor shown anything new, and no
// second check starts.
TEST_F(UpdateCheck, QuickCallsStartOneCheckEvenWhenTheFirstOutlastsTheInterval) {
  server.Answer(200, Manifest("1.1.9", ""));
  Check();
  server.Answer(200, Manifest("1.2.0", ""));
  server.Hold();
  fakes.clock.Advance(kSixHours);
  auto started = std::chrono::steady_clock::now();
  FcpUpdateMaintain();
  FcpUpdateMaintain();
  EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);  // not the 12 s of the manifest's limit
  EXPECT_FALSE(WaitForCheckForTesting(50ms));
  EXPECT_EQ(FcpUpdateLatestVersion(), "1.1.9");
  fakes.clock.Advance(kSixHours);
  std::vector<std::thread> callers;
  for (int i = 0; i < 8; ++i) callers.emplace_back(FcpUpdateMaintain);
  for (std::thread& caller : callers) caller.join();
  server.Release();
  ASSERT_TRUE(WaitForCheckForTesting(20s));
  EXPECT_EQ(server.Requests(), 2);
  EXPECT_EQ(FcpUpdateLatestVersion(), "1.2.0");
}

TEST_F(UpdateCheck, NextAttemptComesSixHoursAfterTheEndOfAFailedOne) {
  server.Answer(500, "");
  server.OnRequest([this] { fakes.clock.Advance(100); });
  Check();
  CheckLater(kSixHours - 1);
  EXPECT_EQ(server.Requests(), 1);
  CheckLater(1);
  EXPECT_EQ(server.Requests(), 2);
}

}  // namespace
}  // namespace orvistelle::update
