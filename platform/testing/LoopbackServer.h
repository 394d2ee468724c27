// Peers on 127.0.0.1 for the tests of every module: a well-behaved HTTP server, and a bare TCP peer that breaks HTTP
// in ways a server library would not.
#pragma once

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <condition_variable>
#include <functional>
#include <latch>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvistelle::platform::testing {

// A cpp-httplib server on a port the system chooses, listening from construction to destruction. Routes given to
// the constructor are in place before the first connection; more may be added on server() later.
class LoopbackServer {
 public:
  explicit LoopbackServer(const std::function<void(httplib::Server&)>& routes = {}) {
    if (routes) routes(server_);
    // The library's default pool is one thread per core less one, and a kept-alive connection holds its thread.
    server_.new_task_queue = [this] {
      auto* pool = new httplib::ThreadPool(kWorkers);
      for (int i = 0; i < kWorkers; ++i) pool->enqueue([this] { workersStarted_.arrive_and_wait(); });
      return pool;
    };
    // One request per connection, so that stopping never waits on an idle kept-alive one. The timeout is how long a
    // fresh connection may take to send its request: a loaded machine can take well over the library's first look.
    server_.set_keep_alive_max_count(1);
    server_.set_keep_alive_timeout(2);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // stop() is ignored until the loop runs, and a test that forks must not catch a worker halfway through its
    // start with a lock of the allocator held: the child would wait for it for ever.
    workersStarted_.wait();
  }
  ~LoopbackServer() {
    server_.stop();
    thread_.join();
  }
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  httplib::Server& server() { return server_; }
  std::string BaseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }
  std::string url(const std::string& path) const { return BaseURL() + path; }

 private:
  static constexpr int kWorkers = 16;

  httplib::Server server_;
  std::latch workersStarted_{kWorkers};
  int port_ = 0;
  std::thread thread_;
};

}  // namespace orvistelle::platform::testing

namespace orvistelle::platform::fault {

using namespace std::chrono_literals;

// Holds a behaviour until opened; opening is final.
class Latch {
 public:
  void Wait() {
    std::unique_lock lock(mutex_);
    opened_.wait_for(lock, 10s, [this] { return open_; });
  }
  void Open() {
    std::lock_guard lock(mutex_);
    open_ = true;
    opened_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

inline void SendText(int socket, std::string_view text) {
  (void)send(socket, text.data(), text.size(), MSG_NOSIGNAL);
}

// Reads one request, head and body, so that an answer is not mistaken for a reset by a client still sending.
inline void ReadRequest(int socket) {
  std::string received;
  char buffer[4096];
  size_t headEnd = std::string::npos;
  size_t wanted = 0;
  while (headEnd == std::string::npos || received.size() < headEnd + 4 + wanted) {
    ssize_t count = recv(socket, buffer, sizeof buffer, 0);
    if (count <= 0) return;
    received.append(buffer, static_cast<size_t>(count));
    if (headEnd != std::string::npos || (headEnd = received.find("\r\n\r\n")) == std::string::npos) continue;
    std::string head = received.substr(0, headEnd);
    for (char& c : head) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    size_t length = head.find("content-length:");
    if (length != std::string::npos) wanted = std::stoul(head.substr(length + 15));
  }
}

using Behaviour = std::function<void(int socket)>;

// Reads the request, sends `text`, and closes with a reset when asked, else in order.
inline Behaviour Replying(std::string text, bool reset = false) {
  return [text, reset](int socket) {
    ReadRequest(socket);
    SendText(socket, text);
    linger hard{1, 0};  // closing now sends a reset instead of an orderly end
    if (reset) setsockopt(socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  };
}

inline Behaviour ResetMidBody() {
  return Replying("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 4000\r\n\r\n{\"hosts\":", true);
}

inline Behaviour HtmlServerError() {
  const std::string page = "<!DOCTYPE html><html><head><title>500 Internal Server Error</title></head>"
                           "<body><h1>Internal Server Error</h1></body></html>";
  return Replying("HTTP/1.1 500 Internal Server Error\r\nContent-Type: text/html\r\nConnection: close\r\n"
                  "Content-Length: " + std::to_string(page.size()) + "\r\n\r\n" + page);
}

inline Behaviour RedirectTo(const std::string& location) {
  return Replying("HTTP/1.1 302 Found\r\nLocation: " + location + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
}

inline Behaviour NotHttp() { return Replying("SSH-2.0-OpenSSH_9.2p1\r\n"); }

// An answer without a length that runs past any sensible size: 100 MB unless the client gives up first.
inline Behaviour Flood() {
  return [](int socket) {
    ReadRequest(socket);
    SendText(socket, "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\n\r\n");
    const std::string chunk(64 * 1024, ' ');
    for (size_t sent = 0; sent < 100u * 1024 * 1024; sent += chunk.size()) {
      if (send(socket, chunk.data(), chunk.size(), MSG_NOSIGNAL) < 0) return;
    }
  };
}

// Accepts and reads the request, then says nothing until `latch` opens, and closes without an answer.
inline Behaviour Silent(Latch& latch) {
  return [&latch](int socket) {
    ReadRequest(socket);
    latch.Wait();
  };
}

// One row of a table of misbehaving peers: what the peer does, and the status a client reports for it.
struct Misbehaviour {
  const char* name;
  std::function<Behaviour()> make;
  int64_t status;
};

inline void PrintTo(const Misbehaviour& misbehaviour, std::ostream* out) { *out << misbehaviour.name; }

// A bare TCP peer on 127.0.0.1 that treats every connection with `behave`, each on a thread of its own, then closes
// it.
class RawPeer {
 public:
  explicit RawPeer(Behaviour behave) : behave_(std::move(behave)) {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener_, 16);
    socklen_t length = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { AcceptAll(); });
  }
  ~RawPeer() {
    shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    close(listener_);
    for (std::thread& connection : connections_) connection.join();
  }
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;

  std::string BaseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }
  int Accepted() const { return accepted_.load(); }

 private:
  void AcceptAll() {
    for (int client; (client = accept(listener_, nullptr, nullptr)) >= 0;) {
      ++accepted_;
      connections_.emplace_back([this, client] {
        behave_(client);
        close(client);
      });
    }
  }

  Behaviour behave_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<int> accepted_{0};
  std::thread acceptor_;
  std::vector<std::thread> connections_;  // touched by the acceptor only, until it has ended
};

}  // namespace orvistelle::platform::fault
