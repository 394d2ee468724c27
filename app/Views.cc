#include "app/Views.h"

#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QShortcut>
#include <cmath>

namespace orvistelle::app {
namespace {

// Light enough to stand out against both the dark window and the blue of the primary button.
const QColor kFocusRing = QColor::fromRgbF(0.9, 0.94, 1.0);
constexpr qreal kFocusRingWidth = 2;
constexpr qreal kFocusRingMinimumRadius = 4;

bool IsReturn(const QKeyEvent* key) {
  return (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) &&
         (key->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier;
}

// The marks, in a unit square whose circle has diameter 1, stroked at the weight of a semibold symbol.
constexpr qreal kMarkWidth = 0.11;

struct Mark {
  QPainterPath strokes;
  QPainterPath dots;  // filled
  bool isEmpty() const { return strokes.isEmpty() && dots.isEmpty(); }
};

Mark MarkOf(const QString& name) {
  Mark mark;
  if (name == kSymbolReady) {
    mark.strokes.moveTo(0.28, 0.52);
    mark.strokes.lineTo(0.44, 0.67);
    mark.strokes.lineTo(0.72, 0.36);
  } else if (name == kSymbolMissing) {
    mark.strokes.moveTo(0.35, 0.35);
    mark.strokes.lineTo(0.65, 0.65);
    mark.strokes.moveTo(0.65, 0.35);
    mark.strokes.lineTo(0.35, 0.65);
  } else if (name == kSymbolAttention) {
    mark.strokes.moveTo(0.5, 0.25);
    mark.strokes.lineTo(0.5, 0.55);
    mark.dots.addEllipse(QPointF(0.5, 0.735), kMarkWidth * 0.65, kMarkWidth * 0.65);
  }
  return mark;
}

QPainterPath RoundedRect(const QRectF& rect, qreal radius) {
  QPainterPath path;
  path.addRoundedRect(rect, radius, radius);
  return path;
}

}  // namespace

FlatButton::FlatButton(QWidget* parent) : QAbstractButton(parent) { setFocusPolicy(Qt::TabFocus); }

// Return belongs to the focused button before any window-wide key equivalent sees it.
bool FlatButton::event(QEvent* event) {
  if (event->type() == QEvent::ShortcutOverride && IsReturn(static_cast<QKeyEvent*>(event))) {
    event->accept();
    return true;
  }
  return QAbstractButton::event(event);
}

void FlatButton::keyPressEvent(QKeyEvent* event) {
  if (IsReturn(event)) {
    click();
    return;
  }
  QAbstractButton::keyPressEvent(event);
}

void FlatButton::setKeyEquivalent(const QKeySequence& key) {
  auto* shortcut = new QShortcut(key, this);
  connect(shortcut, &QShortcut::activated, this, &QAbstractButton::click);
}

QSize FlatButton::sizeHint() const {
  QFontMetricsF metrics(font());
  return {static_cast<int>(std::ceil(metrics.horizontalAdvance(text()))),
          static_cast<int>(std::ceil(metrics.height()))};
}

void FlatButton::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setOpacity(isDown() ? alpha_ * 0.8 : alpha_);
  const qreal inset = borderWidth_ / 2;
  const QRectF body = QRectF(rect()).adjusted(inset, inset, -inset, -inset);
  painter.setPen(borderWidth_ > 0 ? QPen(borderColour_, borderWidth_) : QPen(Qt::NoPen));
  painter.setBrush(fill_);
  painter.drawPath(RoundedRect(body, cornerRadius_));
  painter.setPen(titleColour_);
  painter.setFont(font());
  painter.drawText(rect(), Qt::AlignCenter | Qt::TextSingleLine, text());
  if (!hasFocus()) return;
  const qreal ringInset = kFocusRingWidth / 2;
  painter.setOpacity(1);
  painter.setPen(QPen(kFocusRing, kFocusRingWidth));
  painter.setBrush(Qt::NoBrush);
  painter.drawPath(RoundedRect(QRectF(rect()).adjusted(ringInset, ringInset, -ringInset, -ringInset),
                               std::max(cornerRadius_, kFocusRingMinimumRadius)));
}

QImage RenderStatusSymbol(const QString& name, QSize size, qreal devicePixelRatio, const QColor& tint) {
  const Mark mark = MarkOf(name);
  if (mark.isEmpty()) return {};
  QImage image(size * devicePixelRatio, QImage::Format_ARGB32_Premultiplied);
  image.setDevicePixelRatio(devicePixelRatio);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  const qreal side = std::min(size.width(), size.height());
  painter.translate((size.width() - side) / 2.0, (size.height() - side) / 2.0);
  painter.scale(side, side);
  painter.setPen(Qt::NoPen);
  painter.setBrush(tint);
  painter.drawEllipse(QRectF(0.02, 0.02, 0.96, 0.96));
  painter.setCompositionMode(QPainter::CompositionMode_Clear);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(Qt::black, kMarkWidth, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.drawPath(mark.strokes);
  painter.setPen(Qt::NoPen);
  painter.setBrush(Qt::black);
  painter.drawPath(mark.dots);
  return image;
}

SymbolView::SymbolView(QWidget* parent) : QWidget(parent) {}

void SymbolView::paintEvent(QPaintEvent*) {
  QImage image = RenderStatusSymbol(symbol_, size(), devicePixelRatioF(), tint_);
  if (image.isNull()) return;
  QPainter(this).drawImage(QPointF(0, 0), image);
}

ImageView::ImageView(QWidget* parent) : QWidget(parent) {}

void ImageView::paintEvent(QPaintEvent*) {
  if (image_.isNull()) return;
  QPainter painter(this);
  painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
  if (cornerRadius_ > 0) painter.setClipPath(RoundedRect(rect(), cornerRadius_));
  QSizeF fitted = QSizeF(image_.size()).scaled(size(), Qt::KeepAspectRatio);
  QRectF target(QPointF((width() - fitted.width()) / 2, (height() - fitted.height()) / 2), fitted);
  // Scaled once to the device pixels it covers: smoother than letting the painter shrink a large image.
  QImage scaled = image_.scaled((fitted * devicePixelRatioF()).toSize(), Qt::KeepAspectRatio, Qt::SmoothTransformation);
  painter.drawImage(target, scaled);
}

}  // namespace orvistelle::app
