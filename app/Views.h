// The three kinds of view the status window needs beyond plain labels: a flat button drawn entirely by us (so its
// look is the same on every desktop theme), a tinted status symbol, and an image scaled to fit.
#pragma once

#include <QAbstractButton>
#include <QColor>
#include <QImage>
#include <QKeySequence>
#include <QString>
#include <QWidget>

namespace orvistelle::app {

// A borderless button with a rounded, optionally outlined fill behind a one-colour title. Every style setter
// replaces the previous value, so styling again leaves no trace of an earlier look. Tab reaches it (a click does
// not take the focus), a ring shows while it has the focus, and Space or Return then presses it.
class FlatButton : public QAbstractButton {
  Q_OBJECT

 public:
  explicit FlatButton(QWidget* parent = nullptr);

  void setFill(const QColor& fill) {
    fill_ = fill;
    update();
  }
  void setBorder(qreal width, const QColor& colour) {
    borderWidth_ = width;
    borderColour_ = colour;
    update();
  }
  void setCornerRadius(qreal radius) {
    cornerRadius_ = radius;
    update();
  }
  void setTitleColour(const QColor& colour) {
    titleColour_ = colour;
    update();
  }
  // The whole button's opacity, apart from whether it is enabled.
  void setAlphaValue(qreal alpha) {
    alpha_ = alpha;
    update();
  }
  // A key that presses the button while its window is active and the button is enabled.
  void setKeyEquivalent(const QKeySequence& key);

  QColor fill() const { return fill_; }
  qreal borderWidth() const { return borderWidth_; }
  QColor borderColour() const { return borderColour_; }
  qreal cornerRadius() const { return cornerRadius_; }
  QColor titleColour() const { return titleColour_; }
  qreal alphaValue() const { return alpha_; }

  // Just large enough for the title.
  QSize sizeHint() const override;

 protected:
  bool event(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  QColor fill_ = Qt::transparent;
  qreal borderWidth_ = 0;
  QColor borderColour_ = Qt::transparent;
  qreal cornerRadius_ = 0;
  QColor titleColour_ = Qt::white;
  qreal alpha_ = 1;
};

// The names of the status symbols we draw.
inline constexpr char kSymbolReady[] = "checkmark.circle.fill";
inline constexpr char kSymbolMissing[] = "xmark.circle.fill";
inline constexpr char kSymbolAttention[] = "exclamationmark.circle.fill";

// A filled circle in the tint with the symbol's mark cut out of it; a null image for an unknown name.
QImage RenderStatusSymbol(const QString& name, QSize size, qreal devicePixelRatio, const QColor& tint);

// Shows one named status symbol in its tint; nothing while the name is empty.
class SymbolView : public QWidget {
  Q_OBJECT

 public:
  explicit SymbolView(QWidget* parent = nullptr);

  void setSymbol(const QString& name) {
    symbol_ = name;
    update();
  }
  void setTint(const QColor& tint) {
    tint_ = tint;
    update();
  }
  QString symbol() const { return symbol_; }
  QColor tint() const { return tint_; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QString symbol_;
  QColor tint_;
};

// An image scaled proportionally, up or down, to fit the view and centred in it, optionally clipped to rounded
// corners; nothing while the image is null.
class ImageView : public QWidget {
  Q_OBJECT

 public:
  explicit ImageView(QWidget* parent = nullptr);

  void setImage(const QImage& image) {
    image_ = image;
    update();
  }
  void setCornerRadius(qreal radius) {
    cornerRadius_ = radius;
    update();
  }
  QImage image() const { return image_; }
  qreal cornerRadius() const { return cornerRadius_; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QImage image_;
  qreal cornerRadius_ = 0;
};

}  // namespace orvistelle::app
