// Misbehaving peers and hostile file systems for the fault tests of every module: a TCP peer that breaks HTTP in
// ways a server library would not, and child processes in which a folder is read-only or the disk is full.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace orvistelle::platform::fault {

namespace fs = std::filesystem;
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

inline bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 5s) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

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

inline Behaviour ResetMidBody() {
  return [](int socket) {
    ReadRequest(socket);
    SendText(socket, "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 4000\r\n\r\n{\"hosts\":");
    linger hard{1, 0};  // closing now sends a reset instead of an orderly end
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  };
}

inline Behaviour HtmlServerError() {
  return [](int socket) {
    ReadRequest(socket);
    const std::string page = "<!DOCTYPE html><html><head><title>500 Internal Server Error</title></head>"
                             "<body><h1>Internal Server Error</h1></body></html>";
    SendText(socket, "HTTP/1.1 500 Internal Server Error\r\nContent-Type: text/html\r\nConnection: close\r\n"
                     "Content-Length: " + std::to_string(page.size()) + "\r\n\r\n" + page);
  };
}

inline Behaviour RedirectTo(std::string location) {
  return [location](int socket) {
    ReadRequest(socket);
    SendText(socket, "HTTP/1.1 302 Found\r\nLocation: " + location + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
  };
}

inline Behaviour NotHttp() {
  return [](int socket) {
    ReadRequest(socket);
    SendText(socket, "SSH-2.0-OpenSSH_9.2p1\r\n");
  };
}

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

// A bare TCP peer on 127.0.0.1 that treats every connection with `behave`, each on a thread of its own, then closes it.
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

constexpr int kNotPrepared = 2;  // the child's exit status when its preparation failed

// Runs `body` in a forked child once `prepare` has succeeded there, and hands back what the body returned; nothing
// when the preparation failed, and a text no test expects when the child died. Whatever the child does to itself
// (limits, mounts) ends with it.
// The caller must have no other thread in the middle of the code the body runs.
inline std::optional<std::string> InChildProcess(const std::function<bool()>& prepare,
                                                 const std::function<std::string()>& body) {
  int channel[2];
  if (pipe(channel) != 0) return std::nullopt;
  pid_t child = fork();
  if (child == 0) {
    close(channel[0]);
    if (!prepare()) _exit(kNotPrepared);
    std::string result = body();
    for (size_t sent = 0; sent < result.size();) {
      ssize_t count = write(channel[1], result.data() + sent, result.size() - sent);
      if (count <= 0) _exit(3);
      sent += static_cast<size_t>(count);
    }
    _exit(0);
  }
  close(channel[1]);
  std::string result;
  char buffer[512];
  for (ssize_t count; (count = read(channel[0], buffer, sizeof buffer)) > 0;) result.append(buffer, count);
  close(channel[0]);
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return std::nullopt;
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNotPrepared) return std::nullopt;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    return "the child process died (wait status " + std::to_string(status) + ")";
  }
  return result;
}

// A disk that takes no more than `bytes` in any one file: writes past it fail with EFBIG instead of killing.
inline std::optional<std::string> WithFileSizeLimit(rlim_t bytes, const std::function<std::string()>& body) {
  return InChildProcess(
      [bytes] {
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit{bytes, bytes};
        return setrlimit(RLIMIT_FSIZE, &limit) == 0;
      },
      body);
}

// Root ignores permissions, so for root the folder becomes a read-only bind mount in a mount namespace of the
// child's own; for anyone else every folder in it loses its write permission until the child has ended.
inline bool MountReadOnly(const fs::path& folder) {
  struct statvfs current {};
  if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
      statvfs(folder.c_str(), &current) != 0) {
    return false;
  }
  // Flags the outer mount already carries must be kept, or the kernel may refuse the remount.
  unsigned long kept = (current.f_flag & ST_NOSUID ? MS_NOSUID : 0) | (current.f_flag & ST_NODEV ? MS_NODEV : 0) |
                       (current.f_flag & ST_NOEXEC ? MS_NOEXEC : 0);
  return mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | kept, nullptr) == 0;
}

inline std::optional<std::string> WithReadOnlyFolder(const fs::path& folder, const std::function<std::string()>& body) {
  if (geteuid() == 0) return InChildProcess([&folder] { return MountReadOnly(folder); }, body);
  std::map<fs::path, fs::perms> saved{{folder, fs::status(folder).permissions()}};
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_directory() && !entry.is_symlink()) saved[entry.path()] = entry.status().permissions();
  }
  for (const auto& [path, perms] : saved) fs::permissions(path, fs::perms::owner_read | fs::perms::owner_exec);
  std::optional<std::string> result = InChildProcess([] { return true; }, body);
  for (const auto& [path, perms] : saved) fs::permissions(path, perms);
  return result;
}

// Every entry under `root`, links not followed, with its kind and its contents or target: two equal snapshots mean
// nothing in the tree was created, removed or rewritten.
inline std::map<std::string, std::string> Snapshot(const fs::path& root) {
  std::map<std::string, std::string> entries;
  std::error_code error;
  for (fs::recursive_directory_iterator it(root, error), end; !error && it != end; it.increment(error)) {
    const fs::path& path = it->path();
    std::string& entry = entries[fs::relative(path, root).string()];
    if (it->is_symlink()) {
      entry = "link " + fs::read_symlink(path).string();
    } else if (it->is_directory()) {
      entry = "folder";
    } else {
      std::ifstream file(path, std::ios::binary);
      std::ostringstream contents;
      contents << file.rdbuf();
      entry = "file " + contents.str();
    }
  }
  return entries;
}

}  // namespace orvistelle::platform::fault
