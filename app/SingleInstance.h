// One window per user: a later launch asks the running copy to raise its window and then ends.
#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>
#include <optional>

namespace orvistelle::app {

// Where this user's running copy listens: the runtime folder, else a folder of our own in the temporary folder;
// nothing when that folder belongs to someone else.
std::optional<QString> InstanceSocketPath();

class SingleInstance : public QObject {
  Q_OBJECT

 public:
  explicit SingleInstance(std::optional<QString> socketPath);

  // True when a running copy took the request to raise its window. Otherwise this copy listens from now on (taking
  // over a socket that a crashed run left behind), or runs alone where it cannot listen.
  bool RaiseRunningInstance();

 signals:
  void raiseRequested();

 private:
  bool AskToRaise();
  void Listen();
  void Answer();

  std::optional<QString> socketPath_;
  QLocalServer server_;
};

}  // namespace orvistelle::app
