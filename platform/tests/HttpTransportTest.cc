#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "orvistelle/BuildConfig.h"
#include "platform/HttpTransport.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/LoopbackServer.h"

namespace orvistelle::platform {
namespace {

using namespace std::chrono_literals;
using fault::RawPeer;
using fault::SendText;
using testing::LoopbackServer;

HttpRequest Get(const std::string& url, std::chrono::milliseconds idle = 5s, std::chrono::milliseconds wait = 5s) {
  HttpRequest request;
  request.url = url;
  request.idle = idle;
  request.wait = wait;
  return request;
}

TEST(HttpTransport, SendsMethodHeadersAndBodyAndReturnsAnyStatus) {
  LoopbackServer loopback;
  httplib::Request seen;
  loopback.server().Post("/echo", [&](const httplib::Request& request, httplib::Response& response) {
    seen = request;
    response.status = 418;
    response.set_content("teapot", "text/plain");
  });
  testing::FakeBundle bundle;
  ScopedSeam<Bundle> seam(&bundle);
  const std::string library = std::string("orvistelle/") + config::kVersion + " (Linux)";
  for (auto [executable, version, userAgent] :
       {std::tuple{"/A/Host.pluginkit/Contents/MacOS/Cut Pro", "7.1", "Cut%20Pro/7.1 " + library},
        std::tuple{"/usr/bin/host\r\n", "", "host%0D%0A " + library}, std::tuple{"", "9", library}}) {
    bundle.SetLocation({"", executable, "", ""});
    bundle.SetInfo("CFBundleVersion", *version ? std::optional<std::string>(version) : std::nullopt);
    HttpRequest request = Get(loopback.url("/echo"));
    request.method = "POST";
    request.headers = {"X-One: 1", "Content-Type: application/json"};
    request.body = R"({"a":1})";
    HttpResponse response = HttpSend(request);
    EXPECT_EQ(response.status, 418);
    EXPECT_EQ(response.body, "teapot");
    EXPECT_EQ(seen.get_header_value("X-One"), "1");
    EXPECT_EQ(UserAgent(), userAgent);
    // The server library decodes escapes in header values, so only the unescaped part is compared as seen.
    EXPECT_TRUE(seen.get_header_value("User-Agent").ends_with(library)) << seen.get_header_value("User-Agent");
    EXPECT_EQ(seen.body, R"({"a":1})");
    EXPECT_FALSE(seen.has_header("Expect"));
  }
  HttpRequest empty = Get(loopback.url("/echo"));
  empty.method = "POST";
  empty.body = "";  // still sent
  EXPECT_EQ(HttpSend(empty).status, 418);
  EXPECT_EQ(seen.get_header_value("Content-Length"), "0");
}

// A token or body must never reach another origin: only an allowance of redirects within the origin is followed.
TEST(HttpTransport, FollowsOnlyAllowedRedirectsWithinTheOrigin) {
  std::atomic<int> elsewhere{0};
  LoopbackServer other([&](httplib::Server& server) {
    server.set_error_handler([&](const httplib::Request&, httplib::Response&) { ++elsewhere; });
  });
  LoopbackServer loopback([&](httplib::Server& server) {
    auto to = [](std::string target, int status = 302) {
      return [target, status](const httplib::Request&, httplib::Response& r) { r.set_redirect(target, status); };
    };
    server.Get("/hop", to("/land"));
    server.Post("/hop", to("/land", 307));
    server.Get("/land", [](const httplib::Request&, httplib::Response& r) { r.set_content("ok", "text/plain"); });
    server.Get("/loop", to("/loop"));
    server.Get("/file", to("file:///etc/passwd"));
    server.Get("/away", to(other.url("/land")));
    server.Post("/away", to(other.url("/land"), 308));
  });
  struct Case {
    const char* method;
    const char* path;
    int allowance;
    std::optional<std::string> body;
  };
  for (const Case& c : {Case{"GET", "/hop", 3, "ok"}, Case{"GET", "/hop", 0, {}}, Case{"POST", "/hop", 0, {}},
                        Case{"GET", "/loop", 3, {}}, Case{"GET", "/file", 3, {}}, Case{"GET", "/away", 3, {}},
                        Case{"POST", "/away", 0, {}}}) {
    HttpRequest request = Get(loopback.url(c.path));
    request.method = c.method;
    if (request.method == "POST") request.body = R"({"refresh_token":"r"})";
    request.sameOriginRedirects = c.allowance;
    HttpResponse response = HttpSend(request);
    EXPECT_EQ(response.body, c.body) << c.method << " " << c.path;
    EXPECT_EQ(response.status, c.body ? 200 : 0) << c.method << " " << c.path;
  }
  EXPECT_EQ(elsewhere.load(), 0);
  for (auto [a, b, same] : {std::tuple{"http://h/a", "HTTP://H:80/b?c", true}, {"https://h/", "https://h:443/x", true},
                            {"https://h/", "http://h/", false}, {"https://h/", "http://h:443/", false},
                            {"http://h:8080/", "http://h/", false}, {"http://a.h/", "http://b.h/", false},
                            {"not a url", "not a url", false}}) {
    EXPECT_EQ(SameOrigin(a, b), same) << a << " " << b;
  }
}

// One byte every 100 ms, `bytes` of them, announced as `length`; stops once the client has gone.
fault::Behaviour Drip(int length, int bytes) {
  return [length, bytes](int socket) {
    fault::ReadRequest(socket);
    SendText(socket, "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n");
    for (int i = 0; i < bytes; ++i) {
      std::this_thread::sleep_for(100ms);
      if (send(socket, "x", 1, MSG_NOSIGNAL) < 0) return;
    }
  };
}

// The idle limit resets while data flows, so a slow answer that keeps coming arrives; the wait bounds everything.
TEST(HttpTransport, SilenceEndsATransferAtTheIdleLimitAndTheWaitEndsAnyTransfer) {
  fault::Latch latch;
  struct Case {
    const char* name;
    fault::Behaviour behave;
    std::chrono::milliseconds idle, wait;
    int64_t status;
    std::chrono::milliseconds within;
  };
  for (Case& c : std::vector<Case>{{"silent", fault::Silent(latch), 300ms, 5s, 0, 1800ms},
                                   {"slow but steady", Drip(10, 10), 400ms, 4s, 200, 3s},
                                   {"endless", Drip(100, 100), 400ms, 800ms, 0, 1500ms}}) {
    RawPeer peer(c.behave);
    auto start = std::chrono::steady_clock::now();
    HttpResponse response = HttpSend(Get(peer.BaseURL() + "/", c.idle, c.wait));
    EXPECT_LT(std::chrono::steady_clock::now() - start, c.within) << c.name;
    EXPECT_EQ(response.status, c.status) << c.name;
    EXPECT_EQ(response.body, c.status ? std::optional(std::string(10, 'x')) : std::nullopt) << c.name;
    latch.Open();
  }
}

// Refused, not a URL, not http, reset halfway or flooding past the size limit: no answer, status 0 and no body.
TEST(HttpTransport, NoAnswerMeansStatusZero) {
  RawPeer reset(fault::ResetMidBody()), flood(fault::Flood());
  for (const std::string& url : {std::string("http://127.0.0.1:1/"), std::string("not a url"),
                                 std::string("file:///etc/passwd"), reset.BaseURL() + "/", flood.BaseURL() + "/"}) {
    HttpResponse response = HttpSend(Get(url));
    EXPECT_EQ(response.status, 0) << url;
    EXPECT_FALSE(response.body) << url;
  }
}

TEST(HttpTransport, ManyThreadsShareThePool) {
  LoopbackServer loopback;
  loopback.server().Get("/n", [](const httplib::Request&, httplib::Response& r) { r.set_content("n", "text/plain"); });
  std::vector<std::thread> threads;
  std::atomic<int> answered{0};
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 10; ++i) answered += HttpSend(Get(loopback.url("/n"))).status == 200;
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(answered, 80);
}

}  // namespace
}  // namespace orvistelle::platform
