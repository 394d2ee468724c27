#include <QAccessible>
#include <QApplication>
#include <QTest>
#include <functional>

#include "app/AppDelegate.h"
#include "app/tests/ShellFixture.h"
#include "orvistelle/BuildConfig.h"
#include "platform/InfoPlist.h"
#include "platform/linux/AppDatabase_linux.h"
#include "platform/linux/BundleLayout.h"

namespace orvistelle::app {
namespace {

using namespace shell::testing;

std::vector<std::string> gServiceCalls;

ServiceCalls RecordingServices() {
  return {[] {
            gServiceCalls.push_back("locale");
            FcpI18nApplyHostLocale();
          },
          [] { gServiceCalls.push_back("maintain"); }, [] { gServiceCalls.push_back("site"); },
          [] { gServiceCalls.push_back("docs"); },     [] { gServiceCalls.push_back("terms"); },
          [] { gServiceCalls.push_back("privacy"); }};
}

QColor Grey(double white) { return QColor::fromRgbF(white, white, white); }
const QColor kOk = QColor::fromRgbF(0.3, 0.78, 0.45);
const QColor kWarn = QColor::fromRgbF(0.92, 0.72, 0.38);
const QColor kError = QColor::fromRgbF(0.95, 0.42, 0.40);

QRect QtRect(const Frame& f) {
  return QRect(qRound(f.x), qRound(540 - f.y - f.height), qRound(f.width), qRound(f.height));
}

bool WaitFor(const std::function<bool()>& condition) {
  for (int round = 0; round < 100 && !condition(); ++round) QTest::qWait(20);
  return condition();
}

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
  QColor TextColour(const QString& name) { return View<QLabel>(name)->palette().color(QPalette::WindowText); }
  FlatButton* Button() { return View<FlatButton>("actionButton"); }
  double PixelSize(const QFont& font) { return font.pointSizeF() * window_.logicalDpiY() / 72.0; }

