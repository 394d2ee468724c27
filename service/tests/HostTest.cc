// The shared library as plug-in hosts meet it: C programs in a fake plug-in bundle (hosts/), run as child processes
// with a temporary HOME and XDG folders, against the development backend on loopback.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <httplib.h>

#include <nlohmann/json.hpp>

#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <regex>
#include <thread>

#include "orvistelle/BuildConfig.h"
#include "platform/testing/ChildProcess.h"
#include "platform/testing/FakePlatform.h"
#include "tools/devbackend/DevBackend.h"

namespace orvistelle {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
namespace fs = std::filesystem;
using Milliseconds = std::chrono::milliseconds;
const std::string kHost = ORVISTELLE_HOST;

struct Outcome {
  int exitCode = -1;  // -1 when a signal ended it
  int signal = 0;
  std::map<std::string, std::string> values;  // the "key=value" lines of its output
  std::string errors;                         // sanitizer reports, aborts
  std::string Tail() const { return errors.substr(errors.size() - std::min<size_t>(errors.size(), 2000)); }
};

// Runs argv with exactly the environment given, and SIGKILLs it once `limit` has passed.
Outcome Spawn(std::vector<std::string> argv, std::vector<std::string> env, Milliseconds limit, const fs::path& outDir) {
  const platform::testing::ChildRun child = platform::testing::RunChild(std::move(argv), std::move(env), outDir, limit);
  Outcome run{child.exitCode, child.signal, {}, child.err};
  std::istringstream lines(child.out);
  for (std::string line; std::getline(lines, line);) {
    if (size_t equals = line.find('='); equals != std::string::npos) run.values[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return run;
}

// How many runs the repeated tests make: few by default, more for a measurement (ORVISTELLE_HOST_RUNS=200).
int Runs(int fallback) {
  const char* runs = std::getenv("ORVISTELLE_HOST_RUNS");
  return runs != nullptr && std::atoi(runs) > 0 ? std::atoi(runs) : fallback;
}

class HostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* folder : {"home", "config", "data", "cache", "state", "out"}) fs::create_directory(dir_ / folder);
    std::ofstream(dir_ / "latest.json") << R"({"hosts":{"fcp":{"version":"1.3.0","force_below":"1.1.0"}}})";
    StartBackend(3600);
  }

  void StartBackend(int accessTokenLifetimeSeconds, double reuseIntervalSeconds = 10) {
    backend_.reset();
    backend_ = std::make_unique<devbackend::DevBackend>(devbackend::Options{
        0, dir_ / "backend", dir_ / "latest.json", accessTokenLifetimeSeconds, nullptr, reuseIntervalSeconds});
    std::string error;
    ASSERT_TRUE(backend_->Start(&error)) << error;
  }

  // A host's whole environment: the temporary folders, the backend, a short timer if asked, and the sanitizer
  // options of this process, never anything else of the caller's.
  Outcome Host(std::vector<std::string> argv, std::optional<int> timerMs = {}, Milliseconds limit = 20s,
           const fs::path& outDir = {}) const {
    std::vector<std::string> env = {"PATH=/usr/bin:/bin", "LANG=en_US.UTF-8",
                                    "ORVISTELLE_DEV_BACKEND=" + backend_->BaseURL()};
    for (const char* name : {"HOME", "ORVISTELLE_DEV_HOME"}) env.push_back(std::string(name) + "=" + (dir_ / "home").string());
    for (const char* name : {"CONFIG", "DATA", "CACHE", "STATE"}) {
      env.push_back(std::string("XDG_") + name + "_HOME=" + (dir_ / name).string());
    }
    if (timerMs) env.push_back("ORVISTELLE_DEV_TIMER_MS=" + std::to_string(*timerMs));
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
      if (const char* value = std::getenv(name)) env.push_back(std::string(name) + "=" + value);
    }
    // A host may exit at any moment, while the library is starting one of its detached threads.
    const char* tsan = std::getenv("TSAN_OPTIONS");
    env.push_back("TSAN_OPTIONS=" + (tsan != nullptr ? std::string(tsan) + ":" : "") + "report_thread_leaks=0");
    if (argv[0][0] != '/') argv.insert(argv.begin(), kHost);
    return Spawn(std::move(argv), std::move(env), limit, outDir.empty() ? dir_ / "out" : outDir);
  }

  fs::path State(const std::string& name) const {
    return dir_ / "home" / "Library/Application Support/Orvistelle" / name;
  }

  // A user signed in through the development site's form: the session the relay hands out, without the e-mail, so
  // that the first pass fetches it and saves.
  std::string SignedInSession() {
    httplib::Client client("127.0.0.1", backend_->Port());
    char flow[40];
    std::snprintf(flow, sizeof flow, "0b7c2a34-6d1e-4f4a-9a53-%012x", ++flows_);
    auto signIn = client.Post("/site/sign-in", httplib::Params{{"email", "host@example.org"}, {"password", "host"},
                                                               {"flowId", flow}});
    auto relay = client.Get(std::string("/rest/v1/auth_relay?id=eq.") + flow + "&select=session_payload",
                            {{"apikey", config::kPublicApiKey}});
    EXPECT_TRUE(signIn && signIn->status == 200 && relay && relay->status == 200);
    if (!relay || relay->status != 200) return "{}";
    const json payload = json::parse(relay->body).at(0).at("session_payload");
    return json{{"access_token", payload["access_token"]}, {"refresh_token", payload["refresh_token"]},
                {"email", ""}, {"expires_at", payload["expires_at"]}}.dump();
  }

  void Write(const std::string& text, const fs::path& at) {
    fs::create_directories(State("").parent_path());
    std::ofstream(at) << text;
  }

  json Read(const std::string& name) const {
    json state = json::parse(platform::testing::ReadWholeFile(State(name)), nullptr, false);
    return state.is_object() ? state : json::object();
  }

  platform::testing::TempDir temp_;
  const fs::path dir_ = temp_.path();
  std::unique_ptr<devbackend::DevBackend> backend_;
  unsigned flows_ = 0;
};

