#include "auth/tests/TestSupport.h"

#include <httplib.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <thread>

namespace orvistelle::auth::testing {
namespace {

std::string Lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

std::string Base64Url(const std::string& bytes) {
  static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t group = static_cast<uint8_t>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) group |= static_cast<uint8_t>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size()) group |= static_cast<uint8_t>(bytes[i + 2]);
    size_t characters = std::min<size_t>(4, bytes.size() - i + 1);
    for (size_t j = 0; j < characters; ++j) text += kAlphabet[(group >> (18 - 6 * j)) & 63];
  }
  return text;
}

}  // namespace

struct Backend::Impl {
  httplib::Server server;
  std::thread thread;
  mutable std::mutex mutex;
  std::map<std::string, Responder> responders;
  std::map<std::string, std::vector<SeenRequest>> seen;

  void Handle(const httplib::Request& request, httplib::Response& response) {
    SeenRequest seenRequest{request.method, request.target, {}, request.body};
    for (const auto& [name, value] : request.headers) {
      // cpp-httplib files the connection's addresses among the headers
      if (name.find('_') == std::string::npos) seenRequest.headers[Lowered(name)] = value;
    }
    Responder responder;
    {
      std::lock_guard lock(mutex);
      seen[request.path].push_back(seenRequest);
      auto found = responders.find(request.path);
      if (found != responders.end()) responder = found->second;
    }
    Reply reply = responder ? responder(seenRequest) : Reply{404, "{}"};
    response.status = reply.status;
    response.set_content(reply.body, "application/json");
  }
};

Backend::Backend() : impl_(std::make_unique<Impl>()) {
  auto handle = [this](const httplib::Request& request, httplib::Response& response) {
    impl_->Handle(request, response);
  };
  impl_->server.Get(".*", handle);
  impl_->server.Post(".*", handle);
  // One request per connection, so that pooled client connections never tie up the server's workers.
  impl_->server.set_keep_alive_max_count(1);
  impl_->server.new_task_queue = [] { return new httplib::ThreadPool(32); };
  int port = impl_->server.bind_to_any_port("127.0.0.1");
  url_ = "http://127.0.0.1:" + std::to_string(port);
  impl_->thread = std::thread([this] { impl_->server.listen_after_bind(); });
  // A server stopped before it has started listening would never stop.
  WaitUntil([this] { return impl_->server.is_running(); });
}

Backend::~Backend() {
  impl_->server.stop();
  impl_->thread.join();
}

void Backend::Answer(const std::string& path, Responder responder) {
  std::lock_guard lock(impl_->mutex);
  impl_->responders[path] = std::move(responder);
}

void Backend::Answer(const std::string& path, Reply reply) {
  Answer(path, [reply](const SeenRequest&) { return reply; });
}

std::vector<SeenRequest> Backend::Seen(const std::string& path) const {
  std::lock_guard lock(impl_->mutex);
  auto found = impl_->seen.find(path);
  return found == impl_->seen.end() ? std::vector<SeenRequest>{} : found->second;
}

void Gate::Wait() {
  std::unique_lock lock(mutex_);
  opened_.wait_for(lock, 10s, [this] { return open_; });
}

void Gate::Open() {
  std::lock_guard lock(mutex_);
  open_ = true;
  opened_.notify_all();
}

void FakeBrowser::Open(const std::string& url) {
  std::lock_guard lock(mutex_);
  opened_.push_back(url);
}

std::vector<std::string> FakeBrowser::Opened() {
  std::lock_guard lock(mutex_);
  return opened_;
}

void FakeLog::Write(std::string_view line) {
  std::lock_guard lock(mutex_);
  lines_.emplace_back(line);
}

std::vector<std::string> FakeLog::Lines() {
  std::lock_guard lock(mutex_);
  return lines_;
}

std::optional<std::string> FakeBundle::InfoString(std::string_view key) {
  auto found = info.find(std::string(key));
  return found == info.end() ? std::nullopt : std::optional(found->second);
}

std::string Jwt(const Json& claims) { return "eyJhbGciOiJIUzI1NiJ9." + Base64Url(Dump(claims)) + ".c2lnbmF0dXJl"; }

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

AuthTest::AuthTest() {
  std::string pattern = (std::filesystem::temp_directory_path() / "auth-test-XXXXXX").string();
  home = mkdtemp(pattern.data());
  fakeHome.fromDatabase = home.string();
  fakeHome.directory = "/nonexistent-home";
  UseSettings([](AuthSettings&) {});
}

AuthTest::~AuthTest() {
  ResetAuthForTesting();
  std::filesystem::remove_all(home);
}

void AuthTest::UseSettings(const std::function<void(AuthSettings&)>& change) {
  AuthSettings settings{backend.url(), backend.url(), 2ms, 1h, 1h};
  change(settings);
  SetAuthSettingsForTesting(settings);
}

std::string AuthTest::SupportPath(const std::string& name) const {
  return (home / "Library/Application Support/Orvistelle" / name).string();
}

void AuthTest::WriteSupportFile(const std::string& name, const std::string& contents) const {
  std::filesystem::create_directories(home / "Library/Application Support/Orvistelle");
  std::ofstream(SupportPath(name), std::ios::binary) << contents;
}

std::optional<std::string> AuthTest::ReadSupportFile(const std::string& name) const {
  std::ifstream file(SupportPath(name), std::ios::binary);
  if (!file) return std::nullopt;
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

}  // namespace orvistelle::auth::testing
