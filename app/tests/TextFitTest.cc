// Every text the status window can show fits the view that shows it, in each interface language, with the fonts the
// window really uses. Runs inside window_tests, whose main creates the application.
#include <QFontMetricsF>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <map>
#include <utility>

#include "app/AppDelegate.h"
#include "app/tests/ShellFixture.h"

namespace orvistelle::app {
namespace {

using namespace shell::testing;

void NoCall() {}

const char* const kLanguageTags[] = {"en", "zh-Hans-CN", "zh-Hant-TW", "ja-JP", "ko-KR", "pt-BR", "es-419", "de-DE"};

struct ShownText {
  const char* view;
  const char* key;
};

// Each view with every text it shows in some state; the three value fields share one frame.
const ShownText kShownTexts[] = {
    {"tagline", "shell.tagline"},
    {"hostCaption", "shell.labelHost"},
    {"xpcCaption", "shell.labelXpc"},
    {"templateCaption", "shell.labelTemplate"},
    {"hostValueLabel", "shell.stateReady"},
    {"hostValueLabel", "shell.stateNeeded"},
    {"hostValueLabel", "shell.stateMissing"},
    {"actionButton", "shell.actionSetup"},
    {"actionButton", "shell.actionRepair"},
    {"actionButton", "shell.actionWorking"},
    {"hintLabel", "shell.hintAllOk"},
    {"hintLabel", "shell.hintSetup"},
    {"hintLabel", "shell.hintXpc"},
    {"hintLabel", "shell.actionWorking"},
    {"hintLabel", "shell.actionDone"},
    {"hintLabel", "shell.registerPending"},
    {"hintLabel", "shell.registerFailed"},
    {"hintLabel", "shell.installTemplateFailed"},
    {"aboutCaption", "settings.about"},
    {"versionLabel", "shell.version"},
};

// Texts whose wording is fixed even though their view cuts them off, each with the reason it stays.
const std::map<std::pair<std::string, std::string>, const char*> kKnownClipped = {
    {{"pt-BR", "shell.stateNeeded"}, "fixed status word, wider than the 56-point value field"},
    {{"es-419", "shell.stateNeeded"}, "fixed status word, wider than the 56-point value field"},
    {{"de-DE", "shell.stateNeeded"}, "fixed status word, wider than the 56-point value field"},
};

// The text as the window shows it, with the widest arguments it is given.
QString Shown(const std::string& key) {
  std::string text;
  if (key == "shell.registerFailed") {
    text = FcpTf(key.c_str(), std::int32_t{-10814});
  } else if (key == "shell.installTemplateFailed") {
    text = FcpTf(key.c_str(), FcpT("shell.installTemplateMissing"));
  } else if (key == "shell.version") {
    text = FcpTf(key.c_str(), std::string("10.10.10"));
  } else {
    text = FcpT(key.c_str());
  }
  return QString::fromStdString(text);
}

// The box the pixels of a wrapped text cover when it may grow downward without limit. Line boxes are not used: the
// fallback fonts of some scripts have tall line boxes whose empty lower part may be cut off without losing a pixel.
QRect WrappedInk(const QLabel* label, const QString& text) {
  const QRect room = label->contentsRect();
  QImage canvas(room.right() + 1, room.bottom() + 1 + 4 * room.height(), QImage::Format_ARGB32_Premultiplied);
  canvas.fill(Qt::transparent);
  QPainter painter(&canvas);
  painter.setFont(label->font());
  painter.drawText(room.adjusted(0, 0, 0, 4 * room.height()), static_cast<int>(label->alignment()) | Qt::TextWordWrap,
                   text);
  painter.end();
  QRect ink;
  for (int y = 0; y < canvas.height(); ++y)
    for (int x = 0; x < canvas.width(); ++x)
      if (qAlpha(canvas.pixel(x, y)) != 0) ink |= QRect(x, y, 1, 1);
  return ink;
}

// A wrapping label must hold every pixel of its text. Anything else shows one line from its left text edge (a
// button's title is centred), which the view cuts off at its own right edge, not at its text margin.
bool Fits(const QWidget* view, const QString& text) {
  const auto* label = qobject_cast<const QLabel*>(view);
  if (label != nullptr && label->wordWrap()) return label->rect().contains(WrappedInk(label, text));
  const int start = label != nullptr ? label->contentsRect().left() : 0;
  return start + QFontMetricsF(view->font()).horizontalAdvance(text) <= view->width();
}

class TextFitTest : public ShellFixture {
 protected:
  QWidget window_;
  AppDelegate delegate_{&window_, {NoCall, NoCall, NoCall, NoCall, NoCall, NoCall}};
};

TEST_F(TextFitTest, EveryWindowTextFitsItsViewInEveryLanguage) {
  for (const char* tag : kLanguageTags) {
    UseLanguage(tag);
    delegate_.buildInfoView();
    for (const ShownText& shown : kShownTexts) {
      const QWidget* view = window_.findChild<QWidget*>(shown.view);
      ASSERT_NE(view, nullptr) << shown.view;
      const QString text = Shown(shown.key);
      const bool known = kKnownClipped.count({tag, shown.key}) > 0;
      EXPECT_EQ(Fits(view, text), !known) << tag << " " << shown.key << " \"" << text.toStdString() << "\" in "
                                          << shown.view << (known ? " fits now: no longer a known exception" : "");
    }
    for (const char* link : {"link.website", "link.guide", "link.terms", "link.privacy"}) {
      const QWidget* view = window_.findChild<QWidget*>(link);
      ASSERT_NE(view, nullptr) << link;
      EXPECT_TRUE(window_.rect().contains(view->geometry())) << tag << " " << link << " leaves the window";
    }
  }
}

}  // namespace
}  // namespace orvistelle::app
