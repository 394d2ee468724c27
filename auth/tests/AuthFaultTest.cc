#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "auth/Background.h"
#include "auth/Files.h"
#include "auth/Heartbeat.h"
#include "auth/Maintenance.h"
#include "auth/Session.h"
#include "auth/tests/TestSupport.h"
#include "orvistelle/FcpAuth.h"
#include "platform/testing/FaultInjection.h"
#include "platform/testing/LoopbackServer.h"

namespace orvistelle::auth::testing {
namespace {

namespace fault = platform::fault;
using fault::Misbehaviour;
namespace fs = std::filesystem;

const char kHeartbeat[] = "/console/v1/plugin/heartbeat";
const std::string kSession =
    Dump({{"access_token", "a1"}, {"refresh_token", "r1"}, {"email", "e@x.y"}, {"expires_at", 1'700'000'010}});

// The status line with its error flag and whether a session is held: one line that a child process can hand back.
class FaultAuthTest : public AuthTest {
 protected:
  std::string Outcome() { return Status() + (FcpAuthSignedIn() ? ", signed in" : ""); }
};

// A session due for renewal and yesterday's heartbeat: one pass sends both requests to the misbehaving peer.
class FaultMaintenance : public FaultAuthTest {
 protected:
  FaultMaintenance() {
    Write("fcp-session.json", kSession);
    Write("fcp-heartbeat-day.txt", "2023-11-13");
  }
  void PointAt(const fault::RawPeer& peer) {
    UseSettings([&peer](AuthSettings& settings) { settings.authBaseURL = settings.apiBaseURL = peer.BaseURL(); });
  }
  // Neither failure ends the session or moves the day on; only the heartbeat's is logged.
  void ExpectEverythingKept(int64_t status) {
    EXPECT_EQ(LastRefreshStatus(), status);
    EXPECT_EQ(CurrentSession().access, "a1");
    EXPECT_EQ(Read("fcp-session.json"), kSession);
    EXPECT_EQ(Read("fcp-heartbeat-day.txt"), "2023-11-13");
    EXPECT_EQ(Outcome(), "e@x.y, signed in");
    EXPECT_EQ(log.Snapshot(),
              std::vector<std::string>{"[Orvistelle] heartbeat failed (" + std::to_string(status) + ")"});
  }
};

class FaultBackend : public FaultMaintenance, public ::testing::WithParamInterface<Misbehaviour> {};

TEST_P(FaultBackend, PassKeepsTheSessionAndLogsTheHeartbeat) {
  fault::RawPeer peer(GetParam().make());
  PointAt(peer);
  RefreshIfNeeded();
  WaitForBackgroundTasks();
  ExpectEverythingKept(GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(
    FaultAnswers, FaultBackend,
    ::testing::Values(Misbehaviour{"reset mid-body", fault::ResetMidBody, 0},
                      Misbehaviour{"500 with an HTML page", fault::HtmlServerError, 500},
                      Misbehaviour{"redirect to a file", [] { return fault::RedirectTo("file:///etc/passwd"); }, 0},
                      Misbehaviour{"not HTTP", fault::NotHttp, 0}));

// While both requests hang, every query answers at once from memory. The transport's own time limit is tested with
// the transport; here the peer gives up first.
TEST_F(FaultMaintenance, ServerThatNeverAnswersHoldsUpNoQuery) {
  fault::Latch latch;
  fault::RawPeer silent(fault::Silent(latch));
  PointAt(silent);
  std::thread pass(RefreshIfNeeded);
  ASSERT_TRUE(WaitUntil([&] { return silent.Accepted() == 2; }));
  auto started = std::chrono::steady_clock::now();
  EXPECT_TRUE(FcpAuthSignedIn());
  EXPECT_EQ(FcpAuthEmail(), "e@x.y");
  EXPECT_FALSE(FcpAuthBusy());
  // Blocking on the silent peer would take the whole 20 s timeout; the bound leaves room for a loaded machine.
  EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
  latch.Open();
  pass.join();
  WaitForBackgroundTasks();
  ExpectEverythingKept(0);
}

class FaultSessionStore : public FaultAuthTest {
 protected:
  void SignIn() {
    ApplyAccessToken({Jwt({{"email", "u@x.y"}}), "r1", 3600, ""}, CurrentLoginGeneration(), FileRule::kReplace);
  }
};

// The save failure is shown while the session lives on in memory; the heartbeat is accepted but can be recorded
// nowhere, so it goes again next pass with a fresh id, silently; the file in the way stays as it was.
TEST_F(FaultSessionStore, SupportFolderThatIsAFile) {
  backend.Answer(kHeartbeat, Reply{});
  fs::create_directories(fs::path(SupportDir()).parent_path());
  std::ofstream(SupportDir()) << "not a folder";
  const auto before = fault::Snapshot(home.path());
  SignIn();
  EXPECT_EQ(Outcome(), "Could not save sign-in state: " + std::string(std::strerror(ENOTDIR)) + " (error), signed in");
  EXPECT_EQ(FcpAuthEmail(), "u@x.y");
  for (size_t pass = 1; pass <= 2; ++pass) {
    ReportHeartbeatIfNeeded();
    WaitForBackgroundTasks();
    EXPECT_EQ(backend.Seen(kHeartbeat).size(), pass);
  }
  auto ids = backend.Seen(kHeartbeat);
  EXPECT_NE((*JsonObject(ids[0].body))["installId"], (*JsonObject(ids[1].body))["installId"]);
  EXPECT_TRUE(log.Snapshot().empty());
  EXPECT_EQ(fault::Snapshot(home.path()), before);
}

TEST_F(FaultSessionStore, ReadOnlySupportFolder) {
  Write("fcp-heartbeat-day.txt", "2023-11-13");
  const auto before = fault::Snapshot(home.path());
  std::optional<std::string> outcome = fault::WithReadOnlyFolder(SupportDir(), [this] {
    SignIn();
    return Outcome();
  });
  if (!outcome) GTEST_SKIP() << "no read-only folder can be had here: no mount namespace for root";
  const std::string reason = std::strerror(geteuid() == 0 ? EROFS : EACCES);
  EXPECT_EQ(*outcome, "Could not save sign-in state: " + reason + " (error), signed in");
  EXPECT_EQ(fault::Snapshot(home.path()), before);
}

// Every state file goes through a temporary file: a full disk leaves the previous session and day whole, and no
// temporary file behind.
TEST_F(FaultSessionStore, FullDisk) {
  Write("fcp-session.json", kSession);
  Write("fcp-heartbeat-day.txt", "2023-11-13");
  std::optional<std::string> outcome = fault::WithFileSizeLimit(8, [this] {
    SignIn();
    return Outcome() + (WriteStateFile(HeartbeatDayPath(), "2023-11-14") ? "" : ", day written");
  });
  ASSERT_TRUE(outcome);
  EXPECT_EQ(*outcome, "Could not save sign-in state: " + std::string(std::strerror(EFBIG)) + " (error), signed in");
  EXPECT_EQ(Read("fcp-session.json"), kSession);
  EXPECT_EQ(Read("fcp-heartbeat-day.txt"), "2023-11-13");
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(SupportDir())) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"fcp-heartbeat-day.txt", "fcp-session.json", "fcp-session.lock"}));
}

}  // namespace
}  // namespace orvistelle::auth::testing
