// Fakes for the OS seams and a loopback download server, shared by the update and service tests.
#pragma once

#include <httplib.h>
#include <stdlib.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/Platform.h"

namespace orvistelle::testing {

class FakeClock final : public platform::Clock {
 public:
  double Now() override { return now_.load(); }
  void Advance(double seconds) { now_.store(now_.load() + seconds); }

 private:
  std::atomic<double> now_{1'700'000'000.25};
};

class RecordingLog final : public platform::SystemLog {
 public:
  void Write(std::string_view line) override {
    std::lock_guard guard(lock_);
    lines_.emplace_back(line);
  }
  std::vector<std::string> Take() {
    std::lock_guard guard(lock_);
    return std::exchange(lines_, {});
  }

 private:
  std::mutex lock_;
  std::vector<std::string> lines_;
};

// A fresh directory standing in for the user's home, removed afterwards.
class TempHome final : public platform::Home {
 public:
  TempHome() {
    std::string pattern = (std::filesystem::temp_directory_path() / "orvistelle-home-XXXXXX").string();
    path_ = mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
  }
  ~TempHome() override {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string FromUserDatabase() override { return path_; }
  std::string Directory() override { return path_; }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

class FakeBundle final : public platform::Bundle {
 public:
  platform::BundleLocation Main() override { return {}; }
  std::optional<std::string> InfoString(std::string_view key) override {
    std::lock_guard guard(lock_);
    auto found = info_.find(std::string(key));
    return found == info_.end() ? std::nullopt : std::optional(found->second);
  }
  void Set(const std::string& key, std::optional<std::string> value) {
    std::lock_guard guard(lock_);
    if (value) {
      info_[key] = *value;
    } else {
      info_.erase(key);
    }
  }

 private:
  std::mutex lock_;
  std::map<std::string, std::string> info_;
};

class RecordingBrowser final : public platform::Browser {
 public:
  void Open(const std::string& url) override {
    std::lock_guard guard(lock_);
    opened_.push_back(url);
  }
  std::vector<std::string> Opened() {
    std::lock_guard guard(lock_);
    return opened_;
  }

 private:
  std::mutex lock_;
  std::vector<std::string> opened_;
};

// The download server on 127.0.0.1. It answers the manifest path with whatever the test set, and can hold its
// answers back so that a test can act while a check is in flight.
class ManifestServer {
 public:
  ManifestServer() {
    server_.Get("/orvistelle/vask/latest.json", [this](const httplib::Request&, httplib::Response& response) {
      std::unique_lock guard(lock_);
      ++requests_;
      released_.wait(guard, [this] { return !holding_; });
      if (onRequest_) onRequest_();
      response.status = status_;
      response.set_content(body_, "application/json");
    });
    // One request per connection: a kept-alive client connection would hold up stop() for seconds.
    server_.set_keep_alive_max_count(1);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // stop() is ignored until the loop runs, so a quick test could otherwise never end.
    while (!server_.is_running()) std::this_thread::yield();
  }
  ~ManifestServer() {
    Release();
    server_.stop();
    thread_.join();
  }

  std::string BaseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }
  void Answer(int status, std::string body) {
    std::lock_guard guard(lock_);
    status_ = status;
    body_ = std::move(body);
  }
  // Runs on the server's thread while the request is being answered.
  void OnRequest(std::function<void()> action) {
    std::lock_guard guard(lock_);
    onRequest_ = std::move(action);
  }
  void Hold() {
    std::lock_guard guard(lock_);
    holding_ = true;
  }
  void Release() {
    {
      std::lock_guard guard(lock_);
      holding_ = false;
    }
    released_.notify_all();
  }
  int Requests() {
    std::lock_guard guard(lock_);
    return requests_;
  }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
  std::mutex lock_;
  std::condition_variable released_;
  bool holding_ = false;
  int status_ = 404;
  std::string body_;
  std::function<void()> onRequest_;
  int requests_ = 0;
};

// Every seam the update and service modules touch, replaced for the lifetime of the object.
struct FakeSystem {
  FakeClock clock;
  RecordingLog log;
  TempHome home;
  FakeBundle bundle;
  RecordingBrowser browser;
  platform::ScopedSeam<platform::Clock> clockSeam{&clock};
  platform::ScopedSeam<platform::SystemLog> logSeam{&log};
  platform::ScopedSeam<platform::Home> homeSeam{&home};
  platform::ScopedSeam<platform::Bundle> bundleSeam{&bundle};
  platform::ScopedSeam<platform::Browser> browserSeam{&browser};
};

// Nothing listens on port 1 of the loopback interface: every request there fails at once with no HTTP answer.
inline constexpr char kRefusingBaseURL[] = "http://127.0.0.1:1";

}  // namespace orvistelle::testing
