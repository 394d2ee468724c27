// The status window's launch and actions: the order of the first steps, the probes behind the rows, and the set-up
// run behind the button. The views themselves are built and painted in WindowContent.
#pragma once

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include "app/Setup.h"
#include "app/WindowContent.h"

namespace orvistelle::app {

// The services the window starts and the pages it opens. The application passes the product's own (see
// ProductServices); tests pass their own to see what the window calls.
struct ServiceCalls {
  void (*applyHostLocale)();
  void (*maintain)();
  PageCalls pages;
};

class AppDelegate : public QObject {
  Q_OBJECT

 public:
  // Escape and Ctrl+Q close the window from the start.
  AppDelegate(QWidget* window, ServiceCalls services);

  // Launch, in order: the interface language, the background services, the title, the view, the first probe.
  void applicationDidFinishLaunching();

  // Builds the window's content; building again replaces everything built before.
  void buildInfoView();
  // Probes and repaints the rows, the button and the hint.
  void refreshRegistrationStatus();
  // The button's action: registers now, copies the template 0.3 s later, then says how it went.
  void setupOrRepair();

 private:
  void finishSetup();

  QPointer<QWidget> window_;
  ServiceCalls services_;
  WindowViews views_;
  // The button stays disabled while a run waits here, so one pending run is all there can be.
  shell::PendingSetup pendingSetup_;
  bool refocusButton_ = false;
  QTimer setupPause_;
};

}  // namespace orvistelle::app
