// The status window: three component rows, the set-up button with its hint, and the about links.
#pragma once

#include <QColor>
#include <QFont>
#include <QLabel>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QWidget>
#include <optional>
#include <string>

#include "app/Setup.h"
#include "app/Views.h"

namespace orvistelle::app {

// The services the window starts and the pages it opens. The application passes the product's own (see
// ProductServices); tests pass their own to see what the window calls.
struct ServiceCalls {
  void (*applyHostLocale)();
  void (*maintain)();
  void (*openSite)();
  void (*openDocs)();
  void (*openTerms)();
  void (*openPrivacy)();
};

// A rectangle in the window's content, measured from its bottom-left corner with y growing upward.
struct Frame {
  double x;
  double y;
  double width;
  double height;
};

inline constexpr int kContentWidth = 360;
inline constexpr int kContentHeight = 540;
inline constexpr char kWindowTitle[] = "Orvistelle FCP Beauty";

class AppDelegate : public QObject {
  Q_OBJECT

 public:
  using Action = void (AppDelegate::*)();

  struct StatusRow {
    QLabel* caption;
    SymbolView* icon;
    QLabel* value;
  };

  // Escape and Ctrl+Q close the window from the start.
  AppDelegate(QWidget* window, ServiceCalls services);

  // Launch, in order: the interface language, the background services, the title, the view, the first probe.
  void applicationDidFinishLaunching();
  bool applicationShouldTerminateAfterLastWindowClosed() const { return true; }

  QString versionLabel() const;
  std::optional<std::string> xpcPluginPath() const { return shell::XpcPluginPath(); }
  std::string motionTemplatePath() const { return shell::MotionTemplatePath(); }
  std::string bundledTemplatePath() const { return shell::BundledTemplatePath(); }
  bool isHostRegisteredForThisApp() const { return shell::IsHostRegisteredForThisApp(); }
  bool hasXPCPlugin() const { return shell::HasXPCPlugin(); }
  bool hasMotionTemplate() const { return shell::HasMotionTemplate(); }
  bool hasBundledTemplate() const { return shell::HasBundledTemplate(); }

  // Probes and repaints the rows, the button and the hint.
  void refreshRegistrationStatus();
  bool registerHostNow(int* status) { return shell::RegisterHostNow(status); }
  bool installTemplateNow(shell::InstallError* error) { return shell::InstallTemplateNow(error); }
  // The button's action: registers now, copies the template 0.3 s later, then says how it went.
  void setupOrRepair();

  // Builds the window's content; building again replaces everything built before.
  void buildInfoView();
  QLabel* label(const QString& text, double y, double width, double size, QFont::Weight weight, const QColor& colour,
                Qt::Alignment alignment);
  StatusRow addStatusRow(const QString& caption, double y, double width, QWidget* content);
  void applyStatus(shell::RowStatus status, SymbolView* icon, QLabel* label, const QString& text);
  void styleActionButton(FlatButton* button, const QString& title, bool primary);
  FlatButton* makeActionButton(const QString& title, Action action, bool primary, double width);
  FlatButton* makeQuietButton(const QString& title, Action action);
  void addAboutLinksInContent(QWidget* content, double width, double y);

  void openSite() { services_.openSite(); }
  void openDocs() { services_.openDocs(); }
  void openTerms() { services_.openTerms(); }
  void openPrivacy() { services_.openPrivacy(); }

  static QColor ink(double white);
  static QColor okColor();
  static QColor warnColor();
  static QColor errorColor();
  // The system font at a size in logical pixels.
  static QFont systemFont(double size, QFont::Weight weight);

 private:
  void addHeader(QWidget* content);
  void addStatusRows(QWidget* content);
  void addSetupArea(QWidget* content);
  void addAboutArea(QWidget* content);
  void finishSetup();
  void showHint(shell::Tone tone, const QString& text);

  QPointer<QWidget> window_;
  ServiceCalls services_;
  QPointer<SymbolView> hostStatusIcon_;
  QPointer<SymbolView> xpcStatusIcon_;
  QPointer<SymbolView> templateStatusIcon_;
  QPointer<QLabel> hostValueLabel_;
  QPointer<QLabel> xpcValueLabel_;
  QPointer<QLabel> templateValueLabel_;
  QPointer<QLabel> hintLabel_;
  QPointer<FlatButton> actionButton_;
  // The button stays disabled while a run waits here, so one pending run is all there can be.
  shell::PendingSetup pendingSetup_;
  bool refocusButton_ = false;
  QTimer setupPause_;
};

// Places a view at a frame of the 360 × 540 content.
void SetFrame(QWidget* view, const Frame& frame);

}  // namespace orvistelle::app
