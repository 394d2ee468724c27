// The library in this process, and as child-process hosts (hosts/) with a scratch home meet it; backend on loopback.
#include <malloc.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <fstream>
#include <functional>
#include <thread>

#include "auth/AuthTesting.h"
#include "auth/Status.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpService.h"
#include "orvistelle/FcpUpdate.h"
#include "platform/HttpTransport.h"
#include "platform/testing/ChildProcess.h"
#include "platform/testing/LoopbackServer.h"
#include "service/ServicesReport.h"
#include "tools/devbackend/DevBackend.h"
#include "update/UpdateTesting.h"
#include "update/tests/TestSupport.h"

// Under a sanitizer the allocator is the sanitizer's own, which glibc's figures do not see.
extern "C" [[gnu::weak]] size_t __sanitizer_get_current_allocated_bytes();

namespace orvistelle {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
namespace fs = std::filesystem;
using platform::testing::ReadWholeFile;

long long AllocatedBytes() {
  if (__sanitizer_get_current_allocated_bytes != nullptr) return __sanitizer_get_current_allocated_bytes();
  return mallinfo2().uordblks;
}

class Service : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(dir_ / "xdg-open") << "#!/bin/sh\necho \"$1\" >> '" << opened_.string() << "'\n";
    fs::permissions(dir_ / "xdg-open", fs::perms::owner_all);
  }

  // `tokenSeconds` is the access tokens' lifetime, `reuseSeconds` how long a spent refresh token still works.
  void StartBackend(int tokenSeconds = 3600, double reuseSeconds = 10, bool signs = true) {
    std::ofstream(dir_ / "latest.json") << R"({"hosts":{"fcp":{"version":"1.3.0","force_below":"1.1.0"}}})";
    fs::remove(dir_ / "latest.json.sig");
    backend_.reset();
    backend_ = std::make_unique<devbackend::DevBackend>(
        devbackend::Options{0, dir_ / "backend", dir_ / "latest.json", tokenSeconds, nullptr, reuseSeconds, signs});
    std::string error;
    ASSERT_TRUE(backend_->Start(&error)) << error;
    backendPort_ = backend_->Port();
  }

  // What a host printed, then "exit=<code>" or "exit=signal <number>", then its errors. Nothing of this process's
  // environment reaches the host but the sanitizers' options; manifests must carry the backend's signature, and the
  // browser it opens is a script that notes the address in opened_.
  std::string Host(std::vector<std::string> argv, std::optional<int> timerMs, const fs::path& out) const {
    std::vector<std::string> env = {"ORVISTELLE_DEV_BACKEND=" + proxy_.BaseURL(), "UBSAN_OPTIONS=halt_on_error=1",
                                    "HOME=" + home_.string(), "ORVISTELLE_DEV_HOME=" + home_.string(),
                                    "ORVISTELLE_DEV_UPDATE_KEY=" + backend_->UpdatePublicKey(),
                                    "PATH=" + dir_.string()};
    if (timerMs) env.push_back("ORVISTELLE_DEV_TIMER_MS=" + std::to_string(*timerMs));
    // A host may exit at any moment, while the library is starting one of its detached threads.
    env.push_back("TSAN_OPTIONS=report_thread_leaks=0:" + std::string(std::getenv("TSAN_OPTIONS") ?: ""));
    env.push_back("LSAN_OPTIONS=suppressions=" ORVISTELLE_LSAN_SUPPRESSIONS);
    if (argv[0][0] != '/') argv.insert(argv.begin(), ORVISTELLE_HOST);
    fs::create_directories(out);
    const auto child = platform::testing::RunChild(std::move(argv), std::move(env), out, 20s);
    const std::string code = std::to_string(child.signal != 0 ? child.signal : child.exitCode);
    return "\n" + child.out + "exit=" + (child.signal != 0 ? "signal " : "") + code + "\n" + child.err;
  }

  fs::path State(const std::string& name) const { return home_ / ".local/share/orvistelle" / name; }

  // A user signed in through the development site's form, as the relay hands the session out but without the
  // e-mail, so that the first pass fetches it and saves.
  std::string SignedInSession() {
    httplib::Client client("127.0.0.1", backend_->Port());
    const std::string flow = "0b7c2a34-6d1e-4f4a-9a53-" + std::to_string(100000000000 + ++flows_);
    client.Post("/site/sign-in", httplib::Params{{"email", "host@example.org"}, {"password", "p"}, {"flowId", flow}});
    auto relay = client.Get("/rest/v1/auth_relay?id=eq." + flow + "&select=session_payload",
                            {{"apikey", config::kPublicApiKey}});
    json session = json::parse(relay ? relay->body : "", nullptr, false)[0]["session_payload"];
    session["email"] = "";
    return session.dump();
  }

  // Between the hosts and the backend: refresh answers come `tokenDelayMs_` late.
  void Forward(const httplib::Request& request, httplib::Response& response) {
    httplib::Headers headers;
    for (const auto& [name, value] : request.headers) {
      if (name != "Host" && name != "Content-Length" && name != "Content-Type") headers.emplace(name, value);
    }
    httplib::Client client("127.0.0.1", backendPort_);
    auto answer = request.method == "GET" ? client.Get(request.target, headers)
                                          : client.Post(request.target, headers, request.body, "application/json");
    const bool token = request.path == "/auth/v1/token";
    if (token) std::this_thread::sleep_for(std::chrono::milliseconds(tokenDelayMs_.load()));
    if (!answer) return;
    response.status = answer->status;
    response.set_content(answer->body, answer->get_header_value("Content-Type"));
  }

  // What the hosts' browser was asked to open, once the script has written its line.
  std::string Opened() const {
    platform::testing::WaitUntil([this] { return ReadWholeFile(opened_).ends_with('\n'); });
    return ReadWholeFile(opened_);
  }

  platform::testing::TempDir temp_;
  const fs::path dir_ = temp_.path(), home_ = dir_ / "home", opened_ = dir_ / "opened";
  std::unique_ptr<devbackend::DevBackend> backend_;
  std::atomic<int> backendPort_{0}, tokenDelayMs_{0};
  platform::testing::LoopbackServer proxy_{[this](httplib::Server& server) {
    auto forward = [this](const httplib::Request& request, httplib::Response& response) { Forward(request, response); };
    server.Get(".*", forward);
    server.Post(".*", forward);
  }};
  unsigned flows_ = 0;
};