  QWidget window_;
  AppDelegate delegate_{&window_, RecordingServices()};
};

struct LayoutRow {
  const char* name;
  Frame frame;
  double fontSize = 0;  // 0: not a text
  QFont::Weight weight = QFont::Normal;
  QColor colour = {};
};

TEST_F(WindowTest, EveryViewHasItsFrameFontAndColour) {
  const LayoutRow rows[] = {
      {"appIcon", {146, 440, 68, 68}},
      {"tagline", {28, 408, 304, 22}, 16.5, QFont::DemiBold, Grey(0.92)},
      {"hostCaption", {34, 368, 140, 18}, 12.5, QFont::Normal, Grey(0.55)},
      {"hostStatusIcon", {252, 370, 14, 14}},
      {"hostValueLabel", {270, 368, 56, 18}, 12.5, QFont::Medium, Grey(0.7)},
      {"xpcCaption", {34, 340, 140, 18}, 12.5, QFont::Normal, Grey(0.55)},
      {"xpcStatusIcon", {252, 342, 14, 14}},
      {"xpcValueLabel", {270, 340, 56, 18}, 12.5, QFont::Medium, Grey(0.7)},
      {"templateCaption", {34, 312, 140, 18}, 12.5, QFont::Normal, Grey(0.55)},
      {"templateStatusIcon", {252, 314, 14, 14}},
      {"templateValueLabel", {270, 312, 56, 18}, 12.5, QFont::Medium, Grey(0.7)},
      {"actionButton", {70, 188, 220, 36}, 13, QFont::Medium, Grey(1)},
      {"hintLabel", {28, 138, 304, 40}, 11.5, QFont::Normal, Grey(0.55)},
      {"separator", {28, 122, 304, 1}},
      {"aboutCaption", {28, 98, 304, 16}, 11, QFont::Medium, Grey(0.45)},
      {"logo", {132, 66, 96, 26}},
      {"versionLabel", {28, 44, 304, 16}, 12, QFont::Normal, Grey(0.55)},
  };
  delegate_.buildInfoView();  // before the first probe: no symbols, no values
  for (const LayoutRow& row : rows) {
    SCOPED_TRACE(row.name);
    QWidget* view = View(row.name);
    EXPECT_EQ(view->geometry(), QtRect(row.frame));
    if (row.fontSize == 0) continue;
    EXPECT_NEAR(PixelSize(view->font()), row.fontSize, 0.01);
    EXPECT_EQ(view->font().weight(), row.weight);
    auto* button = qobject_cast<FlatButton*>(view);
    EXPECT_EQ(button ? button->titleColour() : TextColour(row.name), row.colour);
    if (auto* label = qobject_cast<QLabel*>(view)) {
      EXPECT_TRUE(label->alignment() & Qt::AlignTop);
    }
  }
  EXPECT_EQ(View("separator")->palette().color(QPalette::Window), QColor(38, 42, 53));
  EXPECT_EQ(window_.palette().color(QPalette::Window), QColor(22, 24, 30));
  EXPECT_EQ(Text("tagline"), "Orvistelle Final Cut Plugin");
  EXPECT_EQ(Text("versionLabel"), "Version 0.1.0");
  EXPECT_EQ(View<SymbolView>("hostStatusIcon")->symbol(), "");
  EXPECT_EQ(View<SymbolView>("hostStatusIcon")->tint(), Grey(0.5));
  EXPECT_EQ(Button()->cornerRadius(), 8);
  EXPECT_EQ(Button()->fill(), QColor::fromRgbF(0.22, 0.47, 0.96));
  EXPECT_EQ(Button()->borderWidth(), 0);
  EXPECT_TRUE(View<ImageView>("appIcon")->image().isNull());  // no icon resource in this bundle
}

TEST_F(WindowTest, LaunchChoosesTheLanguageFirstAndFixesTheWindow) {
  languages_.SetPreferred({"de-DE"});
  delegate_.applicationDidFinishLaunching();
  EXPECT_EQ(gServiceCalls, (std::vector<std::string>{"locale", "maintain"}));
  EXPECT_EQ(window_.windowTitle(), "Orvistelle FCP Beauty");
  EXPECT_EQ(Button()->text(), "Für Final Cut einrichten");
  EXPECT_EQ(window_.minimumSize(), QSize(360, 540));
  EXPECT_EQ(window_.maximumSize(), QSize(360, 540));
  EXPECT_FALSE(window_.windowFlags() & Qt::WindowMaximizeButtonHint);
  const auto children = window_.findChildren<QWidget*>(Qt::FindDirectChildrenOnly).size();
  delegate_.buildInfoView();
  EXPECT_EQ(window_.findChildren<QWidget*>(Qt::FindDirectChildrenOnly).size(), children);
}

class DecisionTableTest : public WindowTest, public ::testing::WithParamInterface<int> {};

TEST_P(DecisionTableTest, PaintsRowsButtonAndHintFromTheProbes) {
  const bool host = GetParam() & 1, service = GetParam() & 2, templ = GetParam() & 4;
  SetHostRegistered(host);
  SetService(service);
  SetInstalledTemplate(templ);
  Build();
  auto expectRow = [this](const QString& row, bool ready, const QColor& colour, const char* symbol, const char* text) {
    SCOPED_TRACE(row.toStdString());
    auto* icon = View<SymbolView>(row + "StatusIcon");
    EXPECT_EQ(icon->symbol(), ready ? kSymbolReady : symbol);
    EXPECT_EQ(icon->tint(), ready ? kOk : colour);
    EXPECT_EQ(Text(row + "ValueLabel"), ready ? "Ready" : text);
    EXPECT_EQ(TextColour(row + "ValueLabel"), ready ? kOk : colour);
  };
  expectRow("host", host, kWarn, kSymbolAttention, "Needed");
  expectRow("xpc", service, kError, kSymbolMissing, "Missing");
  expectRow("template", templ, kWarn, kSymbolAttention, "Needed");
  const bool allReady = host && service && templ;
  EXPECT_EQ(Button()->text(), allReady ? "Reinstall setup" : "Set up for Final Cut");
  EXPECT_EQ(Button()->isEnabled(), service);
  EXPECT_EQ(Button()->alphaValue(), service ? 1.0 : 0.45);
  EXPECT_EQ(Text("hintLabel"), allReady  ? "Quit and reopen Final Cut Pro if the effect is not listed yet."
                               : service ? "One tap finishes anything still marked above."
                                         : "Effect service is missing. Re-download the app package.");
  EXPECT_EQ(TextColour("hintLabel"), Grey(0.55));
}

INSTANTIATE_TEST_SUITE_P(AllProbeResults, DecisionTableTest, ::testing::Range(0, 8));

struct OutcomeCase {
  int registerStatus;
  int toolStatus;
  bool listWhenRegistered;
  bool bundledTemplate;
  std::vector<std::string> calls;
  const char* hint;
  QColor colour;
};

class SetupOutcomeTest : public WindowTest, public ::testing::WithParamInterface<OutcomeCase> {};

TEST_P(SetupOutcomeTest, ShowsWorkingThenTheOutcome) {
  const OutcomeCase& c = GetParam();
  database_.registerStatus = c.registerStatus;
  database_.toolStatus = c.toolStatus;
  database_.listWhenRegistered = c.listWhenRegistered;
  if (!c.bundledTemplate) fs::remove_all(BundledTemplate());
  Build();
  delegate_.setupOrRepair();
  EXPECT_EQ(database_.calls, c.calls);  // registration ran before the pause
  EXPECT_FALSE(Button()->isEnabled());
  EXPECT_EQ(Button()->text(), "Setting up…");
  EXPECT_EQ(Text("hintLabel"), "Setting up…");
  EXPECT_FALSE(fs::exists(InstalledTemplate()));

  ASSERT_TRUE(WaitFor([this] { return Button()->isEnabled(); }));
  EXPECT_EQ(Text("hintLabel"), c.hint);
  EXPECT_EQ(TextColour("hintLabel"), c.colour);
  const bool copied = c.bundledTemplate && (c.registerStatus == 0 || c.toolStatus == 0);
  EXPECT_EQ(fs::exists(InstalledTemplate()), copied);
  EXPECT_EQ(Text("templateValueLabel"), copied ? "Ready" : "Needed");
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, SetupOutcomeTest,
    ::testing::Values(
        OutcomeCase{-2, -2, true, true, {"register", "tool"},
                    "Registration failed (error -2). Move the app to Applications and try again.", kError},
        OutcomeCase{0, 0, true, false, {"register"},
                    "Could not install template: Template files are missing from this app. Re-download the package.",
                    kError},
        OutcomeCase{0, 0, true, true, {"register"}, "Setup complete. Restart Final Cut Pro to see the effect.",
                    Grey(0.55)},
        OutcomeCase{0, 0, false, true, {"register"},
                    "Registration sent. Try again in a moment if status stays unchanged.", kWarn},
        OutcomeCase{-13, 0, true, true, {"register", "tool"},
                    "Setup complete. Restart Final Cut Pro to see the effect.", Grey(0.55)}));

TEST_F(WindowTest, OnAFreshAccountOnePressRegistersInstallsAndTurnsEveryRowGreen) {
  WriteFile(bundle_ / "Contents/Info.plist",
            "<plist><dict><key>CFBundleIdentifier</key><string>net.tarnwix.orvistelle.fcp</string></dict></plist>");
  fs::permissions(bundleSeam_.Main().executablePath, fs::perms::owner_all);
  auto desktop = platform::MakeXdgAppDatabase({[](const char*) -> const char* { return nullptr; }, "/nonexistent"});
  platform::ScopedSeam<platform::AppDatabase> realDatabase(desktop.get());
  Build();
  Button()->click();
  ASSERT_TRUE(WaitFor([this] { return Button()->isEnabled(); }));
  for (const char* row : {"hostValueLabel", "xpcValueLabel", "templateValueLabel"}) EXPECT_EQ(Text(row), "Ready");
  EXPECT_EQ(Text("hintLabel"), "Setup complete. Restart Final Cut Pro to see the effect.");
  EXPECT_TRUE(fs::exists(fs::path(home_.Directory()) / ".local/share/applications/net.tarnwix.orvistelle.fcp.desktop"));
}

TEST_F(WindowTest, MissingServiceOnlyExplainsItself) {
  SetService(false);
  Build();
  delegate_.setupOrRepair();
  EXPECT_EQ(Text("hintLabel"), "Effect service is missing. Re-download the app package.");
  EXPECT_EQ(TextColour("hintLabel"), kError);
  EXPECT_FALSE(Button()->isEnabled());
  QTest::qWait(400);
  EXPECT_TRUE(database_.calls.empty());
  EXPECT_FALSE(fs::exists(InstalledTemplate()));
}

struct KeyCase {
  const char* what;
  bool service;
  std::vector<std::pair<Qt::Key, Qt::KeyboardModifiers>> keys;
  const char* focused;  // "" for the window itself
  bool setsUp;
  std::vector<std::string> pages;
  bool closes = false;
};

void PrintTo(const KeyCase& c, std::ostream* os) { *os << c.what; }

class KeyboardTest : public WindowTest, public ::testing::WithParamInterface<KeyCase> {};

TEST_P(KeyboardTest, TabReachesButtonAndLinksWithARingAndKeysPressOrClose) {
  const KeyCase& c = GetParam();
  SetService(c.service);
  Build();
  window_.show();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window_));
  for (const auto& [key, modifiers] : c.keys) QTest::keyClick(QApplication::focusWidget(), key, modifiers);
  EXPECT_EQ(database_.calls, c.setsUp ? std::vector<std::string>{"register"} : std::vector<std::string>{});
  EXPECT_EQ(gServiceCalls, c.pages);
  EXPECT_EQ(window_.isVisible(), !c.closes);
  if (c.closes) return;
  ASSERT_TRUE(WaitFor([this, &c] { return Button()->isEnabled() || !c.service; }));
  EXPECT_EQ(QApplication::focusWidget()->objectName(), c.focused);
  if (auto* focused = qobject_cast<FlatButton*>(QApplication::focusWidget())) {
    auto ringLightness = [focused] { return focused->grab().toImage().pixelColor(1, 10).lightnessF(); };
    EXPECT_GT(ringLightness(), 0.85);
    window_.setFocus();
    EXPECT_LT(ringLightness(), 0.85);
  }
}

