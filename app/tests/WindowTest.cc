// The status window in process, its texts in every language, and the application started as a user starts it.
#include <QAccessible>
#include <QApplication>
#include <QPainter>
#include <QProcess>
#include <QTest>
#include <set>

#include "app/AppDelegate.h"
#include "app/tests/ShellFixture.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::app {
namespace {

using namespace shell::testing;
using Calls = std::vector<std::string>;

Calls gServiceCalls;

const QColor kOk = QColor::fromRgbF(0.3, 0.78, 0.45), kWarn = QColor::fromRgbF(0.92, 0.72, 0.38),
             kError = QColor::fromRgbF(0.95, 0.42, 0.40), kQuiet = QColor::fromRgbF(0.55, 0.55, 0.55);
const char kDone[] = "Setup complete. Restart Final Cut Pro to see the effect.";

class WindowTest : public ShellFixture {
 protected:
  void SetUp() override { gServiceCalls.clear(); }
  void Build() {
    delegate_.buildInfoView();
    delegate_.refreshRegistrationStatus();
  }
  template <class T = QWidget>
  T* View(const QString& name) {
    T* view = window_.findChild<T*>(name);
    EXPECT_NE(view, nullptr) << name.toStdString();
    return view;
  }
  QString Text(const QString& name) { return View<QLabel>(name)->text(); }
  QColor Colour(const QString& name) { return View<QLabel>(name)->palette().color(QPalette::WindowText); }
  FlatButton* Button() { return View<FlatButton>("actionButton"); }

  QWidget window_;
  AppDelegate delegate_{&window_,
                        {[] {
                           gServiceCalls.push_back("locale");
                           FcpI18nApplyHostLocale();
                         },
                         [] { gServiceCalls.push_back("maintain"); }, [] { gServiceCalls.push_back("site"); },
                         [] { gServiceCalls.push_back("docs"); }, [] { gServiceCalls.push_back("terms"); },
                         [] { gServiceCalls.push_back("privacy"); }}};
};

TEST_F(WindowTest, LaunchChoosesTheLanguageFirstAndFixesTheWindow) {
  languages_.SetPreferred({"de-DE"});
  delegate_.applicationDidFinishLaunching();
  EXPECT_EQ(gServiceCalls, (Calls{"locale", "maintain"}));
  EXPECT_EQ(window_.windowTitle(), "Orvistelle FCP Beauty");
  EXPECT_EQ(Button()->text(), "Für Final Cut einrichten");
  EXPECT_EQ(std::pair(window_.minimumSize(), window_.maximumSize()), std::pair(QSize(360, 540), QSize(360, 540)));
  EXPECT_FALSE(window_.windowFlags() & Qt::WindowMaximizeButtonHint);
  EXPECT_NEAR(View("tagline")->font().pointSizeF() * window_.logicalDpiY() / 72.0, 16.5, 0.01);
}

class DecisionTableTest : public WindowTest, public ::testing::WithParamInterface<int> {};

// Return presses the button while nothing has the focus: registration runs at once, the copy once the working state
// has shown. A missing service, which set-up cannot mend, disables the button.
TEST_P(DecisionTableTest, PaintsRowsButtonAndHintFromTheProbesAndReturnSetsUp) {
  const bool host = GetParam() & 1, service = GetParam() & 2, templ = GetParam() & 4, allReady = GetParam() == 7;
  SetHostRegistered(host);
  SetService(service);
  SetInstalledTemplate(templ);
  Build();
  auto expectRow = [this](const QString& row, bool ready, const QColor& colour, const char* symbol, const char* text) {
    auto* icon = View<SymbolView>(row + "StatusIcon");
    EXPECT_EQ(std::pair(icon->symbol(), icon->tint()), std::pair(QString(ready ? kSymbolReady : symbol), colour));
    EXPECT_EQ(std::pair(Text(row + "ValueLabel"), Colour(row + "ValueLabel")), std::pair(QString(text), colour));
  };
  expectRow("host", host, host ? kOk : kWarn, kSymbolAttention, host ? "Ready" : "Needed");
  expectRow("xpc", service, service ? kOk : kError, kSymbolMissing, service ? "Ready" : "Missing");
  expectRow("template", templ, templ ? kOk : kWarn, kSymbolAttention, templ ? "Ready" : "Needed");
  EXPECT_EQ(Button()->text(), allReady ? "Reinstall setup" : "Set up for Final Cut");
  EXPECT_EQ(std::pair(Button()->isEnabled(), Button()->alphaValue()), std::pair(service, service ? 1.0 : 0.45));
  EXPECT_EQ(Text("hintLabel"), allReady  ? "Quit and reopen Final Cut Pro if the effect is not listed yet."
                               : service ? "One tap finishes anything still marked above."
                                         : "Effect service is missing. Re-download the app package.");
  EXPECT_EQ(Colour("hintLabel"), kQuiet);
  window_.show();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window_));
  QTest::keyClick(&window_, Qt::Key_Return);
  EXPECT_EQ(database_.calls, service && !(host && !templ) ? Calls{"register"} : Calls{});
  if (!service) {
    delegate_.setupOrRepair();  // as a stale enabled button would: a missing service only explains itself
    EXPECT_EQ(Colour("hintLabel"), kError);
    return;
  }
  EXPECT_EQ(std::tuple(Button()->isEnabled(), Button()->text(), Text("hintLabel"), fs::exists(InstalledTemplate())),
            std::tuple(false, QString("Setting up…"), QString("Setting up…"), templ));
  ASSERT_TRUE(QTest::qWaitFor([this] { return Button()->isEnabled(); }));
  EXPECT_EQ(std::pair(Text("hintLabel"), Text("templateValueLabel")), std::pair(QString(kDone), QString("Ready")));
}

