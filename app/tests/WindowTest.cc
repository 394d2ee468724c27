#include <QAccessible>
#include <QApplication>
#include <QTest>
#include <functional>

#include "app/AppDelegate.h"
#include "app/tests/ShellFixture.h"
#include "orvistelle/BuildConfig.h"
#include "platform/InfoPlist.h"
#include "platform/linux/BundleLayout.h"

namespace orvistelle::app {
namespace {

using namespace shell::testing;
using Calls = std::vector<std::string>;

Calls gServiceCalls;

QColor Grey(double white) { return QColor::fromRgbF(white, white, white); }
const QColor kOk = QColor::fromRgbF(0.3, 0.78, 0.45), kWarn = QColor::fromRgbF(0.92, 0.72, 0.38),
             kError = QColor::fromRgbF(0.95, 0.42, 0.40);
const char kDone[] = "Setup complete. Restart Final Cut Pro to see the effect.";

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
    const Frame& f = row.frame;
    EXPECT_EQ(view->geometry(), QRect(qRound(f.x), qRound(540 - f.y - f.height), qRound(f.width), qRound(f.height)));
    if (row.fontSize == 0) continue;
    EXPECT_NEAR(view->font().pointSizeF() * window_.logicalDpiY() / 72.0, row.fontSize, 0.01);
    EXPECT_EQ(view->font().weight(), row.weight);
    auto* label = qobject_cast<QLabel*>(view);
    EXPECT_EQ(label ? Colour(row.name) : Button()->titleColour(), row.colour);
    if (label) EXPECT_TRUE(label->alignment() & Qt::AlignTop);
  }
  EXPECT_EQ(View("separator")->palette().color(QPalette::Window), QColor(38, 42, 53));
  EXPECT_EQ(window_.palette().color(QPalette::Window), QColor(22, 24, 30));
  EXPECT_EQ(Text("versionLabel"), "Version 0.1.0");
  EXPECT_EQ(View<SymbolView>("hostStatusIcon")->symbol(), "");
  EXPECT_EQ(View<SymbolView>("hostStatusIcon")->tint(), Grey(0.5));
  delegate_.styleActionButton(Button(), "Again", false);  // a restyle leaves no trace of the look before it
  EXPECT_EQ(std::tuple(Button()->fill(), Button()->borderWidth()), std::tuple(QColor::fromRgbF(1, 1, 1, 0.08), 1.0));
  delegate_.styleActionButton(Button(), "Set up for Final Cut", true);
  EXPECT_EQ(std::tuple(Button()->cornerRadius(), Button()->fill(), Button()->borderWidth()),
            std::tuple(8.0, QColor::fromRgbF(0.22, 0.47, 0.96), 0.0));
  EXPECT_EQ(Button()->grab().toImage().pixelColor(6, 18).rgb(), QColor::fromRgbF(0.22, 0.47, 0.96).rgb());
  EXPECT_TRUE(View<ImageView>("appIcon")->image().isNull());  // no icon resource in this bundle
}

TEST_F(WindowTest, LaunchChoosesTheLanguageFirstAndFixesTheWindow) {
  languages_.SetPreferred({"de-DE"});
  delegate_.applicationDidFinishLaunching();
  EXPECT_EQ(gServiceCalls, (Calls{"locale", "maintain"}));
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
  const bool host = GetParam() & 1, service = GetParam() & 2, templ = GetParam() & 4, allReady = GetParam() == 7;
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
    EXPECT_EQ(Colour(row + "ValueLabel"), ready ? kOk : colour);
  };
  expectRow("host", host, kWarn, kSymbolAttention, "Needed");
  expectRow("xpc", service, kError, kSymbolMissing, "Missing");
  expectRow("template", templ, kWarn, kSymbolAttention, "Needed");
  EXPECT_EQ(Button()->text(), allReady ? "Reinstall setup" : "Set up for Final Cut");
  EXPECT_EQ(Button()->isEnabled(), service);
  EXPECT_EQ(Button()->alphaValue(), service ? 1.0 : 0.45);
  EXPECT_EQ(Text("hintLabel"), allReady  ? "Quit and reopen Final Cut Pro if the effect is not listed yet."
                               : service ? "One tap finishes anything still marked above."
                                         : "Effect service is missing. Re-download the app package.");
  EXPECT_EQ(Colour("hintLabel"), Grey(0.55));
  if (service) return;
  delegate_.setupOrRepair();  // as a stale enabled button would: a missing service only explains itself
  EXPECT_EQ(Colour("hintLabel"), kError);
  EXPECT_TRUE(database_.calls.empty());
}