constexpr Qt::KeyboardModifiers kNone = Qt::NoModifier;
const std::pair<Qt::Key, Qt::KeyboardModifiers> kTab{Qt::Key_Tab, kNone}, kReturn{Qt::Key_Return, kNone};

INSTANTIATE_TEST_SUITE_P(
    Keys, KeyboardTest,
    ::testing::Values(
        KeyCase{"ReturnSetsUpWhileNothingHasFocus", true, {kReturn}, "", true, {}},
        KeyCase{"ReturnDoesNothingWhileTheButtonIsDisabled", false, {kReturn}, "", false, {}},
        KeyCase{"SpaceOnTheButtonSetsUpAndKeepsItsFocus", true, {kTab, {Qt::Key_Space, kNone}}, "actionButton", true,
                {}},
        KeyCase{"ReturnOnTheButtonSetsUpOnce", true, {kTab, kReturn}, "actionButton", true, {}},
        KeyCase{"ReturnOnTheLastLinkOpensOnlyItsPage", true, {kTab, kTab, kTab, kTab, kTab, kReturn}, "link.privacy",
                false, {"privacy"}},
        KeyCase{"EscapeCloses", true, {kTab, kTab, {Qt::Key_Escape, kNone}}, "", false, {}, true},
        KeyCase{"ControlQCloses", true, {{Qt::Key_Q, Qt::ControlModifier}}, "", false, {}, true}),
    [](const auto& info) { return std::string(info.param.what); });

