// The shared library as plug-in hosts meet it: C programs in a fake plug-in bundle (hosts/), run as child processes
// with a temporary HOME and XDG folders, against the development backend on loopback.
#include <fcntl.h>
#include <sys/stat.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <httplib.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "orvistelle/BuildConfig.h"
#include "platform/testing/FakePlatform.h"
#include "tools/devbackend/DevBackend.h"

namespace orvistelle {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
namespace fs = std::filesystem;
using Milliseconds = std::chrono::milliseconds;

struct HostResult {
  int exitCode = -1;  // -1 when a signal ended it
  int signal = 0;
  std::string output;  // stdout
  std::string errors;  // stderr: sanitizer reports, aborts
  std::map<std::string, std::string> Values() const {
    std::map<std::string, std::string> values;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
      size_t equals = line.find('=');
      if (equals != std::string::npos) values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return values;
  }
};

std::string ReadWhole(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Runs argv with exactly the environment given, and SIGKILLs it once `limit` has passed.
HostResult RunHost(std::vector<std::string> argv, std::vector<std::string> env, Milliseconds limit,
                   const fs::path& outputDir) {
  std::vector<char*> args, vars;
  for (auto& arg : argv) args.push_back(arg.data());
  for (auto& var : env) vars.push_back(var.data());
  args.push_back(nullptr);
  vars.push_back(nullptr);
  const fs::path out = outputDir / "host.out", err = outputDir / "host.err";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t child = 0;
  HostResult result;
  int spawned = posix_spawn(&child, args[0], &actions, nullptr, args.data(), vars.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return result;
  int status = 0;
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() >= deadline) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      break;
    }
    std::this_thread::sleep_for(1ms);
  }
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  result.output = ReadWhole(out);
  result.errors = ReadWhole(err);
  return result;
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
    WriteManifest(R"({"hosts":{"fcp":{"version":"1.3.0","force_below":"1.1.0"}}})");
    StartBackend(3600);
  }

  void StartBackend(int accessTokenLifetimeSeconds, double reuseIntervalSeconds = 10) {
    backend_ = std::make_unique<devbackend::DevBackend>(devbackend::Options{
        0, dir_ / "backend", dir_ / "latest.json", accessTokenLifetimeSeconds, nullptr, reuseIntervalSeconds});
    std::string error;
    ASSERT_TRUE(backend_->Start(&error)) << error;
  }

  void WriteManifest(const std::string& text) { std::ofstream(dir_ / "latest.json") << text; }

  // A host process's whole environment: the temporary folders (the home standing in for the user database's too), the backend, a short timer if asked, and the
  // sanitizer options of this process, never anything else of the caller's.
  std::vector<std::string> Environment(std::optional<int> timerMs = std::nullopt) const {
    std::vector<std::string> env = {"HOME=" + (dir_ / "home").string(),
                                    "ORVISTELLE_DEV_HOME=" + (dir_ / "home").string(),
                                    "XDG_CONFIG_HOME=" + (dir_ / "config").string(),
                                    "XDG_DATA_HOME=" + (dir_ / "data").string(),
                                    "XDG_CACHE_HOME=" + (dir_ / "cache").string(),
                                    "XDG_STATE_HOME=" + (dir_ / "state").string(),
                                    "PATH=/usr/bin:/bin",
                                    "LANG=en_US.UTF-8",
                                    "ORVISTELLE_DEV_BACKEND=" + backend_->BaseURL()};
    if (timerMs) env.push_back("ORVISTELLE_DEV_TIMER_MS=" + std::to_string(*timerMs));
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
      if (const char* value = std::getenv(name)) env.push_back(std::string(name) + "=" + value);
    }
    // A host may exit at any moment, while the library is starting one of its detached threads.
    const char* tsan = std::getenv("TSAN_OPTIONS");
    env.push_back(std::string("TSAN_OPTIONS=") + (tsan != nullptr ? std::string(tsan) + ":" : "") +
                  "report_thread_leaks=0");
    return env;
  }

  HostResult Host(std::vector<std::string> args, std::optional<int> timerMs = std::nullopt, Milliseconds limit = 20s) {
    args.insert(args.begin(), ORVISTELLE_HOST);
    return RunHost(std::move(args), Environment(timerMs), limit, dir_ / "out");
  }

  fs::path SupportFile(const std::string& name) const {
    return dir_ / "home" / "Library/Application Support/Orvistelle" / name;
  }

  // Signs a user in through the development site's form and writes the session the relay hands out, as the
  // library saves it (without the e-mail when it is empty, so that the first pass fetches it and saves).
  json SignedInSession(const std::string& email = "host@example.org") {
    httplib::Client client("127.0.0.1", backend_->Port());
    char flow[40];
    std::snprintf(flow, sizeof flow, "0b7c2a34-6d1e-4f4a-9a53-%012x", ++flows_);
    auto signIn = client.Post("/site/sign-in", httplib::Params{{"email", email}, {"password", "host"}, {"flowId", flow}});
    auto relay = client.Get(std::string("/rest/v1/auth_relay?id=eq.") + flow + "&select=session_payload",
                            {{"apikey", config::kPublicApiKey}});
    EXPECT_TRUE(signIn && signIn->status == 200 && relay && relay->status == 200);
    if (!relay || relay->status != 200) return json::object();
    const json payload = json::parse(relay->body).at(0).at("session_payload");
    return {{"access_token", payload["access_token"]}, {"refresh_token", payload["refresh_token"]},
            {"email", ""}, {"expires_at", payload["expires_at"]}};
  }

  void WriteSignedInSession() { WriteState("fcp-session.json", SignedInSession().dump()); }

  void WriteState(const std::string& name, const std::string& text, const fs::path& at = {}) {
    fs::create_directories(SupportFile("").parent_path());
    std::ofstream(at.empty() ? SupportFile(name) : at) << text;
  }

  json ReadState(const std::string& name) const {
    json state = json::parse(ReadWhole(SupportFile(name)), nullptr, false);
    return state.is_object() ? state : json::object();
  }

  platform::testing::TempDir temp_;
  const fs::path dir_ = temp_.path();
  std::unique_ptr<devbackend::DevBackend> backend_;
  unsigned flows_ = 0;
};

