#include "app/ApplicationMain.h"

#include <QApplication>
#include <QIcon>
#include <QTimer>

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

int ApplicationMain(int argc, char** argv) {
  platform::StartDiagnosticsLog();
  shell::NoteLaunch(kWindowTitle);
  // The window's class on X11 and its application id on Wayland: what the installed desktop entry names in
  // StartupWMClass and its file name, so that the desktop shows the window under the entry's icon.
  QApplication::setApplicationName(kWindowTitle);
  QGuiApplication::setDesktopFileName(config::kBundleIdentifier);
  QApplication application(argc, argv);
  const std::string resources = platform::Seam<platform::Bundle>::Get().Main().resourcePath;
  QApplication::setWindowIcon(QIcon(QString::fromStdString(resources) + "/AppIcon.png"));
  QWidget window;
  AppDelegate delegate(&window, ProductServices());
  QApplication::setQuitOnLastWindowClosed(delegate.applicationShouldTerminateAfterLastWindowClosed());
  QTimer::singleShot(0, &delegate, [&] {
    delegate.applicationDidFinishLaunching();
    window.show();
  });
  return QApplication::exec();
}

}  // namespace orvistelle::app
