// Peers on 127.0.0.1 for the tests of every module: a well-behaved HTTP server, and a bare TCP peer that breaks HTTP
// in ways a server library would not.
#pragma once

#include <httplib.h>

#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>

namespace orvistelle::platform::testing {

// A cpp-httplib server on a port the system chooses, listening from construction to destruction, with the routes
// given in place before the first connection.
class LoopbackServer {
 public:
  explicit LoopbackServer(const std::function<void(httplib::Server&)>& routes = {})
      : LoopbackServer(std::make_unique<httplib::Server>(), routes) {}
  ~LoopbackServer() {
    server_->stop();
    thread_.join();
  }

  std::string BaseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }

 protected:
  LoopbackServer(std::unique_ptr<httplib::Server> server, const std::function<void(httplib::Server&)>& routes)
      : server_(std::move(server)) {
    if (routes) routes(*server_);
    // The library's default pool is one thread per core less one, and a kept-alive connection holds its thread.
    server_->new_task_queue = [this] {
      auto* pool = new httplib::ThreadPool(kWorkers);
      for (int i = 0; i < kWorkers; ++i) pool->enqueue([this] { workersStarted_.arrive_and_wait(); });
      return pool;
    };
    // One request per connection, so that stopping never waits on an idle kept-alive one. The timeout is how long a
    // fresh connection may take to send its request: a loaded machine can take well over the library's first look.
    server_->set_keep_alive_max_count(1);
    server_->set_keep_alive_timeout(2);
    port_ = server_->bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // stop() is ignored until the loop runs, and a test that forks must not catch a worker halfway through its
    // start with a lock of the allocator held: the child would wait for it for ever.
    workersStarted_.wait();
  }

  std::unique_ptr<httplib::Server> server_;

 private:
  static constexpr int kWorkers = 16;

  std::latch workersStarted_{kWorkers};
  int port_ = 0;
  std::thread thread_;
};

}  // namespace orvistelle::platform::testing

namespace orvistelle::platform::fault {

// Holds a behaviour until opened (for 10 s at most); opening is final.
class Latch {
 public:
  void Wait() {
    for (int waited = 0; waited < 10'000 && !open_; ++waited) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  void Open() { open_ = true; }

 private:
  std::atomic<bool> open_{false};
};

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
    (void)send(socket, text.data(), text.size(), MSG_NOSIGNAL);
    linger hard{1, 0};  // closing now sends a reset instead of an orderly end
    if (reset) setsockopt(socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  };
}

inline Behaviour ResetMidBody() {
  return Replying("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 4000\r\n\r\n{\"hosts\":", true);
}

inline Behaviour NotHttp() { return Replying("SSH-2.0-OpenSSH_9.2p1\r\n"); }

// An answer without a length that runs past any sensible size: 100 MB unless the client gives up first.
inline Behaviour Flood() {
  return [](int socket) {
    ReadRequest(socket);
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\n\r\n";
    (void)send(socket, head.data(), head.size(), MSG_NOSIGNAL);
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

// A bare TCP peer on 127.0.0.1 that treats every connection with `behave`, then closes it. The server library
// accepts the connections and runs them on its pool, but never reads or writes HTTP on them.
class RawPeer : public testing::LoopbackServer {
 public:
  explicit RawPeer(Behaviour behave) : LoopbackServer(std::make_unique<Server>(std::move(behave)), {}) {}

  int Accepted() const { return static_cast<const Server&>(*server_).accepted.load(); }

 private:
  class Server final : public httplib::Server {
   public:
    explicit Server(Behaviour behave) : behave_(std::move(behave)) {}
    std::atomic<int> accepted{0};

   private:
    bool process_and_close_socket(socket_t socket) override {
      ++accepted;
      behave_(socket);
      close(socket);
      return true;
    }

    Behaviour behave_;
  };
};

}  // namespace orvistelle::platform::fault
