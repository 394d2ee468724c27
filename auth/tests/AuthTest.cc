#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>

#include "auth/AccessClaims.h"
#include "auth/AuthTesting.h"
#include "auth/Background.h"
#include "auth/Heartbeat.h"
#include "auth/Http.h"
#include "auth/Maintenance.h"
#include "auth/Session.h"
#include "auth/Status.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpAuth.h"
#include "platform/Base64.h"
#include "platform/Json.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/FaultInjection.h"
#include "platform/testing/LoopbackServer.h"

// A loopback backend that records what it is sent, and a fixture with every seam the account session uses faked.
namespace orvistelle::auth::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using platform::Json, platform::JsonObject, platform::Dump, platform::EncodeBase64Url, platform::testing::WaitUntil;

struct Reply { int status = 200; std::string body = "{}"; };
using Responder = std::function<Reply(const httplib::Request&)>;
const char kRelay[] = "/rest/v1/auth_relay";

// Records every request by path and answers it as the test said; other paths get 404.
class Backend {
 public:
  void Answer(const std::string& path, Responder responder) {
    std::lock_guard lock(mutex_);
    responders_[path] = std::move(responder);
  }
  void Answer(const std::string& path, Reply reply) { Answer(path, [reply](auto&) { return reply; }); }
  std::vector<httplib::Request> Seen(const std::string& path) {
    std::lock_guard lock(mutex_);
    return seen_[path];
  }
  std::string BaseURL() const { return server_.BaseURL(); }

 private:
  std::mutex mutex_;
  std::map<std::string, Responder> responders_;
  std::map<std::string, std::vector<httplib::Request>> seen_;
  platform::testing::LoopbackServer server_{[this](httplib::Server& server) {
    auto handle = [this](const httplib::Request& request, httplib::Response& response) {
      std::unique_lock lock(mutex_);
      seen_[request.path].push_back(request);
      Responder responder = responders_[request.path];
      lock.unlock();
      Reply reply = responder ? responder(request) : Reply{404};
      response.status = reply.status;
      response.set_content(reply.body, "application/json");
    };
    server.Get(".*", handle);
    server.Post(".*", handle);
  }};
};

// A JWT with the given claims and a signature nobody checks.
std::string Jwt(const Json& claims) { return "eyJhbGciOiJIUzI1NiJ9." + EncodeBase64Url(Dump(claims)) + ".c2ln"; }

// Every seam faked, a private home folder, the module pointed at the backend with fast polls and a timer that only
// fires when a test asks. The module is reset afterwards.
class AuthTest : public ::testing::Test {
 protected:
  AuthTest() { Restart(); }
  ~AuthTest() override { release = true, ResetAuthForTesting(); }
  void Restart(const std::function<void(AuthSettings&)>& change = [](AuthSettings&) {}) {
    ResetAuthForTesting(), release = false;
    AuthSettings settings{.authBaseURL = backend.BaseURL(), .apiBaseURL = backend.BaseURL(), .pollInterval = 2ms,
                          .timerFirstDelay = 1h, .timerPeriod = 1h, .refreshRetryDelays = {1ms, 2ms, 4ms}};
    change(settings);
    SetAuthSettingsForTesting(settings);
  }
  Responder Held(Reply reply) {  // answers once `release` is set
    return [this, reply](const httplib::Request&) { return WaitUntil([this] { return release.load(); }, 10s), reply; };
  }
  size_t Polls(const std::string& flowId = "") {  // sign-in polls, or those of one flow
    size_t polls = 0;
    for (const httplib::Request& poll : backend.Seen(kRelay)) polls += poll.target.find(flowId) != poll.target.npos;
    return polls;
  }
  std::string FlowId() {  // of the last sign-in page opened
    std::string url = browser.Snapshot().back();
    return url.substr(url.find("flowId=") + 7);
  }
  std::string Status() { return FcpAuthStatus() + (FcpAuthStatusIsError() ? " (error)" : ""); }
  fs::path Support(const std::string& name) const { return home.path() / ".local/share/orvistelle" / name; }
  void Write(const std::string& name, const std::string& contents) const {
    fs::create_directories(Support("."));
    std::ofstream(Support(name), std::ios::binary) << contents;
  }
  std::optional<std::string> Read(const std::string& name) const {
    std::ifstream file(Support(name), std::ios::binary);
    return file ? std::optional(std::string(std::istreambuf_iterator<char>(file), {})) : std::nullopt;
  }
  void SignedIn(double expiry, const std::string& email = "e@x.y") const {
    Write("fcp-session.json",
          Dump({{"access_token", "a1"}, {"refresh_token", "r1"}, {"email", email}, {"expires_at", int64_t(expiry)}}));
  }

