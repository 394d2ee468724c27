#include <gtest/gtest.h>

#include "orvistelle/FcpUpdate.h"
#include "platform/testing/FaultInjection.h"
#include "platform/testing/LoopbackServer.h"
#include "update/DismissalFile.h"
#include "update/UpdateTesting.h"
#include "update/tests/TestSupport.h"

namespace orvistelle::update {
namespace {

using namespace std::chrono_literals;
namespace fault = platform::fault;
using fault::Misbehaviour;
namespace fs = std::filesystem;

constexpr double kSixHours = 21600.0;
constexpr char kManifest[] =
    R"({"hosts":{"fcp":{"version":"1.2.0","force_below":"1.0.0","notes":"Faster skin smoothing.",)"
    R"("download_macos":"https://example.test/orvistelle-1.2.0.zip"}}})";

// Every case starts from a good manifest, which each fault must leave in place.
class FaultUpdateCheck : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetForTesting();
    fakes.bundle.SetInfo("CFBundleShortVersionString", "1.1.5");
    server.Answer(200, kManifest);
    SetDownloadBaseURLForTesting(server.BaseURL());
    Check();
    fakes.log.Take();
  }
  void TearDown() override { ResetForTesting(); }

  void Check() {
    FcpUpdateMaintain();
    ASSERT_TRUE(WaitForCheckForTesting(20s));
  }
  void CheckAgainst(const fault::RawPeer& peer) {
    SetDownloadBaseURLForTesting(peer.BaseURL());
    fakes.clock.Advance(kSixHours);
    Check();
  }
  static void ExpectTheGoodManifest() {
    EXPECT_EQ(FcpUpdateLatestVersion(), "1.2.0");
    EXPECT_EQ(FcpUpdateNotes(), "Faster skin smoothing.");
    EXPECT_TRUE(FcpUpdateSoftAvailable());
    EXPECT_FALSE(FcpUpdateForced());
    EXPECT_EQ(FcpUpdateDownloadURL(), "https://example.test/orvistelle-1.2.0.zip");
  }

  testing::FakeSystem fakes;
  testing::ManifestServer server;
};

class FaultManifestServer : public FaultUpdateCheck, public ::testing::WithParamInterface<Misbehaviour> {};

TEST_P(FaultManifestServer, FailureIsLoggedWithTheStatusAndTheLastAnswerStays) {
  fault::RawPeer peer(GetParam().make());
  CheckAgainst(peer);
  EXPECT_EQ(fakes.log.Take(),
            std::vector<std::string>{"[Orvistelle] update check failed (" + std::to_string(GetParam().status) + ")"});
  ExpectTheGoodManifest();
}

INSTANTIATE_TEST_SUITE_P(
    FaultAnswers, FaultManifestServer,
    ::testing::Values(Misbehaviour{"reset mid-body", fault::ResetMidBody, 0},
                      Misbehaviour{"500 with an HTML page", fault::HtmlServerError, 500},
                      Misbehaviour{"redirect to a file", [] { return fault::RedirectTo("file:///etc/passwd"); }, 0},
                      Misbehaviour{"not HTTP", fault::NotHttp, 0},
                      Misbehaviour{"100 MB without a length", fault::Flood, 0}));

// The check runs aside: while the server hangs, the host is neither kept waiting nor shown anything new, and no
// second check starts. The transport's own time limit is tested with the transport; here the peer gives up first.
TEST_F(FaultUpdateCheck, ServerThatNeverAnswersHoldsNothingUp) {
  fault::Latch latch;
  fault::RawPeer silent(fault::Silent(latch));
  SetDownloadBaseURLForTesting(silent.BaseURL());
  fakes.clock.Advance(kSixHours);
  auto started = std::chrono::steady_clock::now();
  FcpUpdateMaintain();
  // Blocking on the silent peer would take the whole 12 s timeout; the bound leaves room for a loaded machine.
  EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
  ASSERT_TRUE(platform::testing::WaitUntil([&] { return silent.Accepted() == 1; }));
  ExpectTheGoodManifest();
  fakes.clock.Advance(kSixHours);
  FcpUpdateMaintain();
  EXPECT_FALSE(WaitForCheckForTesting(50ms));
  latch.Open();
  ASSERT_TRUE(WaitForCheckForTesting(20s));
  EXPECT_EQ(silent.Accepted(), 1);
  EXPECT_EQ(fakes.log.Take(), std::vector<std::string>{"[Orvistelle] update check failed (0)"});
  ExpectTheGoodManifest();
}

struct Obstacle {
  const char* name;
  bool supportFolderIsAFile;  // else the dismissal file is a folder
};

void PrintTo(const Obstacle& obstacle, std::ostream* out) { *out << obstacle.name; }

class FaultDismissalFile : public FaultUpdateCheck, public ::testing::WithParamInterface<Obstacle> {};

// Whatever stands in the way, the dismissal holds for this run, nothing is reported and the obstacle stays as it was.
TEST_P(FaultDismissalFile, UnwritableDismissalStillHoldsInMemory) {
  fs::create_directories(fs::path(SupportDir()).parent_path());
  if (GetParam().supportFolderIsAFile) {
    std::ofstream(SupportDir()) << "not a folder";
  } else {
    fs::create_directories(fs::path(DismissPath()) / "kept");
  }
  auto before = fault::Snapshot(fakes.home.Directory());
  FcpUpdateDismissSoft();
  EXPECT_FALSE(FcpUpdateSoftAvailable());
  EXPECT_TRUE(fakes.log.Take().empty());
  EXPECT_EQ(fault::Snapshot(fakes.home.Directory()), before);
}

INSTANTIATE_TEST_SUITE_P(FaultObstacles, FaultDismissalFile,
                         ::testing::Values(Obstacle{"support folder is a file", true},
                                           Obstacle{"dismissal file is a folder", false}));

}  // namespace
}  // namespace orvistelle::update
