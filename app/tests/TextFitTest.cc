// Every text the status window can show fits the view that shows it, in each interface language, with the fonts the
// window really uses. Runs inside window_tests, whose main creates the application.
#include <QFontMetricsF>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <set>
#include <utility>

#include "app/AppDelegate.h"
#include "app/tests/ShellFixture.h"

namespace orvistelle::app {
namespace {

using namespace shell::testing;

void NoCall() {}

const char* const kLanguageTags[] = {"en", "zh-Hans-CN", "zh-Hant-TW", "ja-JP", "ko-KR", "pt-BR", "es-419", "de-DE"};

// Each view with every text it shows in some state; the three value fields share one frame.
const std::pair<const char*, std::vector<const char*>> kShownTexts[] = {
    {"tagline", {"shell.tagline"}},
    {"hostCaption", {"shell.labelHost"}},
    {"xpcCaption", {"shell.labelXpc"}},
    {"templateCaption", {"shell.labelTemplate"}},
    {"hostValueLabel", {"shell.stateReady", "shell.stateNeeded", "shell.stateMissing"}},
    {"actionButton", {"shell.actionSetup", "shell.actionRepair", "shell.actionWorking"}},
    {"hintLabel",
     {"shell.hintAllOk", "shell.hintSetup", "shell.hintXpc", "shell.actionWorking", "shell.actionDone",
      "shell.registerPending", "shell.registerFailed", "shell.installTemplateFailed"}},
    {"aboutCaption", {"settings.about"}},
    {"versionLabel", {"shell.version"}},
};

// Texts whose wording is fixed even though their view cuts them off: status words wider than the 56-point value
// field.
const std::set<std::pair<std::string, std::string>> kKnownClipped = {
    {"pt-BR", "shell.stateNeeded"}, {"es-419", "shell.stateNeeded"}, {"de-DE", "shell.stateNeeded"}};

// The text as the window shows it, with the widest arguments it is given.
QString Shown(const std::string& key) {
  const char* k = key.c_str();
  return QString::fromStdString(key == "shell.registerFailed"          ? FcpTf(k, std::int32_t{-10814})
                                : key == "shell.installTemplateFailed" ? FcpTf(k, FcpT("shell.installTemplateMissing"))
                                : key == "shell.version"               ? FcpTf(k, std::string("10.10.10"))
                                                                       : FcpT(k));
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
    for (const auto& [name, keys] : kShownTexts) {
      const QWidget* view = window_.findChild<QWidget*>(name);
      ASSERT_NE(view, nullptr) << name;
      for (const char* key : keys) {
        const QString text = Shown(key);
        const bool known = kKnownClipped.count({tag, key}) > 0;
        EXPECT_EQ(Fits(view, text), !known) << tag << " " << key << " \"" << text.toStdString() << "\" in " << name
                                            << (known ? " fits now: no longer a known exception" : "");
      }
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