  std::atomic<bool> release{false};  // outlives the backend, whose handlers may wait on it
  Backend backend;
  platform::testing::TempDir home;
  platform::testing::FakeClock clock;
  platform::testing::FakeHome fakeHome{home.path().string()};
  platform::testing::RecordingBrowser browser;
  platform::testing::RecordingLog log;
  platform::testing::FakeBundle bundle;
  platform::testing::FakeLanguages languages{{"en-US"}};
  platform::testing::ScopedFakes seams_{&clock, &fakeHome, &browser, &log, &bundle, &languages};
};

const char kHeartbeat[] = "/console/v1/plugin/heartbeat";
const std::string kKey = config::kPublicApiKey;
const Reply kRotated{200, R"({"access_token":"a2","refresh_token":"r2"})"};

const std::regex kUuid("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");

Reply Row(const Json& payload) { return {200, Dump(Json::array({{{"session_payload", payload}}}))}; }

// The settings read the development overrides once, when first needed: so only the ctest entry of that name, which
// starts a process with them in its environment, checks them.
TEST(DevOverridesAtStart, ReplaceTheEndpointsAndTheTimer) {
  if (config::kReleaseBuild || std::getenv("ORVISTELLE_DEV_TIMER_MS") == nullptr) GTEST_SKIP();
  AuthSettings s = CurrentSettings();
  EXPECT_EQ(std::tuple(s.authBaseURL, s.apiBaseURL, s.timerFirstDelay, s.timerPeriod),
            std::tuple("http://127.0.0.1:9", "http://127.0.0.1:9", 250ms, 250ms));
}

// Only a file with both tokens loads. E-mail and expiry come from the file when usable, else from the token's claims.
TEST_F(AuthTest, LoadsOnlyCompleteSessions) {
  const auto tokens = [](const std::string& access) { return Json{{"access_token", access}, {"refresh_token", "r"}}; };
  const std::string claimed = Jwt({{"email", "claim@x.y"}, {"exp", 1700000500}});
  // The file, then the e-mail and expiry loaded; an expiry of -1: nothing loads.
  const std::tuple<Json, std::string, double> rows[] = {
      {{{"access_token", "a"}, {"refresh_token", "r"}, {"email", "e@x.y"}, {"expires_at", 5}}, "e@x.y", 5},
      {{{"access_token", claimed}, {"refresh_token", "r"}, {"expires_at", 9}}, "", 9},
      {{{"access_token", claimed}, {"refresh_token", "r"}, {"expires_at", "9"}}, "claim@x.y", 1700000500},
      {tokens(Jwt({{"email", ""}, {"user_metadata", {{"email", "m@b.c"}}}, {"exp", " 17.5"}})), "m@b.c", 17.5},
      {tokens("x.eyJleHAiOjF9"), "", 1},                  // {"exp":1}, no padding needed
      {tokens("x.eyJleHAiOjEwfQ"), "", 10},               // {"exp":10}, two "=" added
      {tokens("x.eyJlbWFpbCI6Ij8_PiJ9.s"), "?\x3f>", 0},  // "_" stands for "/"
      {{{"access_token", "a"}, {"refresh_token", ""}}, "", -1},
      {tokens(Jwt({{"email", std::string(100000, 'a') + "@x.y"}, {"exp", 5}})), "", 5},  // a token over 64 KiB
  };
  for (const auto& [contents, email, expiry] : rows) {
    ClearSessionState();
    Write("fcp-session.json", Dump(contents));
    EXPECT_EQ((std::tuple{FcpAuthHasSession(), FcpAuthSignedIn(), FcpAuthEmail(), CurrentSession().expiresAt}),
              (std::tuple{expiry >= 0, expiry >= 0, email, std::max(expiry, 0.0)})) << Dump(contents);
  }
}

