// Fakes for every seam the account session uses, and a loopback backend that records what it is sent.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "auth/AuthTesting.h"
#include "auth/Json.h"
#include "platform/Platform.h"

namespace orvistelle::auth::testing {

using namespace std::chrono_literals;

struct SeenRequest {
  std::string method;
  std::string target;                         // path and query as sent
  std::map<std::string, std::string> headers; // names in lower case
  std::string body;
};

struct Reply {
  int status = 200;
  std::string body = "{}";
};

// A real HTTP server on 127.0.0.1, port chosen by the system. Unanswered paths get 404.
class Backend {
 public:
  using Responder = std::function<Reply(const SeenRequest&)>;
  Backend();
  ~Backend();
  std::string url() const { return url_; }
  // For requests whose path (without the query) is `path`.
  void Answer(const std::string& path, Responder responder);
  void Answer(const std::string& path, Reply reply);
  std::vector<SeenRequest> Seen(const std::string& path) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::string url_;
};

// Holds back the answers that wait on it until opened.
class Gate {
 public:
  void Wait();
  void Open();

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

class FakeClock final : public platform::Clock {
 public:
  double Now() override { return now.load(); }
  std::atomic<double> now{1'700'000'000};  // 2023-11-14 22:13:20 UTC
};

class FakeHome final : public platform::Home {
 public:
  std::string FromUserDatabase() override { return fromDatabase; }
  std::string Directory() override { return directory; }
  std::string fromDatabase, directory;
};

class FakeBrowser final : public platform::Browser {
 public:
  void Open(const std::string& url) override;
  std::vector<std::string> Opened();

 private:
  std::mutex mutex_;
  std::vector<std::string> opened_;
};

class FakeLog final : public platform::SystemLog {
 public:
  void Write(std::string_view line) override;
  std::vector<std::string> Lines();

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

class FakeBundle final : public platform::Bundle {
 public:
  platform::BundleLocation Main() override { return {}; }
  std::optional<std::string> InfoString(std::string_view key) override;
  std::map<std::string, std::string> info;
};

class FakeLanguages final : public platform::Languages {
 public:
  std::vector<std::string> Preferred() override { return {language}; }
  std::string language = "en-US";
};

// A JWT with the given claims and a signature nobody checks.
std::string Jwt(const Json& claims);
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 5s);

// Every seam faked, a private home folder, the module pointed at the backend with fast polls and a timer that
// does not fire unless a test asks for it. The module is reset afterwards.
class AuthTest : public ::testing::Test {
 protected:
  AuthTest();
  ~AuthTest() override;

  void UseSettings(const std::function<void(AuthSettings&)>& change);
  std::string SupportPath(const std::string& name) const;
  void WriteSupportFile(const std::string& name, const std::string& contents) const;
  std::optional<std::string> ReadSupportFile(const std::string& name) const;

  Gate gate;  // outlives the backend, whose handlers may wait on it
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
