#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "platform/HttpTransport.h"

namespace orvistelle::platform {
namespace {

using namespace std::chrono_literals;

class LoopbackServer {
 public:
  LoopbackServer() {
    // The library's default pool is one thread per core less one, and a kept-alive connection holds its thread.
    server_.new_task_queue = [] { return new httplib::ThreadPool(16); };
    // Stopping waits for idle kept-alive connections to time out.
    server_.set_keep_alive_timeout(0);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::sleep_for(1ms);
  }
  ~LoopbackServer() {
    server_.stop();
    thread_.join();
  }
  httplib::Server& server() { return server_; }
  std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

// A bare TCP peer for misbehaviour that an HTTP server library would not produce: it accepts one connection and
// hands the socket to `behave`.
class RawPeer {
 public:
  explicit RawPeer(std::function<void(int)> behave) {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener_, 4);
    socklen_t length = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, behave = std::move(behave)] {
      int client = accept(listener_, nullptr, nullptr);
      if (client >= 0) {
        behave(client);
        close(client);
      }
    });
  }
  ~RawPeer() {
    shutdown(listener_, SHUT_RDWR);
    close(listener_);
    thread_.join();
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

 private:
  int listener_ = -1;
  int port_ = 0;
  std::thread thread_;
};

void SendText(int socket, const std::string& text) { (void)send(socket, text.data(), text.size(), MSG_NOSIGNAL); }

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
  RawPeer silent([](int socket) {
    char buffer[4096];
    (void)recv(socket, buffer, sizeof buffer, 0);
    std::this_thread::sleep_for(800ms);
  });
  auto start = std::chrono::steady_clock::now();
  HttpResponse response = HttpSend(Get(silent.url(), 500ms));
  auto elapsed = std::chrono::steady_clock::now() - start;
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
  HttpResponse response = HttpSend(Get(drip.url(), 600ms));
  EXPECT_EQ(response.status, 0);
  EXPECT_FALSE(response.body);
}

TEST(HttpTransport, ResetMidBodyIsNoAnswer) {
  RawPeer reset([](int socket) {
    char buffer[4096];
    (void)recv(socket, buffer, sizeof buffer, 0);
    SendText(socket, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{\"partial\":");
    linger hard{1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  });
  HttpResponse response = HttpSend(Get(reset.url()));
  EXPECT_EQ(response.status, 0);
  EXPECT_FALSE(response.body);
}

TEST(HttpTransport, OversizedBodyWithoutLengthIsNoAnswer) {
  RawPeer flood([](int socket) {
    char buffer[4096];
    (void)recv(socket, buffer, sizeof buffer, 0);
    SendText(socket, "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
    std::string chunk(64 * 1024, 'x');
    for (size_t sent = 0; sent < 100u * 1024 * 1024; sent += chunk.size()) {
      if (send(socket, chunk.data(), chunk.size(), MSG_NOSIGNAL) < 0) return;
    }
  });
  HttpResponse response = HttpSend(Get(flood.url()));
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
