#include "app/AppDelegate.h"

#include <QShortcut>

#include "app/Accessibility.h"

namespace orvistelle::app {
namespace {

// Long enough for the window to show the working state before the copy runs on the same thread.
constexpr int kSetupPauseMs = 300;

}  // namespace

AppDelegate::AppDelegate(QWidget* window, ServiceCalls services) : window_(window), services_(services) {
  setupPause_.setSingleShot(true);
  setupPause_.setInterval(kSetupPauseMs);
  connect(&setupPause_, &QTimer::timeout, this, &AppDelegate::finishSetup);
  InstallAccessibleRoles();
  for (const QKeySequence& key : {QKeySequence(Qt::Key_Escape), QKeySequence(Qt::CTRL | Qt::Key_Q)}) {
    connect(new QShortcut(key, window_), &QShortcut::activated, window_, &QWidget::close);
  }
}

void AppDelegate::applicationDidFinishLaunching() {
  services_.applyHostLocale();
  services_.maintain();
  window_->setWindowTitle(kWindowTitle);
  buildInfoView();
  refreshRegistrationStatus();
}

void AppDelegate::buildInfoView() {
  views_ = BuildWindowContent(window_, services_.pages);
  connect(views_.actionButton, &QAbstractButton::clicked, this, &AppDelegate::setupOrRepair);
}

void AppDelegate::refreshRegistrationStatus() {
  ShowWindowState(views_, shell::DecideWindowState(shell::ProbeComponents()));
}

void AppDelegate::setupOrRepair() {
  const shell::Probes probes = shell::ProbeComponents();
  if (!probes.service) {
    ShowHint(views_.hint, shell::Tone::Error, Translated("shell.hintXpc"));
    return;
  }
  // Disabling a focused button would hand the focus on to the first link, where Return opens a page.
  refocusButton_ = views_.actionButton->hasFocus();
  if (refocusButton_) window_->setFocus();
  views_.actionButton->setEnabled(false);
  views_.actionButton->setText(Translated("shell.actionWorking"));
  ShowHint(views_.hint, shell::Tone::Quiet, Translated("shell.actionWorking"));
  pendingSetup_ = shell::StartSetup(probes);
  setupPause_.start();
}

void AppDelegate::finishSetup() {
  const shell::SetupResult result = shell::CompleteSetup(pendingSetup_);
  refreshRegistrationStatus();
  const shell::Hint hint = shell::SetupOutcomeHint(result, shell::ProbeComponents().AllReady());
  ShowHint(views_.hint, hint.tone, QString::fromStdString(hint.text));
  views_.actionButton->setEnabled(true);
  if (refocusButton_) views_.actionButton->setFocus(Qt::OtherFocusReason);
}

}  // namespace orvistelle::app
