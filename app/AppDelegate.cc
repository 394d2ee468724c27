#include "app/AppDelegate.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QIcon>
#include <QPalette>
#include <QScreen>
#include <QShortcut>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <vector>

#include "app/Accessibility.h"
#include "app/Images.h"
#include "orvistelle/FcpI18n.h"
#include "platform/Platform.h"

namespace orvistelle::app {
namespace {

// Long enough for the window to show the working state before the copy runs on the same thread.
constexpr int kSetupPauseMs = 300;
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
const QColor kSecondaryFill = QColor::fromRgbF(1, 1, 1, 0.08);
const QColor kSecondaryBorder = QColor::fromRgbF(1, 1, 1, 0.22);

QString Text(const char* key) { return QString::fromStdString(FcpT(key)); }

void SetColour(QWidget* view, QPalette::ColorRole role, const QColor& colour) {
  QPalette palette = view->palette();
  palette.setColor(role, colour);
  view->setPalette(palette);
}

void FillBackground(QWidget* view, const QColor& colour) {
  view->setAutoFillBackground(true);
  SetColour(view, QPalette::Window, colour);
}

QLabel* MakeTextLabel(const QString& text, double size, QFont::Weight weight, const QColor& colour,
                      Qt::Alignment alignment, bool wrapping) {
  auto* label = new QLabel(text);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(wrapping);
  label->setFont(AppDelegate::systemFont(size, weight));
  label->setAlignment(alignment | Qt::AlignTop);
  label->setContentsMargins(kTextInset, 0, kTextInset, 0);
  SetColour(label, QPalette::WindowText, colour);
  return label;
}

void AddSubview(QWidget* parent, QWidget* view) {
  view->setParent(parent);
  view->show();
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
  return ReadPng(QString::fromStdString(resources) + "/" + name + scale + ".png");
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

// The largest size, down to the minimum, at which the whole value fits the label's text area.
QFont StatusValueFont(const QLabel* label, const QString& text) {
  double size = kStatusValueSize;
  QFont font = AppDelegate::systemFont(size, QFont::Medium);
  while (size > kStatusValueMinimumSize &&
         QFontMetricsF(font).horizontalAdvance(text) > label->contentsRect().width()) {
    size = std::max(size - kStatusValueSizeStep, kStatusValueMinimumSize);
    font = AppDelegate::systemFont(size, QFont::Medium);
  }
  return font;
}

QColor ColourFor(shell::RowStatus status) {
  switch (status) {
    case shell::RowStatus::Ready: return AppDelegate::okColor();
    case shell::RowStatus::Missing: return AppDelegate::errorColor();
    case shell::RowStatus::NeedsAttention: break;
  }
  return AppDelegate::warnColor();
}

struct AboutItem {
  QWidget* view;
  bool separator;
};

// Centred when the row fits, else from a small margin on the left; separators keep a gap on both sides and sit
// two points above the links.
void PlaceAboutRow(QWidget* content, const std::vector<AboutItem>& items, double width, double y) {
  double total = 0;
  for (const AboutItem& item : items) total += item.view->width() + (item.separator ? 2 * kAboutItemGap : 0);
  double x = std::max((width - total) / 2, kAboutRowMinimumX);
  for (const AboutItem& item : items) {
    const double itemWidth = item.view->width();
    SetFrame(item.view, item.separator ? Frame{x, y + 2, itemWidth, 16} : Frame{x, y, itemWidth, 20});
    x += itemWidth + kAboutItemGap;
    AddSubview(content, item.view);
  }
}

}  // namespace

void SetFrame(QWidget* view, const Frame& frame) {
  view->setGeometry(static_cast<int>(std::lround(frame.x)),
                    static_cast<int>(std::lround(kContentHeight - frame.y - frame.height)),
                    static_cast<int>(std::lround(frame.width)), static_cast<int>(std::lround(frame.height)));
}

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

QString AppDelegate::versionLabel() const {
  return QString::fromStdString(FcpTf("shell.version", shell::BundleVersion()));
}

void AppDelegate::refreshRegistrationStatus() {
  const shell::WindowState state = shell::DecideWindowState(shell::ProbeComponents());
  applyStatus(state.host.status, hostStatusIcon_, hostValueLabel_, Text(state.host.textKey));
  applyStatus(state.service.status, xpcStatusIcon_, xpcValueLabel_, Text(state.service.textKey));
  applyStatus(state.templ.status, templateStatusIcon_, templateValueLabel_, Text(state.templ.textKey));
  styleActionButton(actionButton_, Text(state.buttonTitleKey), true);
  actionButton_->setEnabled(state.buttonEnabled);
  actionButton_->setAlphaValue(state.buttonAlpha);
  showHint(shell::Tone::Quiet, Text(state.hintKey));
}

void AppDelegate::setupOrRepair() {
  const shell::Probes probes = shell::ProbeComponents();
  if (!probes.service) {
    showHint(shell::Tone::Error, Text("shell.hintXpc"));
    return;
  }
  // Disabling a focused button would hand the focus on to the first link, where Return opens a page.
  refocusButton_ = actionButton_->hasFocus();
  if (refocusButton_) window_->setFocus();
  actionButton_->setEnabled(false);
  styleActionButton(actionButton_, Text("shell.actionWorking"), true);
  showHint(shell::Tone::Quiet, Text("shell.actionWorking"));
  pendingSetup_ = shell::StartSetup(probes);
  setupPause_.start();
}

void AppDelegate::finishSetup() {
  const shell::SetupResult result = shell::CompleteSetup(pendingSetup_);
  refreshRegistrationStatus();
  const shell::Hint hint = shell::SetupOutcomeHint(result, shell::ProbeComponents().AllReady());
  showHint(hint.tone, QString::fromStdString(hint.text));
  actionButton_->setEnabled(true);
  if (refocusButton_) actionButton_->setFocus(Qt::OtherFocusReason);
}

void AppDelegate::showHint(shell::Tone tone, const QString& text) {
  const QColor colour = tone == shell::Tone::Error     ? errorColor()
                        : tone == shell::Tone::Warning ? warnColor()
                                                       : ink(0.55);
  SetColour(hintLabel_, QPalette::WindowText, colour);
  hintLabel_->setText(text);
}

void AppDelegate::buildInfoView() {
  QWidget* content = window_;
  for (QWidget* child : content->findChildren<QWidget*>(Qt::FindDirectChildrenOnly)) delete child;
  FillBackground(content, kWindowBackground);
  const Qt::WindowFlags fixed = (content->windowFlags() | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                 Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint) &
                                ~Qt::WindowMaximizeButtonHint;
  if (content->windowFlags() != fixed) content->setWindowFlags(fixed);
  content->setFixedSize(kContentWidth, kContentHeight);
  addHeader(content);
  addStatusRows(content);
  addSetupArea(content);
  addAboutArea(content);
  addAboutLinksInContent(content, kContentWidth, 18);
  // The window itself holds the focus until Tab moves it, so that Return presses the primary button.
  content->setFocus(Qt::OtherFocusReason);
}

void AppDelegate::addHeader(QWidget* content) {
  auto* icon = new ImageView;
  icon->setObjectName("appIcon");
  icon->setImage(ApplicationIconImage());
  icon->setCornerRadius(15);
  SetAccessibleRole(icon, QAccessible::Graphic);
  icon->setAccessibleName(kWindowTitle);
  SetFrame(icon, {146, 440, 68, 68});
  AddSubview(content, icon);

  QLabel* tagline = label(Text("shell.tagline"), 408, kContentWidth, 16.5, QFont::DemiBold, ink(0.92), Qt::AlignHCenter);
  tagline->setObjectName("tagline");
  SetFrame(tagline, {28, 408, 304, 22});
  AddSubview(content, tagline);
}

void AppDelegate::addStatusRows(QWidget* content) {
  struct RowPlan {
    const char* captionKey;
    double y;
    const char* name;
    QPointer<SymbolView>* icon;
    QPointer<QLabel>* value;
  };
  const RowPlan rows[] = {{"shell.labelHost", 368, "host", &hostStatusIcon_, &hostValueLabel_},
                          {"shell.labelXpc", 340, "xpc", &xpcStatusIcon_, &xpcValueLabel_},
                          {"shell.labelTemplate", 312, "template", &templateStatusIcon_, &templateValueLabel_}};
  for (const RowPlan& plan : rows) {
    StatusRow row = addStatusRow(Text(plan.captionKey), plan.y, kContentWidth, content);
    const QString name = plan.name;
    row.caption->setObjectName(name + "Caption");
    row.icon->setObjectName(name + "StatusIcon");
    row.value->setObjectName(name + "ValueLabel");
    *plan.icon = row.icon;
    *plan.value = row.value;
  }
}

void AppDelegate::addSetupArea(QWidget* content) {
  actionButton_ = makeActionButton(Text("shell.actionSetup"), &AppDelegate::setupOrRepair, true, kContentWidth);
  actionButton_->setObjectName("actionButton");
  SetFrame(actionButton_, {70, 188, 220, 36});
  actionButton_->setKeyEquivalent(QKeySequence(Qt::Key_Return));
  AddSubview(content, actionButton_);

  hintLabel_ = label(QString(), 138, kContentWidth, 11.5, QFont::Normal, ink(0.55), Qt::AlignHCenter);
  hintLabel_->setObjectName("hintLabel");
  SetFrame(hintLabel_, {28, 138, 304, 40});
  AddSubview(content, hintLabel_);

  auto* separator = new QWidget;
  separator->setObjectName("separator");
  FillBackground(separator, kSeparatorColour);
  HideFromAssistiveTechnology(separator);
  SetFrame(separator, {28, 122, 304, 1});
  AddSubview(content, separator);
}

void AppDelegate::addAboutArea(QWidget* content) {
  QLabel* caption = label(Text("settings.about"), 98, kContentWidth, 11, QFont::Medium, ink(0.45), Qt::AlignHCenter);
  caption->setObjectName("aboutCaption");
  SetFrame(caption, {28, 98, 304, 16});
  AddSubview(content, caption);

  auto* logo = new ImageView;
  logo->setObjectName("logo");
  logo->setImage(NamedImage("logo-dark"));
  SetAccessibleRole(logo, QAccessible::Graphic);
  logo->setAccessibleName(QStringLiteral("Orvistelle"));
  SetFrame(logo, {132, 66, 96, 26});
  AddSubview(content, logo);

  QLabel* version = label(versionLabel(), 44, kContentWidth, 12, QFont::Normal, ink(0.55), Qt::AlignHCenter);
  version->setObjectName("versionLabel");
  SetFrame(version, {28, 44, 304, 16});
  AddSubview(content, version);
}

QLabel* AppDelegate::label(const QString& text, double y, double width, double size, QFont::Weight weight,
                           const QColor& colour, Qt::Alignment alignment) {
  QLabel* view = MakeTextLabel(text, size, weight, colour, alignment, true);
  SetFrame(view, {28, y, width - 56, size + 6});
  return view;
}

AppDelegate::StatusRow AppDelegate::addStatusRow(const QString& caption, double y, double width, QWidget* content) {
  QLabel* captionLabel = MakeTextLabel(caption, 12.5, QFont::Normal, ink(0.55), Qt::AlignLeft, false);
  SetFrame(captionLabel, {34, y, 140, 18});
  HideFromAssistiveTechnology(captionLabel);
  AddSubview(content, captionLabel);

  const double iconX = width - 34 - 74;
  auto* icon = new SymbolView;
  icon->setTint(ink(0.5));
  SetAccessibleRole(icon, QAccessible::Graphic);
  HideFromAssistiveTechnology(icon);
  SetFrame(icon, {iconX, y + 2, 14, 14});
  AddSubview(content, icon);

  QLabel* value = MakeTextLabel(QString(), kStatusValueSize, QFont::Medium, ink(0.7), Qt::AlignLeft, false);
  SetFrame(value, {iconX + 14 + 4, y, 56, 18});
  value->setProperty(kRowCaptionProperty, caption);
  AddSubview(content, value);
  return {captionLabel, icon, value};
}

void AppDelegate::applyStatus(shell::RowStatus status, SymbolView* icon, QLabel* label, const QString& text) {
  const QColor colour = ColourFor(status);
  icon->setSymbol(SymbolFor(status));
  icon->setTint(colour);
  SetColour(label, QPalette::WindowText, colour);
  label->setFont(StatusValueFont(label, text));
  label->setText(text);
  // The caption and the icon are hidden from screen readers, so the value reads out the whole row.
  icon->setAccessibleName(text);
  label->setAccessibleName(label->property(kRowCaptionProperty).toString() + ": " + text);
}

void AppDelegate::styleActionButton(FlatButton* button, const QString& title, bool primary) {
  button->setCornerRadius(8);
  button->setFill(primary ? kPrimaryFill : kSecondaryFill);
  button->setBorder(primary ? 0 : 1, primary ? QColor(Qt::transparent) : kSecondaryBorder);
  button->setTitleColour(primary ? ink(1.0) : ink(0.92));
  button->setFont(systemFont(13, QFont::Medium));
  button->setText(title);
}

FlatButton* AppDelegate::makeActionButton(const QString& title, Action action, bool primary, double width) {
  auto* button = new FlatButton;
  SetFrame(button, {(width - 220) / 2, 0, 220, 34});
  connect(button, &QAbstractButton::clicked, this, action);
  styleActionButton(button, title, primary);
  return button;
}

FlatButton* AppDelegate::makeQuietButton(const QString& title, Action action) {
  auto* button = new FlatButton;
  SetAccessibleRole(button, QAccessible::Link);
  button->setGeometry(QRect());
  connect(button, &QAbstractButton::clicked, this, action);
  button->setTitleColour(ink(0.58));
  button->setFont(systemFont(12, QFont::Normal));
  button->setText(title);
  return button;
}

void AppDelegate::addAboutLinksInContent(QWidget* content, double width, double y) {
  struct Link {
    const char* titleKey;
    Action action;
    const char* name;
  };
  static constexpr Link kLinks[] = {{"nav.website", &AppDelegate::openSite, "website"},
                                    {"nav.guide", &AppDelegate::openDocs, "guide"},
                                    {"auth.terms", &AppDelegate::openTerms, "terms"},
                                    {"auth.privacy", &AppDelegate::openPrivacy, "privacy"}};
  std::vector<AboutItem> items;
  for (const Link& link : kLinks) {
    if (!items.empty()) {
      QLabel* dot = MakeTextLabel(QStringLiteral("\u00B7"), 10.5, QFont::Normal, ink(0.42), Qt::AlignLeft, false);
      dot->setObjectName(QStringLiteral("linkSeparator%1").arg(items.size() / 2 + 1));
      dot->resize(dot->sizeHint());
      HideFromAssistiveTechnology(dot);
      items.push_back({dot, true});
    }
    FlatButton* button = makeQuietButton(Text(link.titleKey), link.action);
    button->setObjectName(QStringLiteral("link.") + link.name);
    button->setFont(systemFont(11, QFont::Medium));
    button->setTitleColour(ink(0.62));
    button->resize(button->sizeHint().width() + 2, 20);
    items.push_back({button, false});
  }
  PlaceAboutRow(content, items, width, y);
}

QColor AppDelegate::ink(double white) { return QColor::fromRgbF(white, white, white, 1.0); }
QColor AppDelegate::okColor() { return QColor::fromRgbF(0.3, 0.78, 0.45); }
QColor AppDelegate::warnColor() { return QColor::fromRgbF(0.92, 0.72, 0.38); }
QColor AppDelegate::errorColor() { return QColor::fromRgbF(0.95, 0.42, 0.40); }

QFont AppDelegate::systemFont(double size, QFont::Weight weight) {
  const QScreen* screen = QGuiApplication::primaryScreen();
  const double dpi = screen != nullptr ? screen->logicalDotsPerInchY() : 96.0;
  QFont font = QApplication::font();
  font.setPointSizeF(size * 72.0 / dpi);
  font.setWeight(weight);
  return font;
}

}  // namespace orvistelle::app
