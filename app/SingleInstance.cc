#include "app/SingleInstance.h"

#include <QDir>
#include <QLocalSocket>
#include <QLockFile>
#include <sys/stat.h>
#include <unistd.h>

#include "orvistelle/BuildConfig.h"

namespace orvistelle::app {
namespace {

constexpr int kConnectTimeoutMs = 1000;
// A running copy answers at once unless its main thread is busy, as during the registration of set-up.
constexpr int kAnswerTimeoutMs = 2000;
constexpr int kLockTimeoutMs = 5000;
constexpr char kRaised[] = "raised\n";

// A folder only this user can enter, or nothing.
std::optional<QString> PrivateFolder(const QString& path) {
  const QByteArray native = QFile::encodeName(path);
  mkdir(native.constData(), 0700);
  struct stat info {};
  if (lstat(native.constData(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != getuid() ||
      (info.st_mode & 077) != 0) {
    return std::nullopt;
  }
  return path;
}

}  // namespace

std::optional<QString> InstanceSocketPath() {
  const QString name = QString(config::kBundleIdentifier) + ".socket";
  const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
  if (!runtime.isEmpty()) return runtime + "/" + name;
  auto folder = PrivateFolder(QDir::tempPath() + "/orvistelle-fcp-" + QString::number(getuid()));
  if (!folder) return std::nullopt;
  return *folder + "/" + name;
}

SingleInstance::SingleInstance(std::optional<QString> socketPath) : socketPath_(std::move(socketPath)) {
  server_.setSocketOptions(QLocalServer::UserAccessOption);  // this user alone can ask for a raise
  connect(&server_, &QLocalServer::newConnection, this, &SingleInstance::Answer);
}

bool SingleInstance::RaiseRunningInstance() {
  if (!socketPath_) return false;
  // Two launches at once must not both find no one listening and both listen.
  QLockFile lock(*socketPath_ + ".lock");
  if (!lock.tryLock(kLockTimeoutMs)) return false;
  if (AskToRaise()) return true;
  Listen();
  return false;
}

// Whoever accepts the connection is alive, even when busy: its loop raises the window once it runs again. The
// answer is awaited only so that this copy ends after the window came up, which desktops take as the launch's end.
bool SingleInstance::AskToRaise() {
  QLocalSocket socket;
  socket.connectToServer(*socketPath_);
  if (!socket.waitForConnected(kConnectTimeoutMs)) return false;
  socket.waitForReadyRead(kAnswerTimeoutMs);
  return true;
}

// With access options set, the server binds beside the path and renames its socket over it: a socket file left by a
// crashed run, which nobody answered on, is replaced.
void SingleInstance::Listen() { server_.listen(*socketPath_); }

// Being reached is the whole request: only this user can reach the socket.
void SingleInstance::Answer() {
  while (QLocalSocket* socket = server_.nextPendingConnection()) {
    emit raiseRequested();
    connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    socket->write(kRaised);
    socket->disconnectFromServer();
  }
}

}  // namespace orvistelle::app