// A build below "force_below" neither signs in nor says so, while signing out still works; once recent enough, it
// signs in and opens every page. Strings handed out stay unchanged when the value changes, a value seen again comes
// back as the same string, and one that changes at every pass does not grow what the library keeps.
TEST_F(Service, InThisProcess) {
  testing::FakeSystem fakes;
  fakes.bundle.SetInfo("CFBundleShortVersionString", "1.0.0");
  StartBackend();
  auth::AuthSettings settings = auth::ProductionSettings();
  settings.authBaseURL = settings.apiBaseURL = backend_->BaseURL();
  auth::SetAuthSettingsForTesting(settings);
  update::SetDownloadBaseURLForTesting(backend_->BaseURL());
  FcpUpdateMaintain();
  ASSERT_TRUE(update::WaitForCheckForTesting(20s));
  ASSERT_TRUE(FcpServiceUpdateForced());
  EXPECT_EQ(std::pair(service::CurrentBackendEndpoints().user, service::ReportServicesNow().update),
            std::pair(backend_->BaseURL() + "/auth/v1/user", std::string("required")));
  auth::SetStatusText("first", true);
  const char* first = FcpServiceStatus();
  FcpServiceLogin();
  EXPECT_EQ(fakes.browser.Snapshot(), std::vector<std::string>{});
  EXPECT_FALSE(FcpServiceBusy());
  EXPECT_TRUE(FcpServiceStatusIsError());
  FcpServiceLogout();
  EXPECT_STRNE(FcpServiceStatus(), "first");
  auth::SetStatusText("first", false);
  EXPECT_EQ(FcpServiceStatus(), first);
  EXPECT_STREQ(first, "first");
  fakes.bundle.SetInfo("CFBundleShortVersionString", "1.1.0");
  for (auto open : {FcpServiceLogin, FcpServiceOpenSignUp, FcpServiceOpenDocs, FcpServiceOpenTerms,
                    FcpServiceOpenPrivacy, FcpServiceOpenSite, FcpServiceUpdateOpenDownload}) open();
  EXPECT_EQ(fakes.browser.Snapshot().size(), 7u);
  EXPECT_TRUE(FcpServiceBusy());
  const long long before = AllocatedBytes();
  for (int pass = 0; pass < 20000; ++pass) {
    auth::SetStatusText(std::to_string(pass) + std::string(200, '@'), false);
    FcpServiceStatus();
  }
  EXPECT_LT(AllocatedBytes() - before, 1 << 20);
  auth::ResetAuthForTesting();  // before the backend and the fakes go
}

// `hosts` hosts run side by side, `runs` times, each on the state `given` lays out; each must print every line of
// `prints`, its exit included, and `then` holds after each run.
struct Row {
  const char* what;
  std::function<void()> given = [] {};
  std::vector<std::string> argv;
  std::vector<std::string> prints;
  std::function<void()> then = [] {};
  std::optional<int> timerMs = {};
  int runs = 1, hosts = 1;
  std::vector<std::string> secondArgv = {};  // the second host's, when not the first's
};

