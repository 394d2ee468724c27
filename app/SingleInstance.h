// One window per user: a later launch asks the running copy to raise its window and then ends.
#pragma once

#include <QObject>
#include <QString>
#include <string>
#include <variant>

class QSocketNotifier;

namespace orvistelle::app {

// Where this user's running copy listens: the runtime folder, else a folder of our own in the temporary folder.
// When the folder is not this user's alone, why it cannot be used.
struct UnusableFolder {
  std::string why;
};
std::variant<QString, UnusableFolder> InstanceSocketPath();

class SingleInstance : public QObject {
  Q_OBJECT

 public:
  explicit SingleInstance(std::variant<QString, UnusableFolder> socketPath);
  ~SingleInstance() override;
  SingleInstance(const SingleInstance&) = delete;
  SingleInstance& operator=(const SingleInstance&) = delete;

  // True when a running copy raised its window. Otherwise this copy goes on: it listens from now on (taking over a
  // socket that a crashed run left behind), or, where the raise failed, runs alone and says so on standard error.
  bool RaiseRunningInstance();

 signals:
  void raiseRequested();

 private:
  void Listen();
  void Accept();
  bool Answer(int connection);

  std::variant<QString, UnusableFolder> socketPath_;
  int lockFd_ = -1;
  int listenFd_ = -1;
  QSocketNotifier* listening_ = nullptr;
};

}  // namespace orvistelle::app