TEST_F(HostTest, AHostInAPlugInBundleReadsTheManifestAndTheSession) {
  Write(SignedInSession(), State("fcp-session.json"));
  Outcome host = Host({"report"});
  ASSERT_EQ(host.exitCode, 0) << host.errors;
  // The bundle says 1.2.0: above "force_below" 1.1.0, below "version" 1.3.0; the e-mail is fetched by the first pass.
  const std::map<std::string, std::string> expected = {
      {"latest", "1.3.0"}, {"session", "1"}, {"email", "host@example.org"}, {"forced", "0"}, {"soft", "1"},
      {"version", config::kVersion}, {"headers", config::kVersion}};
  for (const auto& [key, value] : expected) EXPECT_EQ(host.values[key], value) << key;
  // The backend's log of the manifest fetch names the host, its bundle's build and the library.
  auto page = httplib::Client("127.0.0.1", backend_->Port()).Get("/dev");
  const std::string userAgent = std::string("orvistelle-host/120 orvistelle/") + config::kVersion + " (Linux)";
  EXPECT_NE(page->body.find(userAgent), std::string::npos) << userAgent;
}

// A host quits at any moment while its own threads read state and the library's threads work, with the usual timer
// and with one firing every millisecond; another unloads the library twice after starting it and lives on past
// several firings of the timer.
TEST_F(HostTest, ExitingOrUnloadingAtAnyMomentIsSafe) {
  std::mt19937 random(std::random_device{}());
  for (std::optional<int> timerMs : {std::optional<int>(), std::optional<int>(1)}) {
    int failed = 0;
    std::string firstErrors;
    for (int run = 0; run < Runs(8); ++run) {
      Outcome host = Host({"exit-race", std::to_string(random() % 20000)}, timerMs);
      if (host.exitCode != 0 && failed++ == 0) firstErrors = host.Tail();
    }
    EXPECT_EQ(failed, 0) << "timer " << timerMs.value_or(30000) << " ms: " << firstErrors;
  }
  Outcome loader = Host({ORVISTELLE_LOADER, ORVISTELLE_SERVICE_LIBRARY, "300"}, 20);
  EXPECT_EQ(loader.exitCode, 0) << loader.Tail();
  EXPECT_EQ(loader.values["survived"], "1");
}

// Two hosts share one HOME and one session against a backend that revokes a session whose spent refresh token comes
// back. With a 60 s access token every pass of each host is due to refresh; through the lock beside the session file
// one refreshes at a time and the other adopts the answer, so the spent token is never presented.
TEST_F(HostTest, TwoHostsSharingASessionNeverPresentASpentRefreshToken) {
  StartBackend(60, 0);
  Write(SignedInSession(), State("fcp-session.json"));
  std::vector<Outcome> hosts(2);
  std::vector<std::thread> running;
  for (size_t i = 0; i < hosts.size(); ++i) {
    fs::create_directory(dir_ / std::to_string(i));
    running.emplace_back([&, i] { hosts[i] = Host({"run", "3000"}, 50, 20s, dir_ / std::to_string(i)); });
  }
  for (std::thread& host : running) host.join();
  for (const Outcome& host : hosts) {
    EXPECT_EQ(host.exitCode, 0) << host.Tail();
    EXPECT_EQ(host.errors.find("session expired"), std::string::npos) << host.Tail();
    EXPECT_EQ(host.values.at("session"), "1");
  }
  // The refreshes granted to the user's live session, as the backend's /dev page lists them.
  auto page = httplib::Client("127.0.0.1", backend_->Port()).Get("/dev");
  std::smatch row;
  ASSERT_TRUE(page && std::regex_search(page->body, row,
                                        std::regex("<td>host@example.org</td>(?:<td>[^<]*</td>){3}<td>([0-9]+)</td>")));
  EXPECT_GE(std::stoi(row[1]), 4);
}

