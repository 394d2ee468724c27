// A loopback backend that records what it is sent, and a fixture with every seam the account session uses faked.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <filesystem>
#include <fstream>

#include "auth/AuthTesting.h"
#include "platform/Base64.h"
#include "orvistelle/FcpAuth.h"
#include "platform/Json.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/LoopbackServer.h"

namespace orvistelle::auth::testing {
using platform::Json, platform::JsonObject, platform::Dump;

using namespace std::chrono_literals;
using platform::testing::WaitUntil;

struct Reply {
  int status = 200;
  std::string body = "{}";
};
using Responder = std::function<Reply(const httplib::Request&)>;
inline const char kRelay[] = "/rest/v1/auth_relay";

// Records every request by path and answers it as the test said; other paths get 404.
class Backend {
 public:
  void Answer(const std::string& path, Responder responder) {
    std::lock_guard lock(mutex_);
    responders_[path] = std::move(responder);
  }
  void Answer(const std::string& path, Reply reply) {
    Answer(path, [reply](const httplib::Request&) { return reply; });
  }
  std::vector<httplib::Request> Seen(const std::string& path) {
    std::lock_guard lock(mutex_);
    return seen_[path];
  }
  std::string BaseURL() const { return server_.BaseURL(); }

 private:
  void Handle(const httplib::Request& request, httplib::Response& response) {
    std::unique_lock lock(mutex_);
    seen_[request.path].push_back(request);
    Responder responder = responders_[request.path];
    lock.unlock();
    Reply reply = responder ? responder(request) : Reply{404};
    response.status = reply.status;
    response.set_content(reply.body, "application/json");
  }

  std::mutex mutex_;
  std::map<std::string, Responder> responders_;
  std::map<std::string, std::vector<httplib::Request>> seen_;
  platform::testing::LoopbackServer server_{[this](httplib::Server& server) {
    auto handle = [this](const httplib::Request& request, httplib::Response& response) { Handle(request, response); };
    server.Get(".*", handle);
    server.Post(".*", handle);
  }};
};

// A JWT with the given claims and a signature nobody checks.
inline std::string Jwt(const Json& claims) { return "eyJhbGciOiJIUzI1NiJ9." + platform::EncodeBase64Url(Dump(claims)) + ".c2ln"; }

// Every seam faked, a private home folder, the module pointed at the backend with fast polls and a timer that only
// fires when a test asks. The module is reset afterwards.
class AuthTest : public ::testing::Test {
 protected:
  AuthTest() { Restart(); }
  ~AuthTest() override {
    release = true;
    ResetAuthForTesting();
  }
  void Restart() {
    ResetAuthForTesting();
    UseSettings([](AuthSettings&) {});
  }
  void UseSettings(const std::function<void(AuthSettings&)>& change) {
    AuthSettings settings{backend.BaseURL(), backend.BaseURL(), 2ms, 1h, 1h};
    settings.refreshRetryDelays = {1ms, 2ms, 4ms};
    change(settings);
    SetAuthSettingsForTesting(settings);
  }
  Responder Held(Reply reply) {  // answers once `release` is set
    return [this, reply](const httplib::Request&) {
      WaitUntil([this] { return release.load(); }, 10s);
      return reply;
    };
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
  std::filesystem::path Support(const std::string& name) const {
    return home.path() / ".local/share/orvistelle" / name;
  }
  void Write(const std::string& name, const std::string& contents) const {
    std::filesystem::create_directories(Support("."));
    std::ofstream(Support(name), std::ios::binary) << contents;
  }
  std::optional<std::string> Read(const std::string& name) const {
    std::ifstream file(Support(name), std::ios::binary);
    return file ? std::optional(std::string(std::istreambuf_iterator<char>(file), {})) : std::nullopt;
  }
  void SignedIn(double expiresAt, const std::string& email = "e@x.y") const {
    Write("fcp-session.json",
          Dump({{"access_token", "a1"}, {"refresh_token", "r1"}, {"email", email}, {"expires_at", expiresAt}}));
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

}  // namespace orvistelle::auth::testing
