// The download server and the seams the update and service tests fake, built on the shared test support.
#pragma once

#include "platform/testing/FakePlatform.h"
#include "platform/testing/LoopbackServer.h"

namespace orvistelle::testing {

// The manifest on 127.0.0.1, held back while a test acts with a check in flight; only the test's thread holds.
class ManifestServer {
 public:
  ~ManifestServer() { Release(); }

  std::string BaseURL() const { return server_.BaseURL(); }
  void Answer(int status, std::string body) { answer_.Set({status, std::move(body)}); }
  void AnswerSignature(int status, std::string body) { signature_.Set({status, std::move(body)}); }
  void Hold() { holding_.lock(); }
  void Release() {
    if (holding_.owns_lock()) holding_.unlock();
  }
  int Requests() const { return requests_.load(); }

 private:
  platform::testing::Guarded<std::pair<int, std::string>> answer_{{404, ""}};
  platform::testing::Guarded<std::pair<int, std::string>> signature_{{404, ""}};
  std::atomic<int> requests_ = 0;
  std::mutex gate_;
  std::unique_lock<std::mutex> holding_{gate_, std::defer_lock};
  platform::testing::LoopbackServer server_{[this](httplib::Server& server) {
    server.Get("/orvistelle/vask/latest.json", [this](const httplib::Request&, httplib::Response& response) {
      ++requests_;
      std::lock_guard pass(gate_);
      auto [status, body] = answer_.Get();
      response.status = status;
      response.set_content(body, "application/json");
    });
    server.Get("/orvistelle/vask/latest.json.sig", [this](const httplib::Request&, httplib::Response& response) {
      std::tie(response.status, response.body) = signature_.Get();
    });
  }};
};

// Every seam the update and service modules touch, replaced for the lifetime of the object, in a fresh home.
struct FakeSystem {
  platform::testing::TempDir homeFolder;
  platform::testing::FakeClock clock{1'700'000'000.25};
  platform::testing::RecordingLog log;
  platform::testing::FakeHome home{homeFolder.path().string()};
  platform::testing::FakeBundle bundle;
  platform::testing::RecordingBrowser browser;
  platform::testing::ScopedFakes seams{&clock, &log, &home, &bundle, &browser};
};

}  // namespace orvistelle::testing