TEST_F(WindowTest, ScreenReadersHearEachRowAsOneItemNamedImagesAndLinksButNoSeparators) {
  Build();
  QAccessibleInterface* window = QAccessible::queryAccessibleInterface(&window_);
  std::vector<std::pair<QAccessible::Role, QString>> heard;
  for (int i = 0; i < window->childCount(); ++i) {
    heard.emplace_back(window->child(i)->role(), window->child(i)->text(QAccessible::Name));
    EXPECT_EQ(window->indexOfChild(window->child(i)), i);
  }
  using R = QAccessible::Role;
  const std::vector<std::pair<QAccessible::Role, QString>> expected = {
      {R::Graphic, "Orvistelle FCP Beauty"}, {R::StaticText, "Orvistelle Final Cut Plugin"},
      {R::StaticText, "Plugin host: Needed"}, {R::StaticText, "Effect service: Ready"},
      {R::StaticText, "Motion template: Needed"}, {R::Button, "Set up for Final Cut"},
      {R::StaticText, "One tap finishes anything still marked above."}, {R::StaticText, "About"},
      {R::Graphic, "Orvistelle"}, {R::StaticText, "Version 0.1.0"},
      {R::Link, "Website"}, {R::Link, "Guide"}, {R::Link, "Terms"}, {R::Link, "Privacy Policy"}};
  EXPECT_EQ(heard, expected);
  window->child(window->childCount() - 1)->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
  EXPECT_EQ(gServiceCalls, std::vector<std::string>{"privacy"});
}

TEST_F(WindowTest, AboutLinksAreCentredAndEachOpensOnlyItsPage) {
  Build();
  const QString hint = Text("hintLabel");
  const char* names[] = {"link.website", "linkSeparator1", "link.guide", "linkSeparator2",
                         "link.terms",   "linkSeparator3", "link.privacy"};
  std::vector<QRect> frames;
  for (const char* name : names) frames.push_back(View(name)->geometry());
  for (size_t i = 0; i < frames.size(); ++i) {
    const bool separator = i % 2 == 1;
    EXPECT_EQ(frames[i].y(), separator ? 540 - 20 - 16 : 540 - 18 - 20) << names[i];
    EXPECT_EQ(frames[i].height(), separator ? 16 : 20) << names[i];
    if (i > 0) {
      EXPECT_NEAR(frames[i].x(), frames[i - 1].x() + frames[i - 1].width() + 5, 1) << names[i];
    }
  }
  EXPECT_NEAR(frames.front().x(), 360 - (frames.back().x() + frames.back().width()), 1);
  EXPECT_EQ(window_.findChild<QWidget*>("linkSeparator4"), nullptr);

  const std::pair<const char*, const char*> actions[] = {
      {"link.website", "site"}, {"link.guide", "docs"}, {"link.terms", "terms"}, {"link.privacy", "privacy"}};
  for (const auto& [link, call] : actions) {
    gServiceCalls.clear();
    View<FlatButton>(link)->click();
    EXPECT_EQ(gServiceCalls, std::vector<std::string>{call});
  }
  EXPECT_EQ(Text("hintLabel"), hint);
}

