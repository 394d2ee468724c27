#include "app/ApplicationMain.h"

#include <QApplication>
#include <QIcon>
#include <QTimer>
#include <iostream>

#include "app/Setup.h"
#include "app/SingleInstance.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpI18n.h"
#include "orvistelle/FcpService.h"
#include "platform/DiagnosticsLog.h"
#include "platform/Platform.h"

namespace orvistelle::app {

ServiceCalls ProductServices() {
  return {FcpI18nApplyHostLocale, FcpServiceMaintain, FcpServiceOpenSite,
          FcpServiceOpenDocs,     FcpServiceOpenTerms, FcpServiceOpenPrivacy};
}

namespace {

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

int ApplicationMain(int argc, char** argv) {
  // Without a display the platform plug-in would abort with a page of advice meant for Qt developers.
  if (!HasDisplay()) {
    std::cerr << kWindowTitle << " needs a graphical session: neither DISPLAY nor WAYLAND_DISPLAY is set.\n";
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
  QApplication::setWindowIcon(QIcon(QString::fromStdString(resources) + "/AppIcon.png"));
  QWidget window;
  AppDelegate delegate(&window, ProductServices());
  QObject::connect(&instance, &SingleInstance::raiseRequested, &window, [&window] { RaiseWindow(window); });
  QApplication::setQuitOnLastWindowClosed(delegate.applicationShouldTerminateAfterLastWindowClosed());
  QTimer::singleShot(0, &delegate, [&] {
    delegate.applicationDidFinishLaunching();
    window.show();
  });
  return QApplication::exec();
}

}  // namespace orvistelle::app