// Whatever lies at a state path, the host starts, reports and exits at once, as if no file were there.
TEST_F(HostTest, HostileObjectsAtStatePathsReadAsAbsent) {
  const std::string oversized = json{{"access_token", "a"}, {"refresh_token", "r"}, {"email", "big@example.org"},
                                     {"expires_at", 4e9}, {"padding", std::string(64 * 1024, ' ')}}.dump();
  const std::function<void(const fs::path&)> directory = [](auto& at) { fs::create_directory(at); },
                                             fifo = [](auto& at) { mkfifo(at.c_str(), 0600); };
  const std::pair<const char*, std::function<void(const fs::path&)>> rows[] = {
      {"fcp-update-dismiss.json", directory}, {"fcp-session.json", directory},
      {"fcp-update-dismiss.json", fifo},      {"fcp-session.json", fifo},
      {"fcp-session.json", [](auto& at) { fs::create_symlink("/dev/zero", at); }},
      {"fcp-session.json", [&](auto& at) { std::ofstream(at) << oversized; }},
  };
  for (size_t i = 0; i < std::size(rows); ++i) {
    fs::remove_all(dir_ / "home" / "Library");
    fs::create_directories(State("").parent_path());
    rows[i].second(State(rows[i].first));
    Outcome host = Host({"report"}, {}, 10s);
    EXPECT_EQ(host.exitCode, 0) << "row " << i << ": " << host.Tail();
    EXPECT_EQ(host.values["session"], "0") << "row " << i;
    EXPECT_EQ(host.values["latest"], "1.3.0") << "row " << i;
  }
}

// A save replaces the file with a private one: an earlier file readable by others, or a symbolic link that leads
// elsewhere, does not survive it, and the link's target stays untouched.
TEST_F(HostTest, SavesReplaceTheStateFileWithAPrivateOne) {
  const fs::path outside = dir_ / "outside.json";
  for (bool linked : {false, true}) {
    for (bool session : {true, false}) {
      fs::remove_all(dir_ / "home" / "Library");
      const std::string file = session ? "fcp-session.json" : "fcp-update-dismiss.json";
      const std::string before = session ? SignedInSession() : R"({"version":"0.9.0"})";
      Write(before, linked ? outside : State(file));
      if (linked) fs::create_symlink(outside, State(file));
      chmod((linked ? outside : State(file)).c_str(), 0644);
      ASSERT_EQ(Host(session ? std::vector<std::string>{"run", "1500"} : std::vector<std::string>{"dismiss"}).exitCode, 0);
      struct stat info {};
      ASSERT_EQ(lstat(State(file).c_str(), &info), 0);
      EXPECT_TRUE(S_ISREG(info.st_mode)) << file << linked;
      EXPECT_EQ(info.st_mode & 0777, 0600u) << file << linked;
      EXPECT_EQ(Read(file)[session ? "email" : "version"], session ? "host@example.org" : "1.3.0") << file << linked;
      if (linked) EXPECT_EQ(platform::testing::ReadWholeFile(outside), before) << file;
    }
  }
}

// Kills a host at random moments while every maintenance pass refreshes the session and saves it: the file left
// behind always holds a whole session, and the next save clears the temporary files the kills left once they are
// old enough not to be another process's save under way.
TEST_F(HostTest, AKillDuringSavesLeavesAWholeSession) {
  StartBackend(30);  // tokens this short are renewed at every pass
  std::mt19937 random(std::random_device{}());
  for (int kill = 0; kill < Runs(10); ++kill) {
    Write(SignedInSession(), State("fcp-session.json"));
    Outcome host = Host({"run", "10000"}, 1, Milliseconds(100 + random() % 300));
    EXPECT_EQ(host.signal, SIGKILL) << host.Tail();
    json saved = Read("fcp-session.json");
    EXPECT_TRUE(saved["access_token"].is_string() && !saved["access_token"].empty() &&
                saved["refresh_token"].is_string() && !saved["refresh_token"].empty()) << "kill " << kill;
  }
  Write("{", State(".fcp-session.json.stale1"));
  std::vector<fs::path> stale;
  for (const auto& entry : fs::directory_iterator(State("").parent_path())) {
    if (entry.path().filename().string().starts_with(".fcp-session.json.")) stale.push_back(entry.path());
  }
  for (const fs::path& temporary : stale) fs::last_write_time(temporary, fs::file_time_type::clock::now() - 2min);
  Write("{", State(".fcp-session.json.young1"));
  Write(SignedInSession(), State("fcp-session.json"));
  Host({"run", "500"}, 1);
  for (const fs::path& temporary : stale) EXPECT_FALSE(fs::exists(temporary)) << temporary;
  EXPECT_TRUE(fs::exists(State(".fcp-session.json.young1")));
}

}  // namespace
}  // namespace orvistelle
