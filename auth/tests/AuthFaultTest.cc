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

TEST_F(FaultMaintenance, MisbehavingPeersLeaveTheSessionAndLogTheHeartbeat) {
  for (const Misbehaviour& peerFault :
       {Misbehaviour{"reset mid-body", fault::ResetMidBody, 0}, {"500 with an HTML page", fault::HtmlServerError, 500},
        {"redirect to a file", [] { return fault::RedirectTo("file:///etc/passwd"); }, 0},
        {"not HTTP", fault::NotHttp, 0}}) {
    SCOPED_TRACE(peerFault.name);
    fault::RawPeer peer(peerFault.make());
    PointAt(peer);
    RefreshIfNeeded();
    WaitForBackgroundTasks();
    ExpectEverythingKept(peerFault.status);
    log.Take();
  }
}

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

// Whatever keeps the session from being saved, the failure is shown while the session lives on in memory, and
// the folder stays as it was: every state file goes through a temporary file, so a full disk leaves the previous
// session and day whole.
TEST_F(FaultAuthTest, UnsavableSessionIsShownKeptInMemoryAndLeavesTheFolderAlone) {
  const auto signIn = [this] {
    ApplyAccessToken({Jwt({{"email", "u@x.y"}}), "r1", 3600, ""}, CurrentLoginGeneration(), FileRule::kReplace);
    return Outcome() + ", " + FcpAuthEmail() + (WriteStateFile(HeartbeatDayPath(), "2023-11-14") ? "" : ", day written");
  };
  const struct {
    const char* obstacle;
    std::function<std::optional<std::string>()> run;
    int error;
  } rows[] = {
      {"support folder is a file", [&] { return std::optional(signIn()); }, ENOTDIR},
      {"read-only folder", [&] { return fault::WithReadOnlyFolder(SupportDir(), signIn); },
       geteuid() == 0 ? EROFS : EACCES},
      {"full disk", [&] { return fault::WithFileSizeLimit(8, signIn); }, EFBIG},
  };
  for (const auto& row : rows) {
    ClearSessionState();
    fs::remove_all(home.path() / "Library");
    if (row.error != ENOTDIR) {
      Write("fcp-session.json", kSession);
      Write("fcp-heartbeat-day.txt", "2023-11-13");
      Write("fcp-session.lock", "");  // the lock beside the file outlives every save
    } else {
      fs::create_directories(fs::path(SupportDir()).parent_path());
      std::ofstream(SupportDir()) << "not a folder";
    }
    const auto before = fault::Snapshot(home.path());
    std::optional<std::string> outcome = row.run();
    if (!outcome && row.error != EFBIG) continue;  // no read-only folder without a mount namespace for root
    ASSERT_TRUE(outcome) << row.obstacle;
    EXPECT_EQ(*outcome, "Could not save sign-in state: " + std::string(std::strerror(row.error)) + " (error), signed in, u@x.y")
        << row.obstacle;
    EXPECT_EQ(fault::Snapshot(home.path()), before) << row.obstacle;
  }
}

// Where no heartbeat day can be recorded, the accepted heartbeat goes again next pass with a fresh id, silently.
TEST_F(FaultAuthTest, UnrecordableHeartbeatGoesAgainWithAFreshId) {
  backend.Answer(kHeartbeat, Reply{});
  fs::create_directories(fs::path(SupportDir()).parent_path());
  std::ofstream(SupportDir()) << "not a folder";
  for (size_t pass = 1; pass <= 2; ++pass) {
    ReportHeartbeatIfNeeded();
    WaitForBackgroundTasks();
    EXPECT_EQ(backend.Seen(kHeartbeat).size(), pass);
  }
  auto ids = backend.Seen(kHeartbeat);
  EXPECT_NE((*JsonObject(ids[0].body))["installId"], (*JsonObject(ids[1].body))["installId"]);
  EXPECT_TRUE(log.Snapshot().empty());
}

}  // namespace
}  // namespace orvistelle::auth::testing
