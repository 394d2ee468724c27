// Fakes for every seam the account session uses, and a loopback backend that records what it is sent.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <filesystem>
#include <fstream>

#include "auth/AuthTesting.h"
#include "auth/Json.h"
#include "orvistelle/FcpAuth.h"
#include "platform/Platform.h"

namespace orvistelle::auth::testing {

using namespace std::chrono_literals;

inline bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 5s) {
  for (auto deadline = std::chrono::steady_clock::now() + limit; !condition(); std::this_thread::sleep_for(1ms)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
  }
  return true;
}

struct SeenRequest {
  std::string method, target, body;            // target: path and query as sent
  std::map<std::string, std::string> headers;  // names in lower case
};
struct Reply {
  int status = 200;
  std::string body = "{}";
};
using Responder = std::function<Reply(const SeenRequest&)>;

template <class Item>
class Recorded {
 public:
  void Add(Item item) {
    std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
  }
  std::vector<Item> All() {
    std::lock_guard lock(mutex_);
    return items_;
  }

 private:
  std::mutex mutex_;
  std::vector<Item> items_;
};

// A real HTTP server on 127.0.0.1, on a port the system chooses; paths nobody answers get 404.
class Backend {
 public:
  Backend() {
    auto handle = [this](const httplib::Request& request, httplib::Response& response) {
      SeenRequest seen{request.method, request.target, request.body, {}};
      for (const auto& [sentName, value] : request.headers) {
        std::string name = sentName;
        for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (name.find('_') == std::string::npos) seen.headers[name] = value;  // not the connection's addresses
      }
      Responder responder;
      {
        std::lock_guard lock(mutex_);
        seen_[request.path].push_back(seen);
        responder = responders_[request.path];
      }
      Reply reply = responder ? responder(seen) : Reply{404};
      response.status = reply.status;
      response.set_content(reply.body, "application/json");
    };
    server_.Get(".*", handle);
    server_.Post(".*", handle);
    server_.set_keep_alive_max_count(1);  // pooled client connections must not tie up the server's workers
    server_.new_task_queue = [] { return new httplib::ThreadPool(32); };
    url = "http://127.0.0.1:" + std::to_string(server_.bind_to_any_port("127.0.0.1"));
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    WaitUntil([this] { return server_.is_running(); });  // a server stopped before it listens never stops
  }
  ~Backend() {
    server_.stop();
    thread_.join();
  }
  // For requests whose path, without the query, is `path`.
  void Answer(const std::string& path, Responder responder) {
    std::lock_guard lock(mutex_);
    responders_[path] = std::move(responder);
  }
  void Answer(const std::string& path, Reply reply) {
    Answer(path, [reply](const SeenRequest&) { return reply; });
  }
  std::vector<SeenRequest> Seen(const std::string& path) {
    std::lock_guard lock(mutex_);
    return seen_[path];
  }

  std::string url;

 private:
  httplib::Server server_;
  std::thread thread_;
  std::mutex mutex_;
  std::map<std::string, Responder> responders_;
  std::map<std::string, std::vector<SeenRequest>> seen_;
};

struct FakeClock final : platform::Clock {
  double Now() override { return now; }
  std::atomic<double> now{1'700'000'000};  // 2023-11-14 22:13:20 UTC
};
struct FakeHome final : platform::Home {
  std::string FromUserDatabase() override { return fromDatabase; }
  std::string Directory() override { return directory; }
  std::string fromDatabase, directory = "/nonexistent-home";
};
struct FakeBrowser final : platform::Browser, Recorded<std::string> {
  void Open(const std::string& url) override { Add(url); }
};
struct FakeLog final : platform::SystemLog, Recorded<std::string> {
  void Write(std::string_view line) override { Add(std::string(line)); }
};
struct FakeBundle final : platform::Bundle {
  platform::BundleLocation Main() override { return {}; }
  std::optional<std::string> InfoString(std::string_view key) override {
    auto found = info.find(std::string(key));
    return found == info.end() ? std::nullopt : std::optional(found->second);
  }
  std::map<std::string, std::string> info;
};
struct FakeLanguages final : platform::Languages {
  std::vector<std::string> Preferred() override { return {language}; }
  std::string language = "en-US";
};

// A JWT with the given claims and a signature nobody checks.
inline std::string Jwt(const Json& claims) {
  static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string bytes = Dump(claims), payload;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t group = static_cast<uint8_t>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) group |= static_cast<uint8_t>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size()) group |= static_cast<uint8_t>(bytes[i + 2]);
    for (size_t j = 0; j <= std::min<size_t>(3, bytes.size() - i); ++j) {
      payload += kAlphabet[(group >> (18 - 6 * j)) & 63];
    }
  }
  return "eyJhbGciOiJIUzI1NiJ9." + payload + ".c2ln";
}

// Every seam faked, a private home folder, the module pointed at the backend with fast polls and a timer that only
// fires when a test asks. The module is reset afterwards.
class AuthTest : public ::testing::Test {
 protected:
  AuthTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "auth-test-XXXXXX").string();
    home = mkdtemp(pattern.data());
    fakeHome.fromDatabase = home.string();
    UseSettings([](AuthSettings&) {});
  }
  ~AuthTest() override {
    release = true;
    ResetAuthForTesting();
    std::filesystem::remove_all(home);
  }
  void UseSettings(const std::function<void(AuthSettings&)>& change) {
    AuthSettings settings{backend.url, backend.url, 2ms, 1h, 1h};
    change(settings);
    SetAuthSettingsForTesting(settings);
  }
  // Answers only once `release` is set.
  Responder Held(Reply reply) {
    return [this, reply](const SeenRequest&) {
      WaitUntil([this] { return release.load(); }, 10s);
      return reply;
    };
  }
  std::string Status() { return FcpAuthStatus() + (FcpAuthStatusIsError() ? " (error)" : ""); }
  std::filesystem::path Support(const std::string& name) const {
    return home / "Library/Application Support/Orvistelle" / name;
  }
  void Write(const std::string& name, const std::string& contents) const {
    std::filesystem::create_directories(Support("."));
    std::ofstream(Support(name), std::ios::binary) << contents;
  }
  std::optional<std::string> Read(const std::string& name) const {
    std::ifstream file(Support(name), std::ios::binary);
    return file ? std::optional(std::string(std::istreambuf_iterator<char>(file), {})) : std::nullopt;
  }

  std::atomic<bool> release{false};  // outlives the backend, whose handlers may wait on it
  Backend backend;
  std::filesystem::path home;
  FakeClock clock;
  FakeHome fakeHome;
  FakeBrowser browser;
  FakeLog log;
  FakeBundle bundle;
  FakeLanguages languages;

 private:
  platform::ScopedSeam<platform::Clock> clockSeam_{&clock};
  platform::ScopedSeam<platform::Home> homeSeam_{&fakeHome};
  platform::ScopedSeam<platform::Browser> browserSeam_{&browser};
  platform::ScopedSeam<platform::SystemLog> logSeam_{&log};
  platform::ScopedSeam<platform::Bundle> bundleSeam_{&bundle};
  platform::ScopedSeam<platform::Languages> languagesSeam_{&languages};
};

}  // namespace orvistelle::auth::testing