// What a server, a token or a file says is shown and kept only if it is short and free of control characters.
TEST_F(AuthTest, HostileTextsAreNeitherShownNorKeptNorSent) {
  const std::pair<std::string, bool> rows[] = {
      {"line\nbreak@x.y", false}, {"\x1b[2J@x.y", false}, {"next\xc2\x85line@x.y", false}, {"del\x7f@x.y", false},
      {std::string(321, 'a'), false}, {std::string(320, 'a'), true}, {"\xc3\xbc" "ber@x.y", true}};
  for (const auto& [text, showable] : rows) {
    SaveEmail("kept@x.y", CurrentLoginGeneration());
    SetStatusText("shown", false);
    SaveEmail(text, CurrentLoginGeneration());
    SetStatusText(text, false);
    SetStatusTextUnlessError(text);
    EXPECT_EQ(FcpAuthEmail() + "|" + Status() + "|" + ParseAccessClaims(Jwt({{"email", text}})).email,
              showable ? text + "|" + text + "|" + text : "kept@x.y|shown|") << text;
  }
}

// A pass renews a session within 60 s of a known expiry; a refusal ends it, no answer or a server error keeps it.
// The answer's user names the account unless the new token does; an unknown e-mail is fetched.
TEST_F(AuthTest, RenewsSessionsAboutToExpireAndEndsRefusedOnes) {
  const double now = clock.Now();  // 1700000000
  const std::string expired = " none Session expired. Please sign in again. (error)";
  // Expiry, e-mail, answer, then the refresh status (0: none sent, or no answer), the file (access, refresh, e-mail,
  // expiry) and the status afterwards.
  const std::tuple<double, std::string, Reply, std::string> rows[] = {
      {now + 61, "e@x.y", {200, R"({"access_token":"a2"})"}, R"(0 ["a1","r1","e@x.y",1700000061] e@x.y)"},
      {0, "", {200, R"({"access_token":"a2"})"}, R"(0 ["a1","r1","u@x.y",0] u@x.y)"},
      {now + 60, "e@x.y", {200, R"({"access_token":"a2","expires_in":60,"expires_at":1})"},
       R"(200 ["a2","r1","e@x.y",1700000060] e@x.y)"},
      {now - 9, "e@x.y", {200, Dump({{"access_token", "a2"}, {"user", {{"email", "user@x.y"}}}})},
       R"(200 ["a2","r1","user@x.y",1699999991] user@x.y)"},
      {now, "e@x.y", {500}, R"(500 ["a1","r1","e@x.y",1700000000] e@x.y)"},
      {now, "e@x.y", {200, std::string(9 << 20, ' ')}, R"(0 ["a1","r1","e@x.y",1700000000] e@x.y)"},  // too big
      {now, "e@x.y", {401}, "401" + expired},
      {now, "e@x.y", {200, R"({"access_token":""})"}, "200" + expired},
  };
  const auto filed = [this] {
    std::optional<Json> f = JsonObject(Read("fcp-session.json"));
    return f ? Dump({(*f)["access_token"], (*f)["refresh_token"], (*f)["email"], (*f)["expires_at"]}) : "none";
  };
  for (const auto& [expiresAt, email, answer, after] : rows) {
    Restart();
    backend.Answer("/auth/v1/token", answer);
    backend.Answer("/auth/v1/user", Reply{200, R"({"email":"u@x.y"})"});
    SignedIn(expiresAt, email);
    RefreshIfNeeded();
    EXPECT_EQ(std::to_string(LastRefreshStatus()) + " " + filed() + " " + Status(), after);
  }
  httplib::Request refresh = backend.Seen("/auth/v1/token")[0];
  EXPECT_EQ(refresh.target + " " + refresh.body + " " + refresh.get_header_value("Authorization") + " " +
                refresh.get_header_value("apikey") + " " + refresh.get_header_value("Content-Type"),
            R"(/auth/v1/token?grant_type=refresh_token {"refresh_token":"r1"} Bearer )" + kKey + " " + kKey +
                " application/json");
}

