// The status window in process, its texts in every language, and the application started as a user starts it.
#include <QAccessible>
#include <QApplication>
#include <QPainter>
#include <QProcess>
#include <QTest>
#include <deque>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "app/AppDelegate.h"
#include "app/Images.h"
#include "app/tests/ShellFixture.h"

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
  void Build() { delegate_.buildInfoView(), delegate_.refreshRegistrationStatus(); }
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
  AppDelegate delegate_{&window_, {[] { gServiceCalls.push_back("locale"), FcpI18nApplyHostLocale(); },
                                   [] { gServiceCalls.push_back("maintain"); },
                                   {[] { gServiceCalls.push_back("site"); }, [] { gServiceCalls.push_back("docs"); },
                                    [] { gServiceCalls.push_back("terms"); },
                                    [] { gServiceCalls.push_back("privacy"); }}}};
};

// The rows show the first probe's verdicts on the dark fill, and the logo is the bundle's own, at the size shown.
TEST_F(WindowTest, LaunchChoosesTheLanguageFirstAndFixesTheWindow) {
  languages_.SetPreferred({"de-DE"});
  fs::copy_file(ORVISTELLE_TEST_APP_BUNDLE "/Contents/Resources/logo-dark.pixels",
                fs::path(bundleSeam_.Main().resourcePath) / "logo-dark.pixels");
  delegate_.applicationDidFinishLaunching();
  EXPECT_EQ(gServiceCalls, (Calls{"locale", "maintain"}));
  EXPECT_EQ(std::tuple(window_.windowTitle(), Button()->text(), window_.minimumSize(), window_.maximumSize()),
            std::tuple("Orvistelle FCP Beauty", "Für Final Cut einrichten", QSize(360, 540), QSize(360, 540)));
  EXPECT_EQ(Text("hostValueLabel"), "Erforderlich");
  EXPECT_EQ(View<ImageView>("logo")->image().size(), QSize(96, 26));
  EXPECT_EQ(window_.grab().toImage().pixelColor(1, 1), QColor(22, 24, 30));
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

INSTANTIATE_TEST_SUITE_P(AllProbeResults, DecisionTableTest, ::testing::Range(0, 8), [](const auto& info) {
  return std::string(info.param & 1 ? "Host" : "NoHost") + (info.param & 2 ? "Service" : "NoService") +
         (info.param & 4 ? "Template" : "NoTemplate");
});

// The window's images are the pixels drawn from the SVG sources, premultiplied, at the sizes the views show them; a
// file that is not such an image, whole, reads as nothing.
TEST(Images, PixelFilesHoldTheDrawnImagesAndAnythingElseReadsAsNothing) {
  const QString resources = ORVISTELLE_TEST_APP_BUNDLE "/Contents/Resources/";
  for (const QString name : {"AppIcon-64", "AppIcon-128", "AppIcon-68", "AppIcon-68@2x", "logo-dark", "logo-dark@2x"}) {
    const QImage drawn = QImage(ORVISTELLE_TEST_DRAWN_IMAGES "/" + name + ".png", "PNG");
    EXPECT_FALSE(drawn.isNull()) << name.toStdString();
    EXPECT_EQ(ReadPixels(resources + name + ".pixels"), drawn.convertToFormat(QImage::Format_ARGB32_Premultiplied))
        << name.toStdString();
  }
  const std::string good = ReadWholeFile((resources + "AppIcon-64.pixels").toStdString());
  const std::pair<const char*, std::string> rows[] = {
      {"cut short", good.substr(0, good.size() - 1)}, {"longer", good + "p"}, {"not ours", "X" + good.substr(1)},
      {"wider than any", good.substr(0, 4) + std::string("\x01\x04\0\0\x01\0\0\0", 8) + std::string(4 * 1025, 'p')}};
  platform::testing::TempDir temp;
  for (const auto& [name, bytes] : rows) {
    WriteFile(temp.path() / "image.pixels", bytes);
    EXPECT_TRUE(ReadPixels(QString::fromStdString(temp.path() / "image.pixels")).isNull()) << name;
  }
}

// Each link, pressed as a screen reader presses it, opens only its page.
TEST_F(WindowTest, ScreenReadersHearEachRowAsOneItemNamedImagesAndLinksButNoSeparators) {
  Build();
  QAccessibleInterface* window = QAccessible::queryAccessibleInterface(&window_);
  using R = QAccessible::Role;
  std::vector<std::pair<R, QString>> heard;
  for (int i = 0; i < window->childCount(); ++i) {
    heard.emplace_back(window->child(i)->role(), window->child(i)->text(QAccessible::Name));
    if (heard.back().first != QAccessible::Link) continue;
    gServiceCalls.clear();
    window->child(i)->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    for (const std::string& call : gServiceCalls) heard.back().second += " " + QString::fromStdString(call);
  }
  EXPECT_EQ(heard, (decltype(heard){
      {R::Graphic, "Orvistelle FCP Beauty"}, {R::StaticText, "Orvistelle Final Cut Plugin"},
      {R::StaticText, "Plugin host: Needed"}, {R::StaticText, "Effect service: Ready"},
      {R::StaticText, "Motion template: Needed"}, {R::Button, "Set up for Final Cut"},
      {R::StaticText, "One tap finishes anything still marked above."}, {R::StaticText, "About"},
      {R::Graphic, "Orvistelle"}, {R::StaticText, "Version 0.1.0"}, {R::Link, "Website site"},
      {R::Link, "Guide docs"}, {R::Link, "Terms terms"}, {R::Link, "Privacy Policy privacy"}}));
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
    for (int x = 0; x < canvas.width(); ++x) ink |= qAlpha(canvas.pixel(x, y)) != 0 ? QRect(x, y, 1, 1) : QRect();
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
         : key == "shell.version"               ? FcpTf(k, std::string("10.10.10")) : FcpT(k);
}

// Each view with every text it shows in some state (the three value fields share one frame); and no view overlaps
// another or leaves the window.
TEST_F(WindowTest, EveryTextFitsItsViewAndNoViewAnotherInEveryLanguage) {
  const std::pair<const char*, std::vector<const char*>> shown[] = {
      {"tagline", {"shell.tagline"}}, {"hostCaption", {"shell.labelHost"}}, {"xpcCaption", {"shell.labelXpc"}},
      {"templateCaption", {"shell.labelTemplate"}}, {"aboutCaption", {"settings.about"}},
      {"hostValueLabel", {"shell.stateReady", "shell.stateNeeded", "shell.stateMissing"}},
      {"actionButton", {"shell.actionSetup", "shell.actionRepair", "shell.actionWorking"}},
      {"hintLabel", {"shell.hintAllOk", "shell.hintSetup", "shell.hintXpc", "shell.actionWorking", "shell.actionDone",
                     "shell.registerPending", "shell.registerFailed", "shell.installTemplateFailed"}},
      {"versionLabel", {"shell.version"}}};
  for (const char* tag : {"en", "zh-Hans-CN", "zh-Hant-TW", "ja-JP", "ko-KR", "pt-BR", "es-419", "de-DE"}) {
    UseLanguage(tag);
    Build();
    for (const auto& [name, keys] : shown) {
      for (const std::string key : keys) {
        const QString text = QString::fromStdString(Shown(key));
        if (auto* value = View<QLabel>("hostValueLabel"); value == View(name)) {
          ApplyStatus(shell::RowStatus::NeedsAttention, View<SymbolView>("hostStatusIcon"), value, text);
          // Drawn smaller only as far as needed and never below 9 points.
          const double size = value->font().pointSizeF() * window_.logicalDpiY() / 72.0;
          const QFontMetricsF fullSize(SystemFont(12.5, QFont::Medium));
          EXPECT_TRUE(fullSize.horizontalAdvance(text) <= value->contentsRect().width() ? std::abs(size - 12.5) < 0.01
                                                                                        : size >= 9 && size < 12.5)
              << tag << " " << key << " " << size;
        }
        EXPECT_TRUE(Fits(View(name), text)) << tag << " " << key << " \"" << text.toStdString() << "\" in " << name;
      }
    }
    const auto views = window_.findChildren<QWidget*>(Qt::FindDirectChildrenOnly);
    for (const QWidget* view : views) {
      EXPECT_TRUE(window_.rect().contains(view->geometry())) << tag << " " << view->objectName().toStdString();
      for (const QWidget* other : views) EXPECT_TRUE(view == other || !view->geometry().intersects(other->geometry()))
            << tag << " " << view->objectName().toStdString() << " against " << other->objectName().toStdString();
    }
  }
}

// The application started as a user starts it, in a temporary home and runtime folder.
class Launch : public ::testing::Test {
 public:
  static constexpr int kTimeoutMs = 30000;

  QProcess* Start(const char* platform = "offscreen") {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CONFIG_HOME"})
      environment.remove(name);
    // The support folder follows the user database, not HOME; and no request may reach a backend someone runs.
    const QString home = QString::fromStdString(temp_.path() / "home");
    for (const auto& [name, value] : {std::pair<const char*, QString>{"HOME", home}, {"ORVISTELLE_DEV_HOME", home},
                                      {"ORVISTELLE_DEV_BACKEND", "http://127.0.0.1:9"}, {"QT_QPA_PLATFORM", platform},
                                      {"XDG_RUNTIME_DIR", QString::fromStdString(runtime_)}})
      environment.insert(name, value);
    QProcess& app = apps_.emplace_back();
    app.setProcessEnvironment(environment);
    app.setReadChannel(QProcess::StandardError);
    app.start(ORVISTELLE_TEST_APP_BUNDLE "/Contents/MacOS/Orvistelle FCP Beauty", {});
    return &app;
  }
  // A socket bound at the app's path; it listens, or was left behind as by a crash.
  void Bind(bool listening) {
    sockaddr_un address{AF_UNIX, {}};
    SocketPath().string().copy(address.sun_path, sizeof address.sun_path - 1);
    held_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(held_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    if (listening) ASSERT_EQ(listen(held_, 4), 0);
  }
  void HoldLock() { flock(held_ = open((SocketPath() += ".lock").c_str(), O_RDWR | O_CREAT, 0600), LOCK_EX); }
  // Run as anyone but root, the root folder is another user's.
  void GiveFolderAway() { runtime_ = chown(runtime_.c_str(), 65534, 65534) == 0 ? runtime_ : fs::path("/"); }
  fs::path SocketPath() const { return runtime_ / (std::string(config::kBundleIdentifier) + ".socket"); }
  // Peeks, so that what a copy said stays there for the next question.
  static bool Said(QProcess* app, const char* text) {
    return QTest::qWaitFor([&] { return app->peek(1 << 20).contains(text); }, kTimeoutMs);
  }
  static std::pair<int, QByteArray> Finished(QProcess* app) {
    const bool ended = app->waitForFinished(kTimeoutMs) && app->exitStatus() == QProcess::NormalExit;
    return {ended ? app->exitCode() : -1, app->readAll()};
  }
  ~Launch() override { close(held_); }

  platform::testing::TempDir temp_;
  fs::path runtime_ = temp_.path();
  int held_ = -1;
  std::deque<QProcess> apps_;
};

// Without a display, then twice: the first takes over the socket a crash left behind, the second raises it.
TEST_F(Launch, WithoutADisplayItSaysSoAndASecondLaunchRaisesTheFirst) {
  EXPECT_EQ(Finished(Start("")), std::pair(1, QByteArray("Orvistelle FCP Beauty needs a graphical session: neither "
                                                         "DISPLAY nor WAYLAND_DISPLAY is set.\n")));
  Bind(false);
  QProcess* first = Start();
  ASSERT_TRUE(Said(first, "heartbeat failed"));  // the maintenance starts once the window has shown
  EXPECT_EQ(Finished(Start()), std::pair(0, QByteArray()));
  // The offscreen platform cannot stack windows and says so when asked to raise one.
  EXPECT_TRUE(Said(first, "support raise()"));
  EXPECT_EQ(first->state(), QProcess::Running);
}

// A name, what makes asking a running copy impossible, and what the app says about it.
using Obstacle = std::tuple<const char*, void (*)(Launch&), const char*>;
class LaunchObstacle : public Launch, public ::testing::WithParamInterface<Obstacle> {};

// Where no running copy can be asked, the app starts all the same and says why.
TEST_P(LaunchObstacle, StartsAnywayAndSaysWhy) {
  const auto& [name, arrange, why] = GetParam();
  arrange(*this);
  QProcess* app = Start();
  EXPECT_TRUE(Said(app, why));
  EXPECT_TRUE(Said(app, "heartbeat failed"));
  EXPECT_EQ(app->state(), QProcess::Running);
}

const Obstacle kObstacles[] = {
    {"ForeignListener", [](Launch& test) { test.Bind(true); }, "something else listens at"},
    {"SilentCopy", [](Launch& test) { test.HoldLock(); }, "did not answer"},
    {"FolderOpenToGroup", [](Launch& test) { fs::permissions(test.runtime_, fs::perms(0750)); },
     "is open to other users"},
    {"FolderOfAnotherUser", [](Launch& test) { test.GiveFolderAway(); }, "belongs to another user"}};
INSTANTIATE_TEST_SUITE_P(Table, LaunchObstacle, ::testing::ValuesIn(kObstacles),
                         [](const auto& info) { return std::string(std::get<0>(info.param)); });

}  // namespace
}  // namespace orvistelle::app

// The application object exists only while tests run: listing them must work without any display.
int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  QApplication application(argc, argv);
  return RUN_ALL_TESTS();
}