TEST_F(HostTest, AHostInAPlugInBundleReadsTheManifestAndTheSession) {
  WriteSignedInSession();
  HostResult host = Host({"report"});
  ASSERT_EQ(host.exitCode, 0) << host.errors;
  auto values = host.Values();
  EXPECT_EQ(values["latest"], "1.3.0");
  EXPECT_EQ(values["session"], "1");
  EXPECT_EQ(values["email"], "host@example.org");  // fetched by the first pass
  // The bundle says 1.2.0: above "force_below" 1.1.0, below "version" 1.3.0.
  EXPECT_EQ(values["forced"], "0");
  EXPECT_EQ(values["soft"], "1");
  EXPECT_EQ(values["version"], config::kVersion);
  EXPECT_EQ(values["headers"], config::kVersion);
  // The backend's log of the manifest fetch names the host, its bundle's build and the library.
  auto page = httplib::Client("127.0.0.1", backend_->Port()).Get("/dev");
  const std::string userAgent = std::string("orvistelle-host/120 orvistelle/") + config::kVersion + " (Linux)";
  EXPECT_NE(page->body.find(userAgent), std::string::npos) << userAgent;
}

// A host quits at any moment while its own threads read state and the library's threads work: with the usual timer,
// and with one firing every millisecond.
TEST_F(HostTest, ExitsAtAnyMomentWithoutAnAbort) {
  std::mt19937 random(std::random_device{}());
  for (std::optional<int> timerMs : {std::optional<int>(), std::optional<int>(1)}) {
    const int runs = Runs(8);
    int failed = 0;
    std::string firstErrors;
    for (int run = 0; run < runs; ++run) {
      HostResult host = Host({"exit-race", std::to_string(random() % 20000)}, timerMs);
      if (host.exitCode == 0) continue;
      if (failed++ == 0) firstErrors = host.errors;
    }
    std::cout << "timer " << timerMs.value_or(30000) << " ms: " << failed << " of " << runs << " exits failed\n";
    EXPECT_EQ(failed, 0) << firstErrors.substr(firstErrors.size() - std::min<size_t>(firstErrors.size(), 2000));
  }
}

