#include "app/ApplicationMain.h"

#include <QApplication>
#include <QEvent>
#include <QIcon>
#include <QPixmap>
#include <QTimer>
#include <cstdio>
#include <functional>

#include "app/Images.h"
#include "app/Setup.h"
#include "app/SingleInstance.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpI18n.h"
#include "orvistelle/FcpService.h"
#include "platform/DiagnosticsLog.h"
#include "platform/Platform.h"

namespace orvistelle::app {
namespace {

// Calls a function once, right after the first frame of any window has been painted: a zero timer started during the
// paint event fires once the frame has been drawn and handed to the window system.
class AfterFirstFrame : public QObject {
 public:
  explicit AfterFirstFrame(std::function<void()> call) : QObject(qApp) {
    afterPaint_.setSingleShot(true);
    connect(&afterPaint_, &QTimer::timeout, this, [this, call = std::move(call)] {
      call();
      deleteLater();
    });
    qApp->installEventFilter(this);
  }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::Paint) {
      qApp->removeEventFilter(this);
      afterPaint_.start(0);
    }
    return QObject::eventFilter(watched, event);
  }

 private:
  QTimer afterPaint_;
};

// The maintenance threads would compete with the first frame for the two cores a small machine has: they start once
// it is on screen, still before anything that the user could do needs them.
void MaintainAfterFirstFrame() { new AfterFirstFrame(FcpServiceMaintain); }

// The window icon at the size the window system shows, and twice that for dense screens: nothing larger is decoded
// and converted for the window manager.
QIcon WindowIcon(const QString& resources) {
  QIcon icon;
  icon.addPixmap(QPixmap::fromImage(ReadPixels(resources + "/AppIcon-64.pixels")));
  if (qApp->devicePixelRatio() > 1) icon.addPixmap(QPixmap::fromImage(ReadPixels(resources + "/AppIcon-128.pixels")));
  return icon;
}

// True when the window system Qt will use has a display to show windows on.
bool HasDisplay() {
  const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
  const bool needsWindowSystem = platform.isEmpty() || platform.startsWith("xcb") || platform.startsWith("wayland");
  return !needsWindowSystem || !qEnvironmentVariableIsEmpty("DISPLAY") ||
         !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

void RaiseWindow(QWidget& window) {
  window.setWindowState(window.windowState() & ~Qt::WindowMinimized);
  window.show();
  window.raise();
  window.activateWindow();
}

}  // namespace

ServiceCalls ProductServices() {
  return {FcpI18nApplyHostLocale,
          MaintainAfterFirstFrame,
          {FcpServiceOpenSite, FcpServiceOpenDocs, FcpServiceOpenTerms, FcpServiceOpenPrivacy}};
}

int ApplicationMain(int argc, char** argv) {
  // Without a display the platform plug-in would abort with a page of advice meant for Qt developers.
  if (!HasDisplay()) {
    (void)std::fprintf(stderr, "%s needs a graphical session: neither DISPLAY nor WAYLAND_DISPLAY is set.\n",
                       kWindowTitle);
    return 1;
  }
  platform::StartDiagnosticsLog();
  shell::NoteLaunch(kWindowTitle);
  // The window's class on X11 and its application id on Wayland: what the installed desktop entry names in
  // StartupWMClass and its file name, so that the desktop shows the window under the entry's icon.
  QApplication::setApplicationName(kWindowTitle);
  QGuiApplication::setDesktopFileName(config::kBundleIdentifier);
  QApplication application(argc, argv);
  SingleInstance instance(InstanceSocketPath());
  if (instance.RaiseRunningInstance()) return 0;
  shell::MoveEarlierFiles();
  const std::string resources = platform::Seam<platform::Bundle>::Get().Main().resourcePath;
  QApplication::setWindowIcon(WindowIcon(QString::fromStdString(resources)));
  QWidget window;
  AppDelegate delegate(&window, ProductServices());
  QObject::connect(&instance, &SingleInstance::raiseRequested, &window, [&window] { RaiseWindow(window); });
  QTimer::singleShot(0, &delegate, [&] {
    delegate.applicationDidFinishLaunching();
    window.show();
  });
  return QApplication::exec();
}

}  // namespace orvistelle::app
