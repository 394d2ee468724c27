// The status window's content: the header, three component rows, the set-up button with its hint and the about
// area, each at its place and in its look; and how a window state repaints the parts that change.
#pragma once

#include <QFont>
#include <QLabel>
#include <QPointer>
#include <QString>
#include <QWidget>

#include "app/Setup.h"
#include "app/Views.h"

namespace orvistelle::app {

inline constexpr char kWindowTitle[] = "Orvistelle FCP Beauty";

// The pages the about links open.
struct PageCalls {
  void (*openSite)();
  void (*openDocs)();
  void (*openTerms)();
  void (*openPrivacy)();
};

struct StatusRowViews {
  QPointer<SymbolView> icon;
  QPointer<QLabel> value;
};

// The views a state repaints.
struct WindowViews {
  StatusRowViews host;
  StatusRowViews service;
  StatusRowViews templ;
  QPointer<FlatButton> actionButton;  // Return presses it; nothing is connected to its click yet
  QPointer<QLabel> hint;
};

// Replaces whatever the window holds with freshly built content at a fixed size, and gives the window the focus.
WindowViews BuildWindowContent(QWidget* window, const PageCalls& pages);

// The rows, the button and the hint as the state says; the hint in the quiet tone.
void ShowWindowState(const WindowViews& views, const shell::WindowState& state);

// The row's symbol and colour for the status, and its value in the largest size, down to a minimum, that fits.
void ApplyStatus(shell::RowStatus status, SymbolView* icon, QLabel* value, const QString& text);

void ShowHint(QLabel* hint, shell::Tone tone, const QString& text);

// The system font at a size in logical pixels.
QFont SystemFont(double size, QFont::Weight weight);

// The catalogue's text for the key in the interface language.
QString Translated(const char* key);

}  // namespace orvistelle::app