// A host that unloads the library after starting it, loads it again and unloads it again, then lives on past several
// firings of the maintenance timer.
TEST_F(HostTest, UnloadingAfterMaintainIsSafe) {
  HostResult loader =
      RunHost({ORVISTELLE_LOADER, ORVISTELLE_SERVICE_LIBRARY, "300"}, Environment(20), 20s, dir_ / "out");
  EXPECT_EQ(loader.exitCode, 0) << loader.errors.substr(0, 2000);
  EXPECT_EQ(loader.output, "survived\n");
}

// The refreshes the backend has granted the user's live sessions, as its /dev page lists them; a revoked session is
// gone from the list.
int RefreshesGranted(int port, const std::string& email) {
  httplib::Client client("127.0.0.1", port);
  auto page = client.Get("/dev");
  std::smatch row;
  const std::regex cells("<td>" + email + "</td>(?:<td>[^<]*</td>){3}<td>([0-9]+)</td>");
  return page && std::regex_search(page->body, row, cells) ? std::stoi(row[1]) : 0;
}

// Two hosts share one HOME and one session against a backend that revokes a session whose spent refresh token comes
// back. With a 60 s access token every pass of each host is due to refresh; through the lock beside the session file
// one refreshes at a time and the other adopts the answer, so the spent token is never presented.
TEST_F(HostTest, TwoHostsSharingASessionNeverPresentASpentRefreshToken) {
  backend_.reset();
  StartBackend(60, 0);
  WriteSignedInSession();
  std::vector<HostResult> hosts(2);
  std::vector<std::thread> running;
  for (size_t i = 0; i < hosts.size(); ++i) {
    const fs::path out = dir_ / ("out" + std::to_string(i));
    fs::create_directory(out);
    running.emplace_back([&, i, out] { hosts[i] = RunHost({ORVISTELLE_HOST, "run", "3000"}, Environment(50), 20s, out); });
  }
  for (std::thread& host : running) host.join();
  int signOuts = 0;
  for (const HostResult& host : hosts) {
    EXPECT_EQ(host.exitCode, 0) << host.errors.substr(0, 2000);
    for (size_t at = 0; (at = host.errors.find("session expired", at)) != std::string::npos; ++at) ++signOuts;
    EXPECT_EQ(host.Values()["session"], "1");
  }
  const int refreshes = RefreshesGranted(backend_->Port(), "host@example.org");
  std::cout << "two hosts, 3 s: " << refreshes << " refreshes, " << signOuts << " sign-outs\n";
  EXPECT_EQ(signOuts, 0);
  EXPECT_GE(refreshes, 4);
}

// Whatever lies at a state path, the host starts, reports and exits at once, as if no file were there.
TEST_F(HostTest, HostileObjectsAtStatePathsReadAsAbsent) {
  const std::string oversized = json{{"access_token", "a"}, {"refresh_token", "r"}, {"email", "big@example.org"},
                                     {"expires_at", 4e9}, {"padding", std::string(64 * 1024, ' ')}}.dump();
  const struct {
    const char* object;
    const char* file;
    std::function<void(const fs::path&)> make;
  } rows[] = {
      {"directory", "fcp-update-dismiss.json", [](const fs::path& at) { fs::create_directory(at); }},
      {"directory", "fcp-session.json", [](const fs::path& at) { fs::create_directory(at); }},
      {"FIFO", "fcp-update-dismiss.json", [](const fs::path& at) { mkfifo(at.c_str(), 0600); }},
      {"FIFO", "fcp-session.json", [](const fs::path& at) { mkfifo(at.c_str(), 0600); }},
      {"link to /dev/zero", "fcp-session.json", [](const fs::path& at) { fs::create_symlink("/dev/zero", at); }},
      {"file over 64 KiB", "fcp-session.json", [&](const fs::path& at) { std::ofstream(at) << oversized; }},
  };
  for (const auto& row : rows) {
    fs::remove_all(dir_ / "home" / "Library");
    fs::create_directories(SupportFile("").parent_path());
    row.make(SupportFile(row.file));
    HostResult host = Host({"report"}, std::nullopt, 10s);
    EXPECT_EQ(host.exitCode, 0) << row.object << " at " << row.file << ": " << host.errors.substr(0, 2000);
    EXPECT_EQ(host.Values()["session"], "0") << row.object << " at " << row.file;
    EXPECT_EQ(host.Values()["latest"], "1.3.0") << row.object << " at " << row.file;
  }
}

