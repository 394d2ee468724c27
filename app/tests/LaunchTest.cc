// The application started as a user starts it, in a temporary home: without a display, and twice.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QProcess>
#include <QTest>
#include <cstring>
#include <memory>

#include "orvistelle/BuildConfig.h"
#include "platform/testing/FakePlatform.h"

namespace orvistelle::app {
namespace {

namespace fs = std::filesystem;

constexpr int kTimeoutMs = 30000;

// When the file last changed, in nanoseconds: a new file may reuse the inode of the one it replaced.
int64_t ChangedAt(const fs::path& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? info.st_ctim.tv_sec * 1'000'000'000 + info.st_ctim.tv_nsec : 0;
}

class LaunchTest : public ::testing::Test {
 protected:
  ~LaunchTest() override {
    for (auto& app : apps_) {
      app->kill();
      app->waitForFinished();
    }
  }

  // platform: the Qt platform plug-in, or nullptr for a session without any display.
  QProcess* Launch(const char* platform) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "XDG_DATA_HOME", "XDG_STATE_HOME"}) {
      environment.remove(name);
    }
    if (platform != nullptr) environment.insert("QT_QPA_PLATFORM", platform);
    environment.insert("HOME", QString::fromStdString(temp_.path() / "home"));
    // The support folder follows the user database, not HOME; and no request may reach a backend someone runs.
    environment.insert("ORVISTELLE_DEV_HOME", QString::fromStdString(temp_.path() / "home"));
    environment.insert("ORVISTELLE_DEV_BACKEND", "http://127.0.0.1:9");
    environment.insert("XDG_RUNTIME_DIR", QString::fromStdString(temp_.path()));
    auto& app = apps_.emplace_back(std::make_unique<QProcess>());
    app->setProcessEnvironment(environment);
    app->start(ORVISTELLE_TEST_APP_BUNDLE "/Contents/MacOS/Orvistelle FCP Beauty", {});
    EXPECT_TRUE(app->waitForStarted(kTimeoutMs));
    return app.get();
  }

  platform::testing::TempDir temp_;
  const fs::path socket_ = temp_.path() / (std::string(config::kBundleIdentifier) + ".socket");
  std::vector<std::unique_ptr<QProcess>> apps_;
};

TEST_F(LaunchTest, WithoutADisplayItSaysSoOnOneLineAndExits1) {
  QProcess* app = Launch(nullptr);
  ASSERT_TRUE(app->waitForFinished(kTimeoutMs));
  EXPECT_EQ(app->exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(app->exitCode(), 1);
  EXPECT_EQ(app->readAllStandardError().toStdString(),
            "Orvistelle FCP Beauty needs a graphical session: neither DISPLAY nor WAYLAND_DISPLAY is set.\n");
}

TEST_F(LaunchTest, ASecondLaunchRaisesTheFirstEvenAfterACrashLeftItsSocketBehind) {
  sockaddr_un address{AF_UNIX, {}};  // bound and closed, never removed: what a crash leaves
  std::strncpy(address.sun_path, socket_.c_str(), sizeof address.sun_path - 1);
  const int stale = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(stale);
  const int64_t staleChanged = ChangedAt(socket_);

  QProcess* first = Launch("offscreen");
  ASSERT_TRUE(QTest::qWaitFor([&] { return ChangedAt(socket_) > staleChanged; }, kTimeoutMs));
  QProcess* second = Launch("offscreen");
  ASSERT_TRUE(second->waitForFinished(kTimeoutMs));
  EXPECT_EQ(second->exitCode(), 0);
  EXPECT_EQ(first->state(), QProcess::Running);
  // The offscreen platform cannot stack windows and says so when asked to raise one.
  QByteArray said;
  EXPECT_TRUE(QTest::qWaitFor([&] { return said.append(first->readAllStandardError()).contains("support raise()"); }));
}

}  // namespace
}  // namespace orvistelle::app