// Another process refreshes under the lock beside the file, or deletes the file: a pass waits for the lock and
// follows the file rather than present a spent token. Where the lock's path is unusable the support folder is the
// lock. A process that keeps the lock (stopped mid-refresh) delays the refresh to the next pass, not for ever.
TEST_F(AuthTest, FollowsWhatAnotherProcessDidUnderTheLock) {
  backend.Answer("/auth/v1/token", Reply{200, R"({"access_token":"a9","refresh_token":"r9"})"});
  const std::string refreshed =
      Dump({{"access_token", "a3"}, {"refresh_token", "r3"}, {"expires_at", clock.Now() + 3600}});
  const auto fifo = [this] { return mkfifo(Support("fcp-session.lock").c_str(), 0600) == 0; };
  const auto folder = [this] { return fs::create_directory(Support("fcp-session.lock")); };
  const auto dangling = [this] { return fs::create_symlink(Support("gone"), Support("fcp-session.lock")), true; };
  // What the other process leaves ("" deletes the file, "kept" keeps lock and file), what stands at the lock's path
  // (null: a lock file), then the refresh token and status afterwards.
  const std::tuple<std::string, std::function<bool()>, std::string> rows[] = {
      {refreshed, nullptr, "r3 Signed in"}, {"", nullptr, " Signed out"}, {refreshed, fifo, "r3 Signed in"},
      {"", folder, " Signed out"},          {refreshed, dangling, "r3 Signed in"}, {"kept", nullptr, "r1 e@x.y"},
  };
  for (const auto& [file, atLockPath, after] : rows) {
    Restart([](AuthSettings& s) { s.lockWait = 300ms; });
    SignedIn(clock.Now() + 30);
    fs::remove_all(Support("fcp-session.lock"));
    ASSERT_TRUE(!atLockPath || atLockPath());
    const fs::path locked = atLockPath ? Support(".") : Support("fcp-session.lock");
    int lock = open(locked.c_str(), (atLockPath ? O_RDONLY | O_DIRECTORY : O_RDWR | O_CREAT) | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    std::atomic<bool> done{false};
    std::thread pass([&done] { RefreshIfNeeded(), done = true; });
    std::error_code gone;  // the descriptors open on the lock: the pass's and ours
    ASSERT_TRUE(WaitUntil([&] {
      return std::ranges::count_if(fs::directory_iterator("/proc/self/fd"),
                                   [&](const fs::path& fd) { return fs::equivalent(fd, locked, gone); }) == 2;
    })) << after;
    EXPECT_EQ(WaitUntil([&done] { return done.load(); }, file == "kept" ? 5s : 0s), file == "kept") << after;
    if (file.empty()) fs::remove(Support("fcp-session.json"));
    if (!file.empty() && file != "kept") Write("fcp-session.json", file);
    close(lock);
    pass.join();
    EXPECT_EQ(CurrentSession().refresh + " " + Status(), after);
  }
  EXPECT_TRUE(backend.Seen("/auth/v1/token").empty());
}

// The backend rotates the refresh token on arrival and hands the successor out again only briefly. So a refresh whose
// answer is lost is retried within the pass, and an answer that waited in the socket through a stop is taken.
TEST_F(AuthTest, ARotationWhoseAnswerIsLostKeepsTheSession) {
  // Answers in turn (a status of -1 answers only once the client gave up: it asked again or the pass ended), then
  // requests sent, refresh token, status.
  const std::tuple<const char*, std::vector<Reply>, std::string> rows[] = {
      {"withheld, then handed out again", {{-1, kRotated.body}, kRotated}, "2 r2 e@x.y"},
      {"never answered", {{-1}, {-1}, {-1}, {-1}, {-1}}, "4 r1 e@x.y"},
      {"a server error", {{503}, kRotated}, "1 r1 e@x.y"},
  };
  for (const auto& [what, answers, after] : rows) {
    Restart([](AuthSettings& s) { s.refreshIdle = 100ms; });
    const size_t before = backend.Seen("/auth/v1/token").size();
    backend.Answer("/auth/v1/token", [&answers = answers, before, this](const httplib::Request&) {
      const size_t mine = backend.Seen("/auth/v1/token").size() - before;
      Reply reply = answers.at(mine - 1);
      if (reply.status >= 0) return reply;
      WaitUntil([&] { return release || backend.Seen("/auth/v1/token").size() - before > mine; }, 10s);
      return Reply{200, reply.body};
    });
    SignedIn(clock.Now());
    RefreshIfNeeded();
    release = true;
    const size_t sent = backend.Seen("/auth/v1/token").size() - before;
    EXPECT_EQ(std::to_string(sent) + " " + CurrentSession().refresh + " " + Status(), after) << what;
  }
  // A child stopped past its request's whole wait while the answer is sent: the time stopped does not count.
  release = false;
  backend.Answer("/stop", Held(kRotated));
  std::thread stopper([this] {
    WaitUntil([this] { return !backend.Seen("/stop").empty(); }, 20s);
    const pid_t child = std::stoi(Read("child").value_or("0"));
    if (child > 0) kill(child, SIGSTOP);  // never 0, which would stop this test's whole process group
    release = true;
    std::this_thread::sleep_for(2500ms), kill(child, SIGCONT);
  });
  std::optional<std::string> seen = platform::fault::InChildProcess([] { return true; }, [this] {
    Write("child", std::to_string(getpid()));
    std::optional<platform::HttpRequest> request = BackendRequest("POST", backend.BaseURL() + "/stop", "", "", "");
    request->idle = request->wait = 500ms;
    return platform::HttpSend(*request).body.value_or("no answer");
  });
  stopper.join();
  EXPECT_EQ(seen, kRotated.body);
}

// A save that fails says so, whatever failed: also the read-back of a support folder that cannot be searched.
TEST_F(AuthTest, FailedSavesSayWhy) {
  SignedIn(clock.Now());
  FcpAuthHasSession();
  fs::permissions(Support("."), fs::perms::none);
  const auto asUser = [] {  // root ignores modes: the child runs as nobody
    return geteuid() != 0 || (setgroups(0, nullptr) == 0 && setresgid(65534, 65534, 65534) == 0 &&
                              setresuid(65534, 65534, 65534) == 0);
  };
  std::optional<std::string> seen = platform::fault::InChildProcess(asUser, [this] {
    ApplyAccessToken({"a2", "r2", {}, ""}, CurrentLoginGeneration(), FileRule::kOnlyIfUnchanged);
    return CurrentSession().refresh + " " + Status();
  });
  fs::permissions(Support("."), fs::perms::owner_all);
  EXPECT_EQ(seen, "r2 Could not save sign-in state: Permission denied (error)");
}

// Answers without both tokens, or not in a 200, are no session: polling goes on until one comes.
TEST_F(AuthTest, RelayDeliversTheSession) {
  const Reply answers[] = {Reply{500, Row({{"access_token", "a"}, {"refresh_token", "r"}}).body},
                           Reply{200, R"({"session_payload":{"access_token":"a","refresh_token":"r"}})"},
                           Row({{"access_token", "a"}, {"refresh_token", ""}}), Row("a"), Reply{200, "[]"},
                           Row({{"access_token", Jwt({{"email", "new@x.y"}})}, {"refresh_token", "r"}, {"x", 1}})};
  backend.Answer(kRelay, [this, &answers](const httplib::Request&) { return answers[Polls() - 1]; });
  FcpAuthLogin();
  FcpAuthMaintain();  // the sign-in has started the maintenance already: nothing is reloaded
  EXPECT_EQ(Status() + (FcpAuthBusy() ? " (busy)" : ""), "Browser opened. Come back after you sign in. (busy)");
  EXPECT_EQ(browser.Snapshot(), std::vector{std::string(config::kSiteURL) + "/sign-in?from=vask&flowId=" + FlowId()});
  EXPECT_TRUE(std::regex_match(FlowId(), kUuid));
  ASSERT_TRUE(WaitUntil([] { return !FcpAuthBusy(); }));
  httplib::Request poll = backend.Seen(kRelay)[0];
  EXPECT_EQ(std::to_string(Polls()) + " " + poll.target + " " + poll.get_header_value("Authorization") + " " + Status(),
            "6 /rest/v1/auth_relay?id=eq." + FlowId() + "&select=session_payload Bearer " + kKey + " new@x.y");
}

// Polls go on while a maintenance pass hangs, whose timer firings are skipped until it is answered. A second
// sign-in ends the first poll quietly and times out after 30 rounds.
TEST_F(AuthTest, PollsGoOnWhileAPassHangsAndASecondSignInSupersedesTheFirst) {
  backend.Answer("/auth/v1/user", Held(Reply{}));
  backend.Answer(kRelay, Reply{200, "[]"});
  Restart([](AuthSettings& s) { s.timerFirstDelay = s.timerPeriod = s.pollInterval = 10ms; });
  SignedIn(clock.Now() + 3600, "");
  FcpAuthLogin();
  std::string first = FlowId();
  ASSERT_TRUE(WaitUntil([&] { return Polls(first) >= 2; }));
  FcpAuthLogin();
  ASSERT_TRUE(WaitUntil([] { return !FcpAuthBusy(); }));
  EXPECT_LT(Polls(first), 30u);
  EXPECT_EQ(std::to_string(Polls(FlowId())) + " " + Status(), "30 Sign-in timed out. Try again. (error)");
  EXPECT_EQ(backend.Seen("/auth/v1/user").size(), 1u);
  release = true;
  EXPECT_TRUE(WaitUntil([&] { return backend.Seen("/auth/v1/user").size() >= 3; }));
}

// An answer that arrives after a sign-out, or after a newer sign-in began, changes neither session, file nor status.
TEST_F(AuthTest, AnswersArrivingAfterASignOutOrANewerSignInAreDropped) {
  // The path answered late, its answer, a call sending it on a thread of its own and returning once it is answered,
  // a call while it is held, the status.
  const std::tuple<const char*, Reply, std::function<void()>, std::function<void()>, std::string> rows[] = {
      {"/auth/v1/token", kRotated, RefreshIfNeeded, FcpAuthLogout, "Signed out"},
      {"/auth/v1/token", {400}, RefreshIfNeeded, [] { FcpAuthLogout(), FcpAuthLogin(); },
       "Browser opened. Come back after you sign in."},
      {"/auth/v1/user", {200, R"({"email":"late@x.y"})"}, RefreshIfNeeded, FcpAuthLogout, "Signed out"},
      {kRelay, Row({{"access_token", "a2"}, {"refresh_token", "r2"}}),
       [] { FcpAuthLogin(), StopMaintenanceTimer(), WaitForBackgroundTasks(); }, FcpAuthLogout, "Signed out"},
      {"/auth/v1/token", kRotated, RefreshIfNeeded, [this] { fs::remove(Support("fcp-session.json")); }, "Signed out"},
  };
  for (const auto& [path, answer, send, interrupt, status] : rows) {
    Restart([](AuthSettings& s) { s.pollInterval = 50ms; });
    for (const char* other : {"/auth/v1/token", "/auth/v1/user", kRelay}) backend.Answer(other, Reply{503});
    backend.Answer(path, Held(answer));
    SignedIn(clock.Now(), "");
    const size_t before = backend.Seen(path).size();  // earlier rows were seen too
    std::thread sender(send);
    ASSERT_TRUE(WaitUntil([&, path = path] { return backend.Seen(path).size() > before; })) << path;
    interrupt();
    release = true;
    sender.join();
    const bool kept = Read("fcp-session.json") || HoldsSession(CurrentSession());
    EXPECT_EQ(Status() + (kept ? " and a session" : ""), status) << path;
  }
}

// A sign-out racing a caller that finds memory empty and reloads the file: the old session never comes back.
TEST_F(AuthTest, SignOutRacingAReloadLeavesNoSession) {
  std::atomic<int> calls{0};
  std::jthread reader([&](std::stop_token stop) { for (; !stop.stop_requested(); ++calls) FcpAuthHasSession(); });
  for (int round = 0; round < 1000; ++round) {
    Write("fcp-session.json", Dump({{"access_token", "a"}, {"refresh_token", "r"}}));
    FcpAuthHasSession();
    FcpAuthLogout();
    for (int seen = calls; calls < seen + 2;) std::this_thread::yield();  // a reload racing the sign-out has ended
    ASSERT_FALSE(HoldsSession(CurrentSession())) << round;
  }
}

// Malformed addresses, and header values that would smuggle in a header, give status 0 at once and send nothing.
TEST_F(AuthTest, RequestsThatCannotBeMadeGiveStatusZeroAtOnce) {
  const std::string base = backend.BaseURL(), userInfo = "http://u:p@" + base.substr(std::strlen("http://"));
  for (const auto& [url, token] : std::vector<std::pair<std::string, std::string>>{
           {base + "/a b", ""}, {"ftp://h/x", ""}, {userInfo + "/x", ""}, {base + "/x", "token\r\nX-Injected: 1"}}) {
    HttpAnswer answer = Http("GET", url, token, std::nullopt, "");
    EXPECT_EQ(answer.body.value_or("none") + " " + std::to_string(answer.status), "none 0") << url;
  }
  EXPECT_TRUE(backend.Seen("/x").empty());
}

// The account shows from the start of maintenance, while its first pass waits for the refresh. A pass that finds
// that refresh in flight skips its own rather than wait, and still shows the account.
TEST_F(AuthTest, TheAccountShowsFromTheStartAndAPassDuringARefreshSkipsItsOwn) {
  backend.Answer("/auth/v1/token", Held(Reply{503}));
  SignedIn(clock.Now());
  FcpAuthMaintain();
  EXPECT_EQ(Status(), "e@x.y");
  ASSERT_TRUE(WaitUntil([&] { return backend.Seen("/auth/v1/token").size() == 1; }));
  SetStatusKey("auth.notSignedIn", false);
  RefreshIfNeeded();
  EXPECT_EQ(Status(), "e@x.y");
  release = true;
  EXPECT_EQ(backend.Seen("/auth/v1/token").size(), 1u);
}

// Once per UTC day with the same install id, made at the first report; a failure is logged and retried. The build
// number stands in for a missing marketing version, "0" for both. One report at a time.
TEST_F(AuthTest, HeartbeatGoesOncePerUtcDay) {
  // Time, answer, bundle info, then the version in the last report, the reports sent in all and the day recorded.
  const std::tuple<double, int, std::map<std::string, std::string>, std::string, size_t, std::string> passes[] = {
      {1709251199, 503, {{"CFBundleShortVersionString", "2.1.0"}, {"CFBundleVersion", "57"}}, "2.1.0", 1, "none"},
      {1709251199, 200, {{"CFBundleShortVersionString", ""}, {"CFBundleVersion", "57"}}, "57", 2, "2024-02-29"},
      {1709251199, 200, {}, "57", 2, "2024-02-29"},  // 23:59:59 UTC: sent already today
      {1709251200, 200, {{"CFBundleVersion", ""}}, "", 3, "2024-03-01"},
      {1709337600, 200, {}, "0", 4, "2024-03-02"},
  };
  std::optional<std::string> installId;  // as the first report saved it
  for (const auto& [now, answer, info, version, count, day] : passes) {
    clock.Set(now);
    backend.Answer(kHeartbeat, Reply{answer, "not json"});
    bundle.ReplaceInfo(info);
    ReportHeartbeatIfNeeded();
    WaitForBackgroundTasks();
    std::vector<httplib::Request> sent = backend.Seen(kHeartbeat);
    ASSERT_EQ(sent.size(), count) << now;
    if (!installId) installId = Read("fcp-install-id.txt").value_or("");
    EXPECT_EQ(Read("fcp-heartbeat-day.txt").value_or("none") + " " + sent.back().get_header_value("Authorization") +
                  " " + sent.back().body,
              day + " Bearer " + kKey + " " + Dump({{"host", "fcp"}, {"installId", *installId}, {"platform", "linux"},
                                                     {"product", "vask"}, {"version", version}}));
  }
  EXPECT_TRUE(std::regex_match(*installId, kUuid)) << *installId;
  EXPECT_EQ(log.Snapshot(), std::vector<std::string>{"[Orvistelle] heartbeat failed (503)"});
  clock.Set(1709424000);  // a second pass while a report is unanswered sends nothing
  backend.Answer(kHeartbeat, Held(Reply{}));
  ReportHeartbeatIfNeeded(), ReportHeartbeatIfNeeded(), release = true;
  WaitForBackgroundTasks();
  EXPECT_EQ(backend.Seen(kHeartbeat).size(), 5u);
}

}  // namespace
}  // namespace orvistelle::auth::testing