// A save replaces the file with a private one: an earlier file readable by others, or a symbolic link that leads
// elsewhere, does not survive it, and the link's target stays untouched.
TEST_F(HostTest, SavesReplaceTheStateFileWithAPrivateOne) {
  const fs::path outside = dir_ / "outside.json";
  const struct {
    std::vector<std::string> args;
    const char* file;
    bool linked;  // the path is a link to `outside`, else a file readable by all
    const char* key;
    const char* saved;
  } rows[] = {
      {{"run", "1500"}, "fcp-session.json", false, "email", "host@example.org"},
      {{"run", "1500"}, "fcp-session.json", true, "email", "host@example.org"},
      {{"dismiss"}, "fcp-update-dismiss.json", false, "version", "1.3.0"},
      {{"dismiss"}, "fcp-update-dismiss.json", true, "version", "1.3.0"},
  };
  for (const auto& row : rows) {
    fs::remove_all(dir_ / "home" / "Library");
    const std::string before = row.args[0] == "run" ? SignedInSession().dump() : R"({"version":"0.9.0"})";
    WriteState(row.file, before, row.linked ? outside : fs::path());
    if (row.linked) fs::create_symlink(outside, SupportFile(row.file));
    chmod((row.linked ? outside : fs::path(SupportFile(row.file))).c_str(), 0644);
    HostResult host = Host(row.args);
    ASSERT_EQ(host.exitCode, 0) << host.errors;
    struct stat info {};
    ASSERT_EQ(lstat(SupportFile(row.file).c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode)) << row.file << (row.linked ? " linked" : "");
    EXPECT_EQ(info.st_mode & 0777, 0600u) << row.file << (row.linked ? " linked" : "");
    EXPECT_EQ(ReadState(row.file)[row.key], row.saved) << row.file << (row.linked ? " linked" : "");
    if (row.linked) {
      EXPECT_EQ(ReadWhole(outside), before) << row.file;
    }
  }
}

// Kills a host at random moments while every maintenance pass refreshes the session and saves it: the file left
// behind always holds a whole session.
TEST_F(HostTest, AKillDuringSavesLeavesAWholeSession) {
  StartBackend(30);  // tokens this short are renewed at every pass
  std::mt19937 random(std::random_device{}());
  const int kills = Runs(10);
  int broken = 0, missing = 0;
  for (int kill = 0; kill < kills; ++kill) {
    WriteSignedInSession();
    HostResult host = Host({"run", "10000"}, 1, Milliseconds(100 + random() % 300));
    EXPECT_EQ(host.signal, SIGKILL) << host.errors.substr(0, 2000);
    if (!fs::exists(SupportFile("fcp-session.json"))) {
      ++missing;
    } else if (json saved = ReadState("fcp-session.json");
               !saved["access_token"].is_string() || saved["access_token"].empty() ||
               !saved["refresh_token"].is_string() || saved["refresh_token"].empty()) {
      ++broken;
    }
  }
  auto temporaries = [this] {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(SupportFile("").parent_path())) {
      if (entry.path().filename().string().starts_with(".fcp-session.json.")) found.push_back(entry.path());
    }
    return found;
  };
  std::cout << kills << " kills: " << broken << " broken and " << missing << " missing session files, "
            << temporaries().size() << " temporary files left\n";
  // The next save clears what the kills left, once it is old enough not to be another process's save under way.
  WriteState(".fcp-session.json.stale1", "{");
  const std::vector<fs::path> stale = temporaries();
  for (const fs::path& temporary : stale) fs::last_write_time(temporary, fs::file_time_type::clock::now() - 2min);
  WriteState(".fcp-session.json.young1", "{");
  WriteSignedInSession();
  Host({"run", "500"}, 1);
  for (const fs::path& temporary : stale) EXPECT_FALSE(fs::exists(temporary)) << temporary;
  EXPECT_TRUE(fs::exists(SupportFile(".fcp-session.json.young1")));
  EXPECT_EQ(broken + missing, 0);
}

}  // namespace
}  // namespace orvistelle
