// The download server and the seams the update and service tests fake, built on the shared test support.
#pragma once

#include <httplib.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

#include "platform/testing/FakePlatform.h"
#include "platform/testing/LoopbackServer.h"

namespace orvistelle::testing {

// The download server on 127.0.0.1. It answers the manifest path with whatever the test set, and can hold its
// answers back so that a test can act while a check is in flight.
class ManifestServer {
 public:
  ~ManifestServer() { Release(); }

  std::string BaseURL() const { return server_.BaseURL(); }
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
  void AnswerManifest(httplib::Response& response) {
    std::unique_lock guard(lock_);
    ++requests_;
    released_.wait(guard, [this] { return !holding_; });
    if (onRequest_) onRequest_();
    response.status = status_;
    response.set_content(body_, "application/json");
  }

  std::mutex lock_;
  std::condition_variable released_;
  bool holding_ = false;
  int status_ = 404;
  std::string body_;
  std::function<void()> onRequest_;
  int requests_ = 0;
  platform::testing::LoopbackServer server_{[this](httplib::Server& server) {
    server.Get("/orvistelle/vask/latest.json",
               [this](const httplib::Request&, httplib::Response& response) { AnswerManifest(response); });
  }};
};

// Every seam the update and service modules touch, replaced for the lifetime of the object; the home is a fresh
// folder.
struct FakeSystem {
  platform::testing::TempDir homeFolder;
  platform::testing::FakeClock clock{1'700'000'000.25};
  platform::testing::RecordingLog log;
  platform::testing::FakeHome home{homeFolder.path().string()};
  platform::testing::FakeBundle bundle;
  platform::testing::RecordingBrowser browser;
  platform::testing::ScopedFakes seams{&clock, &log, &home, &bundle, &browser};
};

// Nothing listens on port 1 of the loopback interface: every request there fails at once with no HTTP answer.
inline constexpr char kRefusingBaseURL[] = "http://127.0.0.1:1";

}  // namespace orvistelle::testing