INSTANTIATE_TEST_SUITE_P(AllProbeResults, DecisionTableTest, ::testing::Range(0, 8));

// A run registers unless only the template is missing, copies the template unless only the host is, and says how it
// went; the template is the fresh copy ("new"), the one found before ("old") or none.
struct RunCase {
  const char* what;
  bool host, templ;
  int registerStatus, toolStatus;
  bool listed, bundled;
  Calls calls;
  const char* installed;
  std::string hint;
  QColor colour;
};

void PrintTo(const RunCase& c, std::ostream* out) { *out << c.what; }

class SetupRunTest : public WindowTest, public ::testing::WithParamInterface<RunCase> {};

TEST_P(SetupRunTest, ShowsWorkingThenTheOutcome) {
  const RunCase& c = GetParam();
  SetHostRegistered(c.host);
  SetInstalledTemplate(c.templ);
  database_.registerStatus = c.registerStatus;
  database_.toolStatus = c.toolStatus;
  database_.listWhenRegistered = c.listed;
  if (!c.bundled) fs::remove_all(BundledTemplate());
  Build();
  delegate_.setupOrRepair();
  EXPECT_EQ(database_.calls, c.calls);  // registration ran before the pause, the copy not yet
  EXPECT_EQ(std::tuple(Button()->isEnabled(), Button()->text(), Text("hintLabel")),
            std::tuple(false, QString("Setting up…"), QString("Setting up…")));
  EXPECT_EQ(fs::exists(InstalledTemplate() / "marker.txt"), c.templ);

  ASSERT_TRUE(WaitFor([this] { return Button()->isEnabled(); }));
  EXPECT_EQ(Text("hintLabel").toStdString(), c.hint);
  EXPECT_EQ(Colour("hintLabel"), c.colour);
  EXPECT_EQ(fs::exists(InstalledTemplate() / "marker.txt") ? "old" : fs::exists(InstalledTemplate()) ? "new" : "",
            std::string(c.installed));
  EXPECT_EQ(Text("templateValueLabel"), *c.installed ? "Ready" : "Needed");
}

const Calls kRegister = {"register"}, kBoth = {"register", "tool"};

INSTANTIATE_TEST_SUITE_P(
    Runs, SetupRunTest,
    ::testing::Values(
        RunCase{"fresh", false, false, 0, 0, true, true, kRegister, "new", kDone, Grey(0.55)},
        RunCase{"only_template_missing", true, false, 0, 0, true, true, {}, "new", kDone, Grey(0.55)},
        RunCase{"only_host_missing", false, true, 0, 0, true, true, kRegister, "old", kDone, Grey(0.55)},
        RunCase{"reinstall", true, true, 0, 0, true, true, kRegister, "new", kDone, Grey(0.55)},
        RunCase{"tool_takes_over", false, false, -13, 0, true, true, kBoth, "new", kDone, Grey(0.55)},
        RunCase{"tool_fails_too", false, false, -2, -2, true, true, kBoth, "",
                "Registration failed (error -2). Move the app to Applications and try again.", kError},
        RunCase{"not_listed_yet", false, false, 0, 0, false, true, kRegister, "new",
                "Registration sent. Try again in a moment if status stays unchanged.", kWarn},
        RunCase{"no_bundled_template", false, false, 0, 0, true, false, kRegister, "",
                "Could not install template: Template files are missing from this app. Re-download the package.",
                kError}),
    [](const auto& info) { return std::string(info.param.what); });

using Keys = std::vector<std::pair<Qt::Key, Qt::KeyboardModifiers>>;
struct KeyCase {
  const char* what;
  bool service;
  Keys keys;
  const char* focused;  // "" for the window itself, nullptr when the window closed
  bool setsUp;
  Calls pages;
};

class KeyboardTest : public WindowTest, public ::testing::WithParamInterface<KeyCase> {};

