#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/HttpTransport.h"
#include "platform/testing/LoopbackServer.h"

namespace orvistelle::platform {
namespace {

using namespace std::chrono_literals;
using fault::RawPeer;
using fault::SendText;
using testing::LoopbackServer;

HttpRequest Get(const std::string& url, std::chrono::milliseconds timeout = 5s) {
  HttpRequest request;
  request.url = url;
  request.timeout = timeout;
  request.wait = timeout + 200ms;
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
  HttpRequest request = Get(loopback.url("/echo"));
  request.method = "POST";
  request.headers = {"X-One: 1", "Content-Type: application/json"};
  request.body = R"({"a":1})";
  HttpResponse response = HttpSend(request);
  EXPECT_EQ(response.status, 418);
  EXPECT_EQ(response.body, "teapot");
  EXPECT_EQ(seen.get_header_value("X-One"), "1");
  EXPECT_EQ(seen.body, R"({"a":1})");
  EXPECT_FALSE(seen.has_header("Expect"));
}

TEST(HttpTransport, EmptyBodyIsStillSent) {
  LoopbackServer loopback;
  std::string length;
  loopback.server().Post("/", [&](const httplib::Request& request, httplib::Response&) {
    length = request.get_header_value("Content-Length");
  });
  HttpRequest request = Get(loopback.url("/"));
  request.method = "POST";
  request.body = "";
  EXPECT_EQ(HttpSend(request).status, 200);
  EXPECT_EQ(length, "0");
}

TEST(HttpTransport, FollowsRedirectsButNotLoopsOrOtherSchemes) {
  LoopbackServer loopback;
  loopback.server().Get("/hop", [](const httplib::Request&, httplib::Response& r) { r.set_redirect("/land"); });
  loopback.server().Get("/land", [](const httplib::Request&, httplib::Response& r) { r.set_content("ok", "text/plain"); });
  loopback.server().Get("/loop", [](const httplib::Request&, httplib::Response& r) { r.set_redirect("/loop"); });
  loopback.server().Get("/file", [](const httplib::Request&, httplib::Response& r) { r.set_redirect("file:///etc/passwd"); });

  EXPECT_EQ(HttpSend(Get(loopback.url("/hop"))).body, "ok");
  for (const char* path : {"/loop", "/file"}) {
    HttpResponse response = HttpSend(Get(loopback.url(path)));
    EXPECT_EQ(response.status, 0) << path;
    EXPECT_FALSE(response.body) << path;
  }
}

TEST(HttpTransport, NoAnswerMeansStatusZero) {
  HttpResponse refused = HttpSend(Get("http://127.0.0.1:1/"));
  EXPECT_EQ(refused.status, 0);
  EXPECT_FALSE(refused.body);
  EXPECT_EQ(HttpSend(Get("not a url")).status, 0);
  EXPECT_EQ(HttpSend(Get("file:///etc/passwd")).status, 0);
}

TEST(HttpTransport, ServerThatNeverAnswersIsCutOffAtTheTimeout) {
  fault::Latch latch;
  RawPeer silent(fault::Silent(latch));
  auto start = std::chrono::steady_clock::now();
  HttpResponse response = HttpSend(Get(silent.BaseURL() + "/", 500ms));
  auto elapsed = std::chrono::steady_clock::now() - start;
  latch.Open();
  EXPECT_EQ(response.status, 0);
  EXPECT_LT(elapsed, 1500ms);
}

TEST(HttpTransport, DripFeedingServerIsCutOffAtTheTimeout) {
  RawPeer drip([](int socket) {
    SendText(socket, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n");
    for (int i = 0; i < 10; ++i) {
      SendText(socket, "x");
      std::this_thread::sleep_for(100ms);
    }
  });
  HttpResponse response = HttpSend(Get(drip.BaseURL() + "/", 600ms));
  EXPECT_EQ(response.status, 0);
  EXPECT_FALSE(response.body);
}

TEST(HttpTransport, ResetMidBodyIsNoAnswer) {
  RawPeer reset(fault::ResetMidBody());
  HttpResponse response = HttpSend(Get(reset.BaseURL() + "/"));
  EXPECT_EQ(response.status, 0);
  EXPECT_FALSE(response.body);
}

TEST(HttpTransport, OversizedBodyWithoutLengthIsNoAnswer) {
  RawPeer flood(fault::Flood());
  HttpResponse response = HttpSend(Get(flood.BaseURL() + "/"));
  EXPECT_EQ(response.status, 0);
  EXPECT_FALSE(response.body);
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