TEST_F(Service, HostsComeAndGoAtAnyMomentAndMeetHostileState) {
  const std::string session = "fcp-session.json", dismissal = "fcp-update-dismiss.json", outside = dir_ / "outside";
  const std::string stale = "." + session + ".stale1", young = "." + session + ".young1", laid = R"({"version":"1"})";
  const auto signedIn = [&] {
    std::ofstream(State(session)) << SignedInSession();
    fs::permissions(State(session), fs::perms(0644));  // as if left readable by others
    std::ofstream(outside) << laid;
    fs::create_symlink(outside, State(dismissal));
    std::ofstream(State(stale)) << "{";
    fs::last_write_time(State(stale), fs::file_time_type::clock::now() - 2min);  // not a save under way any more
    std::ofstream(State(young)) << "{";
  };
  // Saves replaced the file readable by others and the link with private files, and left the link's target alone.
  const auto saved = [&] {
    for (const auto& [name, key, value] : {std::tuple(session, "email", "host@example.org"),
                                           std::tuple(dismissal, "version", "1.3.0")}) {
      const fs::file_status status = fs::symlink_status(State(name));
      EXPECT_TRUE(fs::is_regular_file(status)) << name;
      EXPECT_EQ(static_cast<int>(status.permissions()), 0600) << name;
      EXPECT_EQ(json::parse(ReadWholeFile(State(name)), nullptr, false)[key], value) << name;
    }
    EXPECT_EQ(ReadWholeFile(outside), laid);
    EXPECT_FALSE(fs::exists(State(stale)));
    EXPECT_TRUE(fs::exists(State(young)));
    const std::string agent = std::string("orvistelle-host/120 orvistelle/") + config::kVersion + " (Linux)";
    EXPECT_NE(httplib::Client("127.0.0.1", backend_->Port()).Get("/dev")->body.find(agent), std::string::npos);
  };
  std::string held;
  const auto signedInWith = [&](int tokenSeconds, double reuseSeconds) {
    return [&, tokenSeconds, reuseSeconds] {
      StartBackend(tokenSeconds, reuseSeconds);
      std::ofstream(State(session)) << (held = SignedInSession());
    };
  };
  const auto whole = [&](bool refreshed) {
    json saved = json::parse(ReadWholeFile(State(session)), nullptr, false);
    if (!saved.is_object()) saved = json::object();  // gone, signed out
    for (const char* token : {"access_token", "refresh_token"}) EXPECT_NE(saved.value(token, ""), "") << token;
    if (refreshed) EXPECT_NE(saved.value("access_token", ""), json::parse(held).value("access_token", ""));
  };
  // A signed-in user of the version that kept its files where a Mac keeps them, with the update put off.
  const std::string installId = "0f8e2b8a-5d7c-4e0b-9a61-3c2d1e0f9a8b";
  const fs::path earlier = home_ / "Library/Application Support/Orvistelle";
  const auto upgrading = [&] {
    fs::create_directories(earlier);
    std::ofstream(earlier / session) << SignedInSession();
    std::ofstream(earlier / "fcp-install-id.txt") << installId;
    // Ends within a day: one ending further ahead was made while the clock ran fast, and is over.
    std::ofstream(earlier / dismissal) << json{{"version", "1.3.0"}, {"until", std::time(nullptr) + 3600}};
  };
  // One release's manifest, signed by the backend or not: only the one that verifies is used.
  const std::string forcing =
      R"({"hosts":{"fcp":{"version":"1.3.0","force_below":"9.0.0","download_linux":"http://127.0.0.1/new.zip"}}})";
  const auto published = [&](bool signs) {
    return [&, signs] {
      StartBackend(3600, 10, signs), fs::remove(opened_), std::ofstream(dir_ / "latest.json") << forcing;
    };
  };
  const auto opens = [&](const std::string& path) {
    return [&, path] { EXPECT_EQ(Opened(), (path[0] == '/' ? proxy_.BaseURL() : "") + path + "\n"); };
  };
  const std::string version = std::string("=") + config::kVersion, padding(platform::kMaxResponseBytes, ' ');
  const std::vector<std::string> ok = {"exit=0"}, absent = {"exit=0", "session=0", "latest=1.3.0", "soft=1"};
  const Row rows[] = {
      {.what = "a signed-in host in a plug-in bundle", .given = signedIn, .argv = {"dismiss", "500"},
       .prints = {"exit=0", "latest=1.3.0", "forced=0", "soft=0", "session=1", "email=host@example.org", "notes=",
                  "version" + version, "headers" + version}, .then = saved},
      {.what = "a signed-in user upgrading", .given = upgrading, .argv = {"report"},
       .prints = {"exit=0", "session=1", "email=host@example.org", "soft=0"}, .then = [&] {
         EXPECT_EQ(ReadWholeFile(State("fcp-install-id.txt")), installId);
         EXPECT_FALSE(fs::exists(home_ / "Library"));
       }},
      {.what = "pipes at both", .given = [&] { for (auto& at : {session, dismissal}) mkfifo(State(at).c_str(), 0600); },
       .argv = {"report"}, .prints = absent},
      {.what = "an endless session", .given = [&] { fs::create_symlink("/dev/zero", State(session)); },
       .argv = {"report"}, .prints = absent},
      {.what = "an oversized session",
       .given = [&] { std::ofstream(State(session)) << R"({"access_token":"a","refresh_token":"r"})" << padding; },
       .argv = {"report"}, .prints = absent, .then = [&] {
         const std::string log = ReadWholeFile(home_ / ".local/state/orvistelle/orvistelle.log");
         EXPECT_NE(log.find("state file refused: " + State(session).string()), std::string::npos) << log;
       }},
      {.what = "returning from main", .argv = {"exit", "20000"}, .prints = ok, .runs = 8},
      {.what = "returning from main, the timer firing every millisecond", .argv = {"exit", "20000"}, .prints = ok,
       .timerMs = 1, .runs = 8},
      {.what = "unloading the library twice", .argv = {ORVISTELLE_LOADER}, .prints = ok, .timerMs = 20},
      // With tokens this short every pass refreshes and saves.
      {.what = "a kill during saves", .given = signedInWith(30, 10), .argv = {"kill", "400000"},
       .prints = {"exit=signal 9"}, .then = [&] { whole(false); }, .timerMs = 1, .runs = 10},
      // Each pass of each host is due to refresh, against a backend that revokes a session whose spent refresh token
      // comes back: through the lock beside the session file one refreshes at a time and the other adopts the answer.
      {.what = "two hosts on one session", .given = signedInWith(60, 0), .argv = {"report", "3000"},
       .prints = {"exit=0", "session=1"}, .then = [&] { whole(true); }, .timerMs = 50, .hosts = 2},
      // The first refreshes at every pass, slowly: the other's sign-out reaches it with a refresh in flight.
      {.what = "a sign-out in another host", .given = [&] { signedInWith(60, 10)(), tokenDelayMs_ = 500; },
       .argv = {"report", "2000"}, .prints = {"exit=0", "status=Signed out", "session=0"},
       .then = [&] { EXPECT_FALSE(fs::exists(State(session))); }, .timerMs = 1, .hosts = 2,
       .secondArgv = {"signout", "800"}},
      {.what = "a signed manifest", .given = published(true), .argv = {"open", "0"},
       .prints = {"exit=0", "forced=1", "latest=1.3.0"}, .then = opens("http://127.0.0.1/new.zip")},
      {.what = "an unsigned manifest", .given = published(false), .argv = {"open", "0"},
       .prints = {"exit=0", "forced=0", "latest=", "[Orvistelle] update check: bad signature"},
       .then = opens("/orvistelle/vask/fcp/orvistelle-fcp-linux-latest.deb")},
      // The backend ends the session at once, so the refresh token left on this machine is no good anywhere.
      {.what = "a sign-out", .given = signedInWith(3600, 10), .argv = {"logout", "3000"},
       .prints = {"exit=0", "status=Signed out", "session=0"}, .then = [&] {
         const json token = {{"refresh_token", json::parse(held)["refresh_token"]}};
         auto refresh = httplib::Client("127.0.0.1", backend_->Port())
                            .Post("/auth/v1/token?grant_type=refresh_token", {{"apikey", config::kPublicApiKey}},
                                  token.dump(), "application/json");
         EXPECT_EQ(refresh ? refresh->status : 0, 400);
       }},
  };
  for (const Row& row : rows) {
    for (int run = 0; run < row.runs; ++run) {
      StartBackend();
      tokenDelayMs_ = 0;
      fs::remove_all(dir_ / "home");
      fs::create_directories(State(""));
      row.given();
      std::vector<std::string> seen(row.hosts);
      std::vector<std::thread> hosts;
      for (int i = 0; i < row.hosts; ++i) {
        const auto& argv = i == 1 && !row.secondArgv.empty() ? row.secondArgv : row.argv;
        hosts.emplace_back([&, i, argv] { seen[i] = Host(argv, row.timerMs, dir_ / ("out" + std::to_string(i))); });
      }
      for (std::thread& host : hosts) host.join();
      for (const std::string& host : seen) {
        for (const std::string& line : row.prints) {
          EXPECT_NE(host.find("\n" + line + "\n"), std::string::npos) << row.what << ": " << line << "\n" << host;
        }
      }
      row.then();
    }
  }
}

}  // namespace
}  // namespace orvistelle
