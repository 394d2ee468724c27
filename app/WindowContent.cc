#include "app/WindowContent.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QIcon>
#include <QPalette>
#include <QScreen>
#include <algorithm>
#include <cmath>
#include <vector>

#include "app/Accessibility.h"
#include "app/Images.h"
#include "orvistelle/FcpI18n.h"
#include "platform/Platform.h"

namespace orvistelle::app {
namespace {

constexpr int kContentWidth = 360;
constexpr int kContentHeight = 540;
// A text field insets its text by two points on each side; the frames below are the fields', not the texts'.
constexpr int kTextInset = 2;
constexpr double kAboutRowMinimumX = 8;
constexpr double kAboutItemGap = 5;
// What a status row's value label reads out before its value.
constexpr char kRowCaptionProperty[] = "orvistelleRowCaption";
// A status value is one or two words whose wording is fixed; one too wide for its field shrinks in these steps to
// the smallest size still read comfortably, rather than lose its end.
constexpr double kStatusValueSize = 12.5;
constexpr double kStatusValueMinimumSize = 9;
constexpr double kStatusValueSizeStep = 0.5;

const QColor kWindowBackground = QColor::fromRgb(22, 24, 30);
const QColor kSeparatorColour = QColor::fromRgb(38, 42, 53);
const QColor kPrimaryFill = QColor::fromRgbF(0.22, 0.47, 0.96);
const QColor kReadyColour = QColor::fromRgbF(0.3, 0.78, 0.45);
const QColor kWarningColour = QColor::fromRgbF(0.92, 0.72, 0.38);
const QColor kErrorColour = QColor::fromRgbF(0.95, 0.42, 0.40);

QColor Ink(double white) { return QColor::fromRgbF(white, white, white, 1.0); }

// A rectangle in the window's content, measured from its bottom-left corner with y growing upward.
struct Frame {
  double x;
  double y;
  double width;
  double height;
};

void SetFrame(QWidget* view, const Frame& frame) {
  view->setGeometry(static_cast<int>(std::lround(frame.x)),
                    static_cast<int>(std::lround(kContentHeight - frame.y - frame.height)),
                    static_cast<int>(std::lround(frame.width)), static_cast<int>(std::lround(frame.height)));
}

void SetColour(QWidget* view, QPalette::ColorRole role, const QColor& colour) {
  QPalette palette = view->palette();
  palette.setColor(role, colour);
  view->setPalette(palette);
}

void FillBackground(QWidget* view, const QColor& colour) {
  view->setAutoFillBackground(true);
  SetColour(view, QPalette::Window, colour);
}

void AddSubview(QWidget* parent, QWidget* view, const Frame& frame) {
  SetFrame(view, frame);
  view->setParent(parent);
  view->show();
}

QLabel* MakeTextLabel(const QString& text, double size, QFont::Weight weight, const QColor& colour,
                      Qt::Alignment alignment, bool wrapping) {
  auto* label = new QLabel(text);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(wrapping);
  label->setFont(SystemFont(size, weight));
  label->setAlignment(alignment | Qt::AlignTop);
  label->setContentsMargins(kTextInset, 0, kTextInset, 0);
  SetColour(label, QPalette::WindowText, colour);
  return label;
}

// A centred text across the content, wrapping onto further lines where one is too short.
QLabel* AddCentredText(QWidget* content, const char* name, const QString& text, const Frame& frame, double size,
                       QFont::Weight weight, const QColor& colour) {
  QLabel* label = MakeTextLabel(text, size, weight, colour, Qt::AlignHCenter, true);
  label->setObjectName(name);
  AddSubview(content, label, frame);
  return label;
}

QImage LargestImage(const QIcon& icon) {
  if (icon.isNull()) return {};
  return icon.pixmap(icon.actualSize(QSize(1024, 1024))).toImage();
}

// The bundle carries each image at the size the window shows it, and at twice that size for dense screens.
QImage BundleImage(const QString& name) {
  const std::string resources = platform::Seam<platform::Bundle>::Get().Main().resourcePath;
  if (resources.empty()) return {};
  const QString scale = qApp->devicePixelRatio() > 1 ? "@2x" : "";
  return ReadPixels(QString::fromStdString(resources) + "/" + name + scale + ".pixels");
}

QImage ApplicationIconImage() {
  QImage image = BundleImage("AppIcon-68");
  return image.isNull() ? LargestImage(QApplication::windowIcon()) : image;
}

// The desktop's icon theme stands in for the platform's named system images.
QImage NamedImage(const QString& name) {
  QImage image = BundleImage(name);
  return image.isNull() ? LargestImage(QIcon::fromTheme(name)) : image;
}

const char* SymbolFor(shell::RowStatus status) {
  switch (status) {
    case shell::RowStatus::Ready: return kSymbolReady;
    case shell::RowStatus::Missing: return kSymbolMissing;
    case shell::RowStatus::NeedsAttention: break;
  }
  return kSymbolAttention;
}

QColor ColourFor(shell::RowStatus status) {
  switch (status) {
    case shell::RowStatus::Ready: return kReadyColour;
    case shell::RowStatus::Missing: return kErrorColour;
    case shell::RowStatus::NeedsAttention: break;
  }
  return kWarningColour;
}

// The largest size, down to the minimum, at which the whole value fits the label's text area.
QFont StatusValueFont(const QLabel* label, const QString& text) {
  double size = kStatusValueSize;
  QFont font = SystemFont(size, QFont::Medium);
  while (size > kStatusValueMinimumSize &&
         QFontMetricsF(font).horizontalAdvance(text) > label->contentsRect().width()) {
    size = std::max(size - kStatusValueSizeStep, kStatusValueMinimumSize);
    font = SystemFont(size, QFont::Medium);
  }
  return font;
}

void FixWindowSize(QWidget* window) {
  const Qt::WindowFlags fixed = (window->windowFlags() | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                 Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint) &
                                ~Qt::WindowMaximizeButtonHint;
  if (window->windowFlags() != fixed) window->setWindowFlags(fixed);
  window->setFixedSize(kContentWidth, kContentHeight);
}

void AddHeader(QWidget* content) {
  auto* icon = new ImageView;
  icon->setObjectName("appIcon");
  icon->setImage(ApplicationIconImage());
  icon->setCornerRadius(15);
  SetAccessibleRole(icon, QAccessible::Graphic);
  icon->setAccessibleName(kWindowTitle);
  AddSubview(content, icon, {146, 440, 68, 68});

  AddCentredText(content, "tagline", Translated("shell.tagline"), {28, 408, 304, 22}, 16.5, QFont::DemiBold, Ink(0.92));
}

StatusRowViews AddStatusRow(QWidget* content, const QString& name, const QString& caption, double y) {
  QLabel* captionLabel = MakeTextLabel(caption, 12.5, QFont::Normal, Ink(0.55), Qt::AlignLeft, false);
  captionLabel->setObjectName(name + "Caption");
  HideFromAssistiveTechnology(captionLabel);
  AddSubview(content, captionLabel, {34, y, 140, 18});

  const double iconX = kContentWidth - 34 - 74;
  auto* icon = new SymbolView;
  icon->setObjectName(name + "StatusIcon");
  SetAccessibleRole(icon, QAccessible::Graphic);
  HideFromAssistiveTechnology(icon);
  AddSubview(content, icon, {iconX, y + 2, 14, 14});

  QLabel* value = MakeTextLabel(QString(), kStatusValueSize, QFont::Medium, Ink(0.7), Qt::AlignLeft, false);
  value->setObjectName(name + "ValueLabel");
  value->setProperty(kRowCaptionProperty, caption);
  AddSubview(content, value, {iconX + 14 + 4, y, 56, 18});
  return {icon, value};
}

void AddStatusRows(QWidget* content, WindowViews& views) {
  struct RowPlan {
    const char* captionKey;
    double y;
    const char* name;
    StatusRowViews* row;
  };
  const RowPlan rows[] = {{"shell.labelHost", 368, "host", &views.host},
                          {"shell.labelXpc", 340, "xpc", &views.service},
                          {"shell.labelTemplate", 312, "template", &views.templ}};
  for (const RowPlan& plan : rows) *plan.row = AddStatusRow(content, plan.name, Translated(plan.captionKey), plan.y);
}

void AddSetupArea(QWidget* content, WindowViews& views) {
  auto* button = new FlatButton;
  button->setObjectName("actionButton");
  button->setCornerRadius(8);
  button->setFill(kPrimaryFill);
  button->setTitleColour(Ink(1.0));
  button->setFont(SystemFont(13, QFont::Medium));
  button->setText(Translated("shell.actionSetup"));
  button->setKeyEquivalent(QKeySequence(Qt::Key_Return));
  AddSubview(content, button, {70, 188, 220, 36});
  views.actionButton = button;

  views.hint = AddCentredText(content, "hintLabel", QString(), {28, 138, 304, 40}, 11.5, QFont::Normal, Ink(0.55));

  auto* separator = new QWidget;
  separator->setObjectName("separator");
  FillBackground(separator, kSeparatorColour);
  HideFromAssistiveTechnology(separator);
  AddSubview(content, separator, {28, 122, 304, 1});
}

void AddAboutArea(QWidget* content) {
  AddCentredText(content, "aboutCaption", Translated("settings.about"), {28, 98, 304, 16}, 11, QFont::Medium,
                 Ink(0.45));

  auto* logo = new ImageView;
  logo->setObjectName("logo");
  logo->setImage(NamedImage("logo-dark"));
  SetAccessibleRole(logo, QAccessible::Graphic);
  logo->setAccessibleName(QStringLiteral("Orvistelle"));
  AddSubview(content, logo, {132, 66, 96, 26});

  const QString version = QString::fromStdString(FcpTf("shell.version", shell::BundleVersion()));
  AddCentredText(content, "versionLabel", version, {28, 44, 304, 16}, 12, QFont::Normal, Ink(0.55));
}

struct AboutItem {
  QWidget* view;
  bool separator;
};

// Centred when the row fits, else from a small margin on the left; separators keep a gap on both sides and sit
// two points above the links.
void PlaceAboutRow(QWidget* content, const std::vector<AboutItem>& items, double y) {
  double total = 0;
  for (const AboutItem& item : items) total += item.view->width() + (item.separator ? 2 * kAboutItemGap : 0);
  double x = std::max((kContentWidth - total) / 2, kAboutRowMinimumX);
  for (const AboutItem& item : items) {
    const double itemWidth = item.view->width();
    AddSubview(content, item.view, item.separator ? Frame{x, y + 2, itemWidth, 16} : Frame{x, y, itemWidth, 20});
    x += itemWidth + kAboutItemGap;
  }
}

QLabel* MakeLinkSeparator(std::size_t number) {
  QLabel* dot = MakeTextLabel(QStringLiteral("\u00B7"), 10.5, QFont::Normal, Ink(0.42), Qt::AlignLeft, false);
  dot->setObjectName(QStringLiteral("linkSeparator%1").arg(number));
  dot->resize(dot->sizeHint());
  HideFromAssistiveTechnology(dot);
  return dot;
}

FlatButton* MakeLink(const QString& title, const char* name, void (*open)()) {
  auto* button = new FlatButton;
  button->setObjectName(QStringLiteral("link.") + name);
  SetAccessibleRole(button, QAccessible::Link);
  QObject::connect(button, &QAbstractButton::clicked, button, open);
  button->setTitleColour(Ink(0.62));
  button->setFont(SystemFont(11, QFont::Medium));
  button->setText(title);
  button->resize(button->sizeHint().width() + 2, 20);
  return button;
}

void AddAboutLinks(QWidget* content, const PageCalls& pages) {
  struct Link {
    const char* titleKey;
    void (*open)();
    const char* name;
  };
  const Link links[] = {{"nav.website", pages.openSite, "website"},
                        {"nav.guide", pages.openDocs, "guide"},
                        {"auth.terms", pages.openTerms, "terms"},
                        {"auth.privacy", pages.openPrivacy, "privacy"}};
  std::vector<AboutItem> items;
  for (const Link& link : links) {
    if (!items.empty()) items.push_back({MakeLinkSeparator(items.size() / 2 + 1), true});
    items.push_back({MakeLink(Translated(link.titleKey), link.name, link.open), false});
  }
  PlaceAboutRow(content, items, 18);
}

}  // namespace

WindowViews BuildWindowContent(QWidget* window, const PageCalls& pages) {
  for (QWidget* child : window->findChildren<QWidget*>(Qt::FindDirectChildrenOnly)) delete child;
  FillBackground(window, kWindowBackground);
  FixWindowSize(window);
  WindowViews views;
  AddHeader(window);
  AddStatusRows(window, views);
  AddSetupArea(window, views);
  AddAboutArea(window);
  AddAboutLinks(window, pages);
  // The window itself holds the focus until Tab moves it, so that Return presses the primary button.
  window->setFocus(Qt::OtherFocusReason);
  return views;
}

void ShowWindowState(const WindowViews& views, const shell::WindowState& state) {
  ApplyStatus(state.host.status, views.host.icon, views.host.value, Translated(state.host.textKey));
  ApplyStatus(state.service.status, views.service.icon, views.service.value, Translated(state.service.textKey));
  ApplyStatus(state.templ.status, views.templ.icon, views.templ.value, Translated(state.templ.textKey));
  views.actionButton->setText(Translated(state.buttonTitleKey));
  views.actionButton->setEnabled(state.buttonEnabled);
  views.actionButton->setAlphaValue(state.buttonAlpha);
  ShowHint(views.hint, shell::Tone::Quiet, Translated(state.hintKey));
}

void ApplyStatus(shell::RowStatus status, SymbolView* icon, QLabel* value, const QString& text) {
  const QColor colour = ColourFor(status);
  icon->setSymbol(SymbolFor(status));
  icon->setTint(colour);
  SetColour(value, QPalette::WindowText, colour);
  value->setFont(StatusValueFont(value, text));
  value->setText(text);
  // The caption and the icon are hidden from screen readers, so the value reads out the whole row.
  icon->setAccessibleName(text);
  value->setAccessibleName(value->property(kRowCaptionProperty).toString() + ": " + text);
}

void ShowHint(QLabel* hint, shell::Tone tone, const QString& text) {
  const QColor colour = tone == shell::Tone::Error     ? kErrorColour
                        : tone == shell::Tone::Warning ? kWarningColour
                                                       : Ink(0.55);
  SetColour(hint, QPalette::WindowText, colour);
  hint->setText(text);
}

QFont SystemFont(double size, QFont::Weight weight) {
  const QScreen* screen = QGuiApplication::primaryScreen();
  const double dpi = screen != nullptr ? screen->logicalDotsPerInchY() : 96.0;
  QFont font = QApplication::font();
  font.setPointSizeF(size * 72.0 / dpi);
  font.setWeight(weight);
  return font;
}

QString Translated(const char* key) { return QString::fromStdString(FcpT(key)); }

}  // namespace orvistelle::app