TEST_F(WindowTest, AboutRowWiderThanTheContentStartsAtEight) {
  QWidget narrow;
  delegate_.addAboutLinksInContent(&narrow, 200, 18);
  EXPECT_EQ(narrow.findChild<QWidget*>("link.website")->x(), 8);
}

TEST(AppBundle, CarriesInfoResourcesPluginAndBothTemplates) {
  const fs::path bundle = ORVISTELLE_TEST_APP_BUNDLE;
  auto info = platform::ReadInfoPlist((bundle / "Contents/Info.plist").string());
  ASSERT_TRUE(info);
  EXPECT_EQ(info->at("CFBundleIdentifier"), config::kBundleIdentifier);
  EXPECT_EQ(info->at("CFBundleShortVersionString"), config::kVersion);
  EXPECT_EQ(info->at("CFBundleVersion"), config::kVersion);
  const auto location = platform::LocateBundle((bundle / "Contents/MacOS" / info->at("CFBundleExecutable")).string());
  EXPECT_EQ(location.bundlePath, bundle.string());
  EXPECT_FALSE(QImage(QString::fromStdString(location.resourcePath + "/AppIcon.png")).isNull());
  EXPECT_FALSE(QImage(QString::fromStdString(location.resourcePath + "/logo-dark.png")).isNull());
  const fs::path plugin = fs::path(location.builtInPlugInsPath) / "OrvistelleXPC.pluginkit";
  EXPECT_TRUE(fs::exists(plugin / "Contents/Info.plist"));
  for (const fs::path& folder : {fs::path(location.resourcePath), plugin / "Contents/Resources"}) {
    EXPECT_TRUE(fs::exists(folder / "MotionTemplates/Effects/Orvistelle.localized/Orvistelle Beauty/Orvistelle Beauty.moef"))
        << folder;
  }
}

// Not a check: pictures of the window for people to look at, in a fresh state, a finished one and a broken one.
TEST_F(WindowTest, WritesScreenshotsForReview) {
  for (const char* image : {"AppIcon.png", "logo-dark.png"}) {
    fs::copy_file(fs::path(ORVISTELLE_TEST_ASSETS) / image, fs::path(bundleSeam_.Main().resourcePath) / image);
  }
  bundleSeam_.SetInfo("CFBundleShortVersionString", config::kVersion);
  fs::create_directories(ORVISTELLE_TEST_SCREENSHOTS);
  struct Shot {
    const char* language;
    bool host, service, templ;
  };
  for (const Shot& shot : {Shot{"en", false, true, false}, Shot{"zh-Hans-CN", true, true, true},
                           Shot{"ja-JP", false, true, true}, Shot{"de-DE", false, false, true}}) {
    UseLanguage(shot.language);
    SetHostRegistered(shot.host);
    SetService(shot.service);
    SetInstalledTemplate(shot.templ);
    Build();
    const QString path = QStringLiteral(ORVISTELLE_TEST_SCREENSHOTS "/window-%1.png").arg(shot.language);
    EXPECT_TRUE(window_.grab().save(path)) << path.toStdString();
  }
  UseLanguage("en");
  SetService(true);
  Build();
  window_.show();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window_));
  for (const char* focused : {"actionButton", "link.guide"}) {  // the focus ring, as Tab leaves it
    View(focused)->setFocus(Qt::TabFocusReason);
    EXPECT_TRUE(window_.grab().save(QString(ORVISTELLE_TEST_SCREENSHOTS "/focus-%1.png").arg(focused)));
  }
}

}  // namespace
}  // namespace orvistelle::app

namespace {

// The application object exists only while tests run, not while they are merely listed.
class QtApplication : public ::testing::Environment {
 public:
  void SetUp() override { application_ = std::make_unique<QApplication>(argc_, argv_); }
  void TearDown() override { application_.reset(); }

 private:
  int argc_ = 1;
  char name_[13] = "window_tests";
  char* argv_[2] = {name_, nullptr};
  std::unique_ptr<QApplication> application_;
};

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  ::testing::AddGlobalTestEnvironment(new QtApplication);
  return RUN_ALL_TESTS();
}
