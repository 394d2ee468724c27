#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstring>
#include <regex>

#include "auth/Background.h"
#include "auth/Heartbeat.h"
#include "auth/Http.h"
#include "auth/Maintenance.h"
#include "auth/Session.h"
#include "auth/Status.h"
#include "auth/tests/TestSupport.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::auth::testing {
namespace {

namespace fs = std::filesystem;

const char kHeartbeat[] = "/console/v1/plugin/heartbeat";
const std::string kKey = config::kPublicApiKey;

Reply Row(const Json& payload) { return {200, Dump(Json::array({{{"session_payload", payload}}}))}; }

// Only a file with both tokens loads. The e-mail and expiry come from the file when usable, else from the access
// token's claims, which are read without trusting the token.
TEST_F(AuthTest, LoadsOnlyCompleteSessions) {
  const auto tokens = [](const std::string& access) { return Json{{"access_token", access}, {"refresh_token", "r"}}; };
  const std::string claimed = Jwt({{"email", "claim@x.y"}, {"exp", 1700000500}});
  const struct {
    Json contents;  // a string is written as it is
    std::string email;
    double expiry;  // -1: nothing loads
  } rows[] = {
      {{{"access_token", "a"}, {"refresh_token", "r"}, {"email", "e@x.y"}, {"expires_at", 5}}, "e@x.y", 5},
      {{{"access_token", claimed}, {"refresh_token", "r"}, {"expires_at", 9}}, "", 9},
      {{{"access_token", claimed}, {"refresh_token", "r"}, {"expires_at", "9"}}, "claim@x.y", 1700000500},
      {tokens(Jwt({{"email", ""}, {"user_metadata", {{"email", "m@b.c"}}}, {"exp", " 17.5"}})), "m@b.c", 17.5},
      {tokens("x.eyJleHAiOjF9"), "", 1},                  // {"exp":1}, no padding needed
      {tokens("x.eyJleHAiOjEwfQ"), "", 10},               // {"exp":10}, two "=" added
      {tokens("x.eyJlbWFpbCI6Ij8_PiJ9.s"), "?\x3f>", 0},  // "_" stands for "/"
      {{{"access_token", "a"}, {"refresh_token", ""}}, "", -1},
  };
  for (const auto& row : rows) {
    ClearSessionState();
    Write("fcp-session.json", row.contents.is_string() ? row.contents.get<std::string>() : Dump(row.contents));
    EXPECT_EQ((std::tuple{FcpAuthHasSession(), FcpAuthEmail(), CurrentSession().expiresAt}),
              (std::tuple{row.expiry >= 0, row.email, std::max(row.expiry, 0.0)})) << Dump(row.contents);
  }
}

// What a server, a token or a file says is shown and kept only if it is short and free of control characters.
TEST_F(AuthTest, HostileTextsAreNeitherShownNorKeptNorSent) {
  const struct {
    std::string text;
    bool showable;
  } rows[] = {{"line\nbreak@x.y", false},  {"\x1b[2J@x.y", false},           {"next\xc2\x85line@x.y", false},
              {"del\x7f@x.y", false},      {std::string(321, 'a'), false}, {std::string(320, 'a'), true},
              {"\xc3\xbc" "ber@x.y", true}};
  for (const auto& row : rows) {
    SaveEmail("kept@x.y", CurrentLoginGeneration());
    SetStatusText("shown", false);
    SaveEmail(row.text, CurrentLoginGeneration());
    SetStatusText(row.text, false);
    SetStatusTextUnlessError(row.text);
    EXPECT_EQ(FcpAuthEmail(), row.showable ? row.text : "kept@x.y") << row.text;
    EXPECT_EQ(Status(), row.showable ? row.text : "shown") << row.text;
    EXPECT_EQ(ParseAccessClaims(Jwt({{"email", row.text}})).email, row.showable ? row.text : "") << row.text;
  }
}

// A pass renews a session within 60 s of a known expiry. A refusal ends it; no answer or a server error keeps it for
// the next pass. The answer's user names the account unless the new token does; an unknown e-mail is fetched.
TEST_F(AuthTest, RenewsSessionsAboutToExpireAndEndsRefusedOnes) {
  const double now = clock.Now();  // 1700000000
  const std::string expired = "Session expired. Please sign in again. (error)";
  const struct {
    double expiresAt;
    std::string email;
    Reply answer;
    int64_t refreshStatus;  // 0: none sent, or no answer
    std::string filed;      // the session file afterwards: access, refresh, e-mail, expiry
    std::string status;
  } rows[] = {
      {now + 61, "e@x.y", {200, R"({"access_token":"a2"})"}, 0, "a1 r1 e@x.y 1700000061", "e@x.y"},
      {0, "", {200, R"({"access_token":"a2"})"}, 0, "a1 r1 u@x.y 0", "u@x.y"},
      {now + 60, "e@x.y", {200, R"({"access_token":"a2","expires_in":60,"expires_at":1})"}, 200,
       "a2 r1 e@x.y 1700000060", "e@x.y"},
      {now - 9, "e@x.y", {200, Dump({{"access_token", "a2"}, {"user", {{"email", "user@x.y"}}}})}, 200,
       "a2 r1 user@x.y 1699999991", "user@x.y"},
      {now, "e@x.y", {500}, 500, "a1 r1 e@x.y 1700000000", "e@x.y"},
      {now, "e@x.y", {200, std::string(9 << 20, ' ')}, 0, "a1 r1 e@x.y 1700000000", "e@x.y"},  // over the size limit
      {now, "e@x.y", {401}, 401, "none", expired},
      {now, "e@x.y", {200, R"({"access_token":""})"}, 200, "none", expired},
  };
  const auto filed = [this]() -> std::string {
    std::optional<Json> file = JsonObject(Read("fcp-session.json"));
    if (!file) return "none";
    auto text = [&](const char* key) { return (*file)[key].get<std::string>() + " "; };
    int64_t expiresAt = (*file)["expires_at"];
    return text("access_token") + text("refresh_token") + text("email") + std::to_string(expiresAt);
  };
  for (const auto& row : rows) {
    Restart();
    backend.Answer("/auth/v1/token", row.answer);
    backend.Answer("/auth/v1/user", Reply{200, R"({"email":"u@x.y"})"});
    SignedIn(row.expiresAt, row.email);
    RefreshIfNeeded();
    EXPECT_EQ(LastRefreshStatus(), row.refreshStatus) << row.filed;
    EXPECT_EQ(filed(), row.filed);
    EXPECT_EQ(Status(), row.status) << row.filed;
  }
  httplib::Request refresh = backend.Seen("/auth/v1/token")[0];
  EXPECT_EQ(refresh.target + " " + refresh.body + " " + refresh.get_header_value("Authorization") + " " +
                refresh.get_header_value("apikey") + " " + refresh.get_header_value("Content-Type"),
            R"(/auth/v1/token?grant_type=refresh_token {"refresh_token":"r1"} Bearer )" + kKey + " " + kKey +
                " application/json");
}

// Another process sharing the file refreshes under the lock beside it, or signs out by deleting it: a pass waits for
// the lock and follows the file instead of presenting a refresh token that is already spent.
TEST_F(AuthTest, FollowsWhatAnotherProcessDidUnderTheLock) {
  backend.Answer("/auth/v1/token", Reply{200, R"({"access_token":"a9","refresh_token":"r9"})"});
  const struct {
    std::string file;  // what the other process leaves; "" deletes the file
    std::string refresh, status;
  } rows[] = {
      {Dump({{"access_token", "a3"}, {"refresh_token", "r3"}, {"expires_at", clock.Now() + 3600}}), "r3", "Signed in"},
      {"", "", "Signed out"},
  };
  for (const auto& row : rows) {
    Restart();
    SignedIn(clock.Now() + 30);
    int lock = open(Support("fcp-session.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    std::thread pass(RefreshIfNeeded);
    std::this_thread::sleep_for(200ms);
    row.file.empty() ? fs::remove(Support("fcp-session.json")) : (Write("fcp-session.json", row.file), true);
    close(lock);
    pass.join();
    EXPECT_EQ(CurrentSession().refresh + " " + Status(), row.refresh + " " + row.status);
  }
  EXPECT_TRUE(backend.Seen("/auth/v1/token").empty());
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
  EXPECT_TRUE(
      std::regex_match(FlowId(), std::regex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")));
  ASSERT_TRUE(WaitUntil([] { return !FcpAuthBusy(); }));
  EXPECT_EQ(Polls(), std::size(answers));
  httplib::Request poll = backend.Seen(kRelay)[0];
  EXPECT_EQ(poll.target + " " + poll.get_header_value("Authorization"),
            "/rest/v1/auth_relay?id=eq." + FlowId() + "&select=session_payload Bearer " + kKey);
  EXPECT_EQ(Status(), "new@x.y");
}

// Polls go on while a maintenance pass hangs, whose timer firings are skipped until it is answered. A second
// sign-in ends the first poll quietly and times out after 30 rounds.
TEST_F(AuthTest, PollsGoOnWhileAPassHangsAndASecondSignInSupersedesTheFirst) {
  backend.Answer("/auth/v1/user", Held(Reply{}));
  backend.Answer(kRelay, Reply{200, "[]"});
  UseSettings([](AuthSettings& s) { s.timerFirstDelay = s.timerPeriod = s.pollInterval = 10ms; });
  SignedIn(clock.Now() + 3600, "");
  FcpAuthLogin();
  std::string first = FlowId();
  ASSERT_TRUE(WaitUntil([&] { return Polls(first) >= 2; }));
  FcpAuthLogin();
  ASSERT_TRUE(WaitUntil([] { return !FcpAuthBusy(); }));
  EXPECT_LT(Polls(first), 30u);
  EXPECT_EQ(Polls(FlowId()), 30u);
  EXPECT_EQ(Status(), "Sign-in timed out. Try again. (error)");
  EXPECT_EQ(backend.Seen("/auth/v1/user").size(), 1u);
  release = true;
  EXPECT_TRUE(WaitUntil([&] { return backend.Seen("/auth/v1/user").size() >= 3; }));
}

// An answer that arrives after a sign-out, or after a newer sign-in began, changes neither session, file nor status.
TEST_F(AuthTest, AnswersArrivingAfterASignOutOrANewerSignInAreDropped) {
  const struct {
    const char* path;
    Reply answer;
    std::function<void()> send;       // on a thread of its own
    std::function<void()> interrupt;  // while the answer is held
    std::string status;
  } rows[] = {
      {"/auth/v1/token", {200, R"({"access_token":"a2","refresh_token":"r2"})"}, RefreshIfNeeded, FcpAuthLogout,
       "Signed out"},
      {"/auth/v1/token", {400}, RefreshIfNeeded, [] { FcpAuthLogout(), FcpAuthLogin(); },
       "Browser opened. Come back after you sign in."},
      {"/auth/v1/user", {200, R"({"email":"late@x.y"})"}, RefreshIfNeeded, FcpAuthLogout, "Signed out"},
      {kRelay, Row({{"access_token", "a2"}, {"refresh_token", "r2"}}), FcpAuthLogin, FcpAuthLogout, "Signed out"},
  };
  for (const auto& row : rows) {
    Restart();
    release = false;
    UseSettings([](AuthSettings& settings) { settings.pollInterval = 50ms; });
    for (const char* path : {"/auth/v1/token", "/auth/v1/user"}) backend.Answer(path, Reply{503});
    backend.Answer(kRelay, Reply{200, "[]"});
    backend.Answer(row.path, Held(row.answer));
    SignedIn(clock.Now(), "");
    const size_t before = backend.Seen(row.path).size();  // earlier rows were seen too
    std::thread sender(row.send);
    ASSERT_TRUE(WaitUntil([&] { return backend.Seen(row.path).size() > before; })) << row.path;
    row.interrupt();
    release = true;
    sender.join();
    std::this_thread::sleep_for(200ms);  // for a poll's answer to reach the session, were it applied
    const bool kept = Read("fcp-session.json") || HoldsSession(CurrentSession());
    EXPECT_EQ(Status() + (kept ? " and a session" : ""), row.status) << row.path;
  }
}

// A sign-out racing a caller that finds memory empty and reloads the file: the old session never comes back.
TEST_F(AuthTest, SignOutRacingAReloadLeavesNoSession) {
  std::atomic<bool> done{false};
  std::atomic<int> calls{0};
  std::thread reader([&] {
    for (; !done; ++calls) FcpAuthHasSession();
  });
  int resurrected = 0;
  for (int round = 0; round < 1000; ++round) {
    Write("fcp-session.json", Dump({{"access_token", "a"}, {"refresh_token", "r"}}));
    FcpAuthHasSession();
    FcpAuthLogout();
    for (int seen = calls; calls < seen + 2;) std::this_thread::yield();  // a reload racing the sign-out has ended
    resurrected += HoldsSession(CurrentSession());
  }
  done = true;
  reader.join();
  EXPECT_EQ(resurrected, 0);
}

// Requests that cannot be made give status 0 at once and send nothing: malformed addresses, and header values that
// would smuggle in a header of their own.
TEST_F(AuthTest, RequestsThatCannotBeMadeGiveStatusZeroAtOnce) {
  std::string base = backend.BaseURL();
  const std::string userInfo = "http://u:p@" + base.substr(std::strlen("http://"));
  for (const std::string& url : {base + "/a b", std::string("ftp://h/x"), userInfo + "/x"}) {
    int64_t status = -1;
    EXPECT_FALSE(Http("GET", url, "", std::nullopt, "", &status)) << url;
    EXPECT_EQ(status, 0) << url;
  }
  EXPECT_FALSE(Http("GET", base + "/x", "token\r\nX-Injected: 1", std::nullopt, "", nullptr));
  EXPECT_TRUE(backend.Seen("/x").empty());
}

// A pass that finds this process's refresh in flight skips its own rather than wait, and still shows the account.
TEST_F(AuthTest, APassDuringARefreshSkipsItsOwn) {
  backend.Answer("/auth/v1/token", Held(Reply{503}));
  SignedIn(clock.Now());
  std::thread pass(RefreshIfNeeded);
  ASSERT_TRUE(WaitUntil([&] { return backend.Seen("/auth/v1/token").size() == 1; }));
  SetStatusKey("auth.notSignedIn", false);
  RefreshIfNeeded();
  EXPECT_EQ(Status(), "e@x.y");
  release = true;
  pass.join();
  EXPECT_EQ(backend.Seen("/auth/v1/token").size(), 1u);
}

// Once per UTC day with the same install id; a failure is logged and retried. The build number stands in for a
// missing marketing version.
TEST_F(AuthTest, HeartbeatGoesOncePerUtcDay) {
  const struct {
    double now;
    int answer;
    std::map<std::string, std::string> info;
    std::string version;  // in the last report sent
    size_t sent;          // in all
    std::optional<std::string> day;
  } passes[] = {
      {1709251199, 503, {{"CFBundleShortVersionString", "2.1.0"}, {"CFBundleVersion", "57"}}, "2.1.0", 1, {}},
      {1709251199, 200, {{"CFBundleShortVersionString", ""}, {"CFBundleVersion", "57"}}, "57", 2, "2024-02-29"},
      {1709251199, 200, {}, "57", 2, "2024-02-29"},  // 23:59:59 UTC: sent already today
      {1709251200, 200, {{"CFBundleVersion", ""}}, "", 3, "2024-03-01"},
  };
  for (const auto& pass : passes) {
    clock.Set(pass.now);
    backend.Answer(kHeartbeat, Reply{pass.answer, "not json"});
    bundle.ReplaceInfo(pass.info);
    ReportHeartbeatIfNeeded();
    WaitForBackgroundTasks();
    std::vector<httplib::Request> sent = backend.Seen(kHeartbeat);
    ASSERT_EQ(sent.size(), pass.sent) << pass.now;
    EXPECT_EQ(Read("fcp-heartbeat-day.txt"), pass.day) << pass.now;
    EXPECT_EQ(sent.back().get_header_value("Authorization") + " " + sent.back().body,
              "Bearer " + kKey + " " +
                  Dump({{"host", "fcp"}, {"installId", Read("fcp-install-id.txt").value_or("")},
                        {"platform", "linux"}, {"product", "vask"}, {"version", pass.version}}));
  }
  EXPECT_EQ(log.Snapshot(), std::vector<std::string>{"[Orvistelle] heartbeat failed (503)"});
}

}  // namespace
}  // namespace orvistelle::auth::testing