INSTANTIATE_TEST_SUITE_P(AllProbeResults, DecisionTableTest, ::testing::Range(0, 8));

// Each link, pressed as a screen reader presses it, opens only its page.
TEST_F(WindowTest, ScreenReadersHearEachRowAsOneItemNamedImagesAndLinksButNoSeparators) {
  Build();
  QAccessibleInterface* window = QAccessible::queryAccessibleInterface(&window_);
  std::vector<std::pair<QAccessible::Role, QString>> heard;
  for (int i = 0; i < window->childCount(); ++i) {
    heard.emplace_back(window->child(i)->role(), window->child(i)->text(QAccessible::Name));
    if (heard.back().first != QAccessible::Link) continue;
    gServiceCalls.clear();
    window->child(i)->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(gServiceCalls.size(), 1);
    heard.back().second += " " + QString::fromStdString(gServiceCalls.front());
  }
  using R = QAccessible::Role;
  const std::vector<std::pair<QAccessible::Role, QString>> expected = {
      {R::Graphic, "Orvistelle FCP Beauty"}, {R::StaticText, "Orvistelle Final Cut Plugin"},
      {R::StaticText, "Plugin host: Needed"}, {R::StaticText, "Effect service: Ready"},
      {R::StaticText, "Motion template: Needed"}, {R::Button, "Set up for Final Cut"},
      {R::StaticText, "One tap finishes anything still marked above."}, {R::StaticText, "About"},
      {R::Graphic, "Orvistelle"}, {R::StaticText, "Version 0.1.0"}, {R::Link, "Website site"},
      {R::Link, "Guide docs"}, {R::Link, "Terms terms"}, {R::Link, "Privacy Policy privacy"}};
  EXPECT_EQ(heard, expected);
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

// The text as the window shows it, with the widest arguments it is given.
std::string Shown(const std::string& key) {
  const char* k = key.c_str();
  return key == "shell.registerFailed"          ? FcpTf(k, std::int32_t{-10814})
         : key == "shell.installTemplateFailed" ? FcpTf(k, FcpT("shell.installTemplateMissing"))
         : key == "shell.version"               ? FcpTf(k, std::string("10.10.10"))
                                                : FcpT(k);
}

// Each view with every text it shows in some state (the three value fields share one frame); and no view overlaps
// another or leaves the window.
TEST_F(WindowTest, EveryTextFitsItsViewAndNoViewAnotherInEveryLanguage) {
  const std::pair<const char*, std::vector<const char*>> shown[] = {
      {"tagline", {"shell.tagline"}}, {"hostCaption", {"shell.labelHost"}}, {"xpcCaption", {"shell.labelXpc"}},
      {"templateCaption", {"shell.labelTemplate"}}, {"aboutCaption", {"settings.about"}},
      {"hostValueLabel", {"shell.stateReady", "shell.stateNeeded", "shell.stateMissing"}},
      {"actionButton", {"shell.actionSetup", "shell.actionRepair", "shell.actionWorking"}},
      {"hintLabel",
       {"shell.hintAllOk", "shell.hintSetup", "shell.hintXpc", "shell.actionWorking", "shell.actionDone",
        "shell.registerPending", "shell.registerFailed", "shell.installTemplateFailed"}},
      {"versionLabel", {"shell.version"}},
  };
  // Status words wider than the 56-point value field, whose wording is fixed nonetheless.
  const std::set<std::pair<std::string, std::string>> knownClipped = {
      {"pt-BR", "shell.stateNeeded"}, {"es-419", "shell.stateNeeded"}, {"de-DE", "shell.stateNeeded"}};
  for (const char* tag : {"en", "zh-Hans-CN", "zh-Hant-TW", "ja-JP", "ko-KR", "pt-BR", "es-419", "de-DE"}) {
    UseLanguage(tag);
    Build();
    for (const auto& [name, keys] : shown) {
      for (const std::string key : keys) {
        const std::string text = Shown(key);
        const bool known = knownClipped.count({tag, key}) > 0;
        EXPECT_EQ(Fits(View(name), QString::fromStdString(text)), !known)
            << tag << " " << key << " \"" << text << "\" in " << name << (known ? " fits: no longer an exception" : "");
      }
    }
    const auto views = window_.findChildren<QWidget*>(Qt::FindDirectChildrenOnly);
    for (const QWidget* view : views) {
      EXPECT_TRUE(window_.rect().contains(view->geometry())) << tag << " " << view->objectName().toStdString();
      for (const QWidget* other : views) {
        EXPECT_TRUE(view == other || !view->geometry().intersects(other->geometry()))
            << tag << " " << view->objectName().toStdString() << " overlaps " << other->objectName().toStdString();
      }
    }
  }
}

// The application started as a user starts it, in a temporary home: without a display, then twice.
TEST(Launch, WithoutADisplayItSaysSoAndASecondLaunchRaisesTheFirst) {
  constexpr int kTimeoutMs = 30000;
  platform::testing::TempDir temp;
  std::vector<std::unique_ptr<QProcess>> apps;
  auto launch = [&](const char* platform) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name :
         {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CONFIG_HOME"})
      environment.remove(name);
    if (platform != nullptr) environment.insert("QT_QPA_PLATFORM", platform);
    // The support folder follows the user database, not HOME; and no request may reach a backend someone runs.
    for (const char* name : {"HOME", "ORVISTELLE_DEV_HOME"})
      environment.insert(name, QString::fromStdString(temp.path() / "home"));
    environment.insert("ORVISTELLE_DEV_BACKEND", "http://127.0.0.1:9");
    environment.insert("XDG_RUNTIME_DIR", QString::fromStdString(temp.path()));
    QProcess* app = apps.emplace_back(std::make_unique<QProcess>()).get();
    app->setProcessEnvironment(environment);
    app->start(ORVISTELLE_TEST_APP_BUNDLE "/Contents/MacOS/Orvistelle FCP Beauty", {});
    EXPECT_TRUE(app->waitForStarted(kTimeoutMs));
    return app;
  };
  QProcess* headless = launch(nullptr);
  ASSERT_TRUE(headless->waitForFinished(kTimeoutMs));
  EXPECT_EQ(std::pair(headless->exitStatus(), headless->exitCode()), std::pair(QProcess::NormalExit, 1));
  EXPECT_EQ(headless->readAllStandardError().toStdString(),
            "Orvistelle FCP Beauty needs a graphical session: neither DISPLAY nor WAYLAND_DISPLAY is set.\n");

  const fs::path socketPath = temp.path() / (std::string(config::kBundleIdentifier) + ".socket");
  QProcess* first = launch("offscreen");
  ASSERT_TRUE(QTest::qWaitFor([&] { return fs::exists(socketPath); }, kTimeoutMs));
  QProcess* second = launch("offscreen");
  ASSERT_TRUE(second->waitForFinished(kTimeoutMs));
  EXPECT_EQ(std::pair(second->exitCode(), first->state()), std::pair(0, QProcess::Running));
  // The offscreen platform cannot stack windows and says so when asked to raise one.
  QByteArray said;
  EXPECT_TRUE(QTest::qWaitFor([&] { return said.append(first->readAllStandardError()).contains("support raise()"); }));
}

}  // namespace
}  // namespace orvistelle::app

// The application object exists only while tests run: listing them must work without any display.
int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  QApplication application(argc, argv);
  return RUN_ALL_TESTS();
}
