#include "app/SingleInstance.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QSocketNotifier>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "app/WindowContent.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::app {
namespace {

using Clock = std::chrono::steady_clock;

// A running copy answers at once unless its main thread is busy, as during the registration of set-up.
constexpr std::chrono::milliseconds kAnswerTimeout{2000};
// How often a launch looks again for the socket of a copy that holds the lock but is still starting.
constexpr std::chrono::milliseconds kRetryPause{10};
constexpr char kRaise[] = "raise\n";
constexpr char kRaised[] = "raised\n";

std::string ErrnoText() { return std::strerror(errno); }

// Why a folder is not this user's alone, or "" when it is.
std::string NotPrivate(const QByteArray& folder) {
  struct stat info {};
  const std::string name = folder.toStdString();
  if (lstat(folder.constData(), &info) != 0) return "cannot read " + name + ": " + ErrnoText();
  if (!S_ISDIR(info.st_mode)) return name + " is not a folder";
  if (info.st_uid != getuid()) return name + " belongs to another user";
  if ((info.st_mode & 077) != 0) return name + " is open to other users";
  return {};
}

sockaddr_un Address(const QByteArray& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.constData(), path.size());
  return address;
}

// Closes the descriptor when the scope ends, whichever way it ends.
struct Descriptor {
  explicit Descriptor(int descriptor) : fd(descriptor) {}
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int fd;
};

enum class Reply { Raised, NobodyListens, NoAnswer };

// Waits for the answer until the deadline; anything but the exact answer is no answer.
Reply AwaitAnswer(int socket, Clock::time_point deadline) {
  std::string answer;
  while (answer.size() < sizeof kRaised - 1) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd readable{socket, POLLIN, 0};
    if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0) return Reply::NoAnswer;
    char buffer[sizeof kRaised - 1];
    const ssize_t got = recv(socket, buffer, sizeof buffer, 0);
    if (got <= 0) break;
    answer.append(buffer, static_cast<size_t>(got));
  }
  return answer == kRaised ? Reply::Raised : Reply::NoAnswer;
}

// Asks whoever listens at the path to raise its window. A copy that holds the lock but does not listen yet is
// still starting: it is asked again until the deadline.
Reply AskToRaise(const QByteArray& path, bool copyRuns) {
  const Clock::time_point deadline = Clock::now() + kAnswerTimeout;
  const sockaddr_un address = Address(path);
  for (;;) {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(socket.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      if (send(socket.fd, kRaise, sizeof kRaise - 1, MSG_NOSIGNAL) != sizeof kRaise - 1) return Reply::NoAnswer;
      return AwaitAnswer(socket.fd, deadline);
    }
    const bool absent = errno == ECONNREFUSED || errno == ENOENT;
    if (!absent) return Reply::NoAnswer;
    if (!copyRuns || Clock::now() >= deadline) return Reply::NobodyListens;
    std::this_thread::sleep_for(kRetryPause);
  }
}

bool StartAlone(const std::string& why) {
  (void)std::fprintf(stderr, "%s: cannot reach a running copy (%s); starting a new one.\n", kWindowTitle, why.c_str());
  return false;
}

}  // namespace

std::variant<QString, UnusableFolder> InstanceSocketPath() {
  QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
  if (folder.isEmpty()) {
    folder = QDir::tempPath() + "/orvistelle-fcp-" + QString::number(getuid());
    mkdir(QFile::encodeName(folder).constData(), 0700);
  }
  if (std::string why = NotPrivate(QFile::encodeName(folder)); !why.empty()) return UnusableFolder{why};
  const QString path = folder + "/" + config::kBundleIdentifier + ".socket";
  if (QFile::encodeName(path).size() >= static_cast<int>(sizeof sockaddr_un::sun_path)) {
    return UnusableFolder{path.toStdString() + " is too long for a socket"};
  }
  return path;
}

SingleInstance::SingleInstance(std::variant<QString, UnusableFolder> socketPath) : socketPath_(std::move(socketPath)) {}

SingleInstance::~SingleInstance() {
  if (listenFd_ >= 0) {
    // Still under the lock, so the socket removed is this copy's own.
    unlink(QFile::encodeName(std::get<QString>(socketPath_)).constData());
    close(listenFd_);
  }
  if (lockFd_ >= 0) close(lockFd_);
}

bool SingleInstance::RaiseRunningInstance() {
  if (const auto* unusable = std::get_if<UnusableFolder>(&socketPath_)) return StartAlone(unusable->why);
  const QByteArray path = QFile::encodeName(std::get<QString>(socketPath_));
  // A running copy holds the lock as long as it runs, and the kernel drops it when the copy ends, crashed or not:
  // with the lock free, a socket nobody answers on was left behind and may be replaced.
  const QByteArray lockPath = path + ".lock";
  lockFd_ = open(lockPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (lockFd_ < 0) return StartAlone("cannot open " + lockPath.toStdString() + ": " + ErrnoText());
  const bool copyRuns = flock(lockFd_, LOCK_EX | LOCK_NB) != 0;
  if (copyRuns && errno != EWOULDBLOCK) return StartAlone("cannot lock " + lockPath.toStdString() + ": " + ErrnoText());
  const Reply reply = AskToRaise(path, copyRuns);
  if (reply == Reply::Raised) return true;
  if (copyRuns) return StartAlone("the copy running at " + path.toStdString() + " did not answer");
  if (reply == Reply::NoAnswer) return StartAlone("something else listens at " + path.toStdString());
  Listen();
  return false;
}

void SingleInstance::Listen() {
  const QByteArray path = QFile::encodeName(std::get<QString>(socketPath_));
  struct stat info {};
  if (lstat(path.constData(), &info) == 0 && S_ISSOCK(info.st_mode)) unlink(path.constData());
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const sockaddr_un address = Address(path);
  if (bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(socket, 8) != 0) {
    StartAlone("cannot listen at " + path.toStdString() + ": " + ErrnoText());
    close(socket);
    return;
  }
  listenFd_ = socket;
  listening_ = new QSocketNotifier(listenFd_, QSocketNotifier::Read, this);
  connect(listening_, &QSocketNotifier::activated, this, &SingleInstance::Accept);
}

void SingleInstance::Accept() {
  for (int connection; (connection = accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0;) {
    auto* readable = new QSocketNotifier(connection, QSocketNotifier::Read, this);
    connect(readable, &QSocketNotifier::activated, this, [this, readable, connection] {
      if (Answer(connection)) return;
      readable->setEnabled(false);
      close(connection);
      readable->deleteLater();
    });
  }
}

// Only this user can reach the socket, in a folder of this user's alone; the request is read without waiting, so a
// caller that connects and says nothing holds nothing up. True while the request is still to come.
bool SingleInstance::Answer(int connection) {
  char request[sizeof kRaise];
  const ssize_t got = recv(connection, request, sizeof request, MSG_DONTWAIT);
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  if (got == sizeof kRaise - 1 && std::memcmp(request, kRaise, got) == 0) {
    emit raiseRequested();
    send(connection, kRaised, sizeof kRaised - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
  }
  return false;
}

}  // namespace orvistelle::app