TEST_P(KeyboardTest, TabReachesButtonAndLinksWithARingAndKeysPressOrClose) {
  const KeyCase& c = GetParam();
  SetService(c.service);
  Build();
  window_.show();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window_));
  for (const auto& [key, modifiers] : c.keys) QTest::keyClick(QApplication::focusWidget(), key, modifiers);
  EXPECT_EQ(database_.calls, c.setsUp ? Calls{"register"} : Calls{});
  EXPECT_EQ(gServiceCalls, c.pages);
  EXPECT_EQ(window_.isVisible(), c.focused != nullptr);
  if (c.focused == nullptr) return;
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
        KeyCase{"EscapeCloses", true, {kTab, kTab, {Qt::Key_Escape, kNone}}, nullptr, false, {}},
        KeyCase{"ControlQCloses", true, {{Qt::Key_Q, Qt::ControlModifier}}, nullptr, false, {}}),
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
  EXPECT_EQ(gServiceCalls, Calls{"privacy"});
}

// Links 20 high at y 18, dots 16 high at y 20, 5 points between items; centred, or from x 8 when too wide.
TEST_F(WindowTest, AboutLinksAreCentredAndEachOpensOnlyItsPage) {
  Build();
  const QString hint = Text("hintLabel");
  const char* names[] = {"link.website", "linkSeparator1", "link.guide", "linkSeparator2",
                         "link.terms",   "linkSeparator3", "link.privacy"};
  QRect previous;
  for (const char* name : names) {
    const QRect frame = View(name)->geometry();
    const bool separator = std::string(name).starts_with("linkSeparator");
    EXPECT_EQ(std::pair(frame.y(), frame.height()), separator ? std::pair(504, 16) : std::pair(502, 20)) << name;
    if (!previous.isNull()) EXPECT_NEAR(frame.x(), previous.right() + 1 + 5, 1) << name;
    previous = frame;
  }
  EXPECT_NEAR(View(names[0])->x(), 360 - (previous.right() + 1), 1);
  EXPECT_EQ(window_.findChild<QWidget*>("linkSeparator4"), nullptr);
  const std::pair<const char*, const char*> actions[] = {
      {"website", "site"}, {"guide", "docs"}, {"terms", "terms"}, {"privacy", "privacy"}};
  for (const auto& [link, call] : actions) {
    gServiceCalls.clear();
    View<FlatButton>(QString("link.") + link)->click();
    EXPECT_EQ(gServiceCalls, Calls{call});
  }
  EXPECT_EQ(Text("hintLabel"), hint);
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
  for (const char* image : {"/AppIcon.png", "/logo-dark.png"})
    EXPECT_FALSE(QImage(QString::fromStdString(location.resourcePath + image)).isNull()) << image;
  const fs::path plugin = fs::path(location.builtInPlugInsPath) / "OrvistelleXPC.pluginkit";
  EXPECT_TRUE(fs::exists(plugin / "Contents/Info.plist"));
  for (const fs::path& folder : {fs::path(location.resourcePath), plugin / "Contents/Resources"})
    EXPECT_TRUE(fs::exists(folder / "MotionTemplates/Effects/Orvistelle.localized/Orvistelle Beauty")) << folder;
}

// Not a check: pictures of the window for people to look at, in a fresh, a finished and a broken state, and with the
// focus ring as Tab leaves it.
TEST_F(WindowTest, WritesScreenshotsForReview) {
  for (const char* image : {"AppIcon.png", "logo-dark.png"})
    fs::copy_file(fs::path(ORVISTELLE_TEST_ASSETS) / image, fs::path(bundleSeam_.Main().resourcePath) / image);
  bundleSeam_.SetInfo("CFBundleShortVersionString", config::kVersion);
  fs::create_directories(ORVISTELLE_TEST_SCREENSHOTS);
  auto save = [this](const QString& name) {
    EXPECT_TRUE(window_.grab().save(QStringLiteral(ORVISTELLE_TEST_SCREENSHOTS "/%1.png").arg(name)));
  };
  for (const char* language : {"en", "zh-Hans-CN", "ja-JP", "de-DE"}) {
    const std::string tag = language;
    UseLanguage(tag);
    SetHostRegistered(tag == "zh-Hans-CN");
    SetService(tag != "de-DE");
    SetInstalledTemplate(tag != "en");
    Build();
    save(QString("window-") + language);
  }
  UseLanguage("en");
  SetService(true);
  Build();
  window_.show();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window_));
  for (const char* focused : {"actionButton", "link.guide"}) {
    View(focused)->setFocus(Qt::TabFocusReason);
    save(QString("focus-") + focused);
  }
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
