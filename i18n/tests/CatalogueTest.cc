#include <array>
#include <cstdint>
#include <functional>
#include <regex>
#include <set>

#include "i18n/Catalogue.h"
#include "i18n/tests/I18nTestSupport.h"

namespace orvistelle::i18n {
namespace {

// A sample that must stay byte for byte in every language, in column order: the status word that tells the two
// Chinese columns apart, the U+2026 ellipsis and a language name in its own script.
const std::pair<const char*, std::array<const char*, kLanguageCount>> kPrintedTexts[] = {
    {"shell.stateNeeded", {"Needed", "待安装", "待安裝", "必要", "필요", "Pendente", "Pendiente", "Erforderlich"}},
    {"shell.actionWorking",
     {"Setting up…", "正在设置…", "正在設定…", "設定中…", "설정 중…", "Configurando…", "Configurando…", "Wird eingerichtet…"}},
    {"nav.langZh", {"简体中文", "简体中文", "簡體中文", "简体中文", "简体中文", "简体中文", "简体中文", "简体中文"}},
};

// The conversions of a text in order: "@" and "d" for placeholders, anything else after a "%" as it stands.
std::string Placeholders(std::string_view text) {
  std::string found;
  for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 2))
    found += at + 1 < text.size() ? text[at + 1] : '%';
  return found;
}

TEST(Catalogue, EveryDottedKeyOnceWithEveryTextPresentAndTheKeysPlaceholders) {
  const std::regex dottedKey("[a-z]+[A-Za-z]*(\\.[A-Za-z0-9_]+)+");
  std::set<std::string_view> keys;
  for (const CatalogueEntry& entry : CatalogueEntries()) {
    SCOPED_TRACE(entry.key);
    EXPECT_TRUE(std::regex_match(entry.key, dottedKey));
    EXPECT_TRUE(keys.insert(entry.key).second) << "twice";
    EXPECT_EQ(Placeholders(entry.texts[0]).find_first_not_of("@d"), std::string::npos) << entry.texts[0];
    for (int language = 0; language < kLanguageCount; ++language) {
      const char* text = entry.texts[language];
      ASSERT_NE(text, nullptr) << "language " << language;
      EXPECT_STRNE(text, "") << "language " << language;
      EXPECT_EQ(Placeholders(text), Placeholders(entry.texts[0])) << text;
      EXPECT_EQ(std::string_view(text).find("..."), std::string_view::npos) << "three dots instead of U+2026";
    }
  }
}

using LookupTest = I18nTest;

TEST_F(LookupTest, PrintedTextsAreExactInEveryLanguageAndUnknownKeysStandForThemselves) {
  for (int language = 0; language < kLanguageCount; ++language) {
    UseLanguage(language);
    for (const auto& [key, texts] : kPrintedTexts) EXPECT_EQ(FcpT(key), texts[language]) << key << " in " << language;
  }
  EXPECT_EQ(FcpT(nullptr), "");
  EXPECT_EQ(FcpT(""), "");
  for (const char* unknown : {"Shell.stateReady", "shell.stateReady ", "shell", "no.such.key", "shell.stateReady\n"})
    EXPECT_EQ(FcpT(unknown), unknown);
}

TEST(Catalogue, EmptyColumnsFallBackToEnglishButEnglishIsTakenAsIs) {
  const CatalogueEntry entry{"k", {"English", "", nullptr, "ja", "", "", "", ""}};
  const CatalogueEntry noEnglish{"k", {nullptr, "zh", "", "", "", "", "", ""}};
  const CatalogueEntry emptyEnglish{"k", {"", "zh", "", "", "", "", "", ""}};
  const struct {
    const CatalogueEntry& entry;
    std::int32_t language;
    std::string_view text;
  } cases[] = {{entry, 3, "ja"},       {entry, 1, "English"},  {entry, 2, "English"}, {entry, 0, "English"},
               {entry, 8, "English"},  {entry, -1, "English"}, {noEnglish, 1, "zh"},  {noEnglish, 2, "k"},
               {noEnglish, 0, "k"},    {emptyEnglish, 2, ""},  {emptyEnglish, 0, ""}, {emptyEnglish, 1, "zh"}};
  for (const auto& c : cases) EXPECT_EQ(EntryText(c.entry, c.language), c.text) << "language " << c.language;
}

template <class T>
constexpr bool kFormattable = requires(const T& value) { FcpTf("shell.version", value); };

// Wrong argument types are refused at compile time rather than printed as garbage.
static_assert(kFormattable<std::int32_t> && kFormattable<int> && kFormattable<const char*> && kFormattable<char[4]> &&
              kFormattable<std::string> && kFormattable<std::string_view>);
static_assert(!kFormattable<double> && !kFormattable<std::int64_t> && !kFormattable<std::uint32_t> &&
              !kFormattable<char> && !kFormattable<bool> && !kFormattable<void*>);

TEST_F(LookupTest, FormatFillsPlaceholdersInOrderAndLeavesTheRest) {
  const std::string move = ". Move the app to Applications and try again.";
  const struct {
    int language;
    std::function<std::string()> format;
    std::string expected;
  } cases[] = {
      {0, [] { return FcpTf("shell.registerFailed", INT32_MIN); }, "Registration failed (error -2147483648)" + move},
      {3, [] { return FcpTf("shell.version", "1.4.0"); }, "バージョン 1.4.0"},
      {7, [] { return FcpTf("shell.version", std::string("2.0")); }, "Version 2.0"},
      {1, [] { return FcpTf("auth.sessionSaveFailed", std::string_view("磁盘已满")); }, "登录状态保存失败：磁盘已满"},
      {0, [] { return FcpTf("auth.sessionSaveFailed", static_cast<const char*>(nullptr)); },
       "Could not save sign-in state: "},
      // Texts put in are not read as formats themselves.
      {6, [] { return FcpTf("shell.installTemplateFailed", "%d %@ %%"); },
       "No se pudo instalar la plantilla: %d %@ %%"},
      // A missing argument or one of the other kind leaves the placeholder; spare arguments are ignored.
      {0, [] { return FcpTf("shell.version"); }, "Version %@"},
      {0, [] { return FcpTf("shell.version", 7); }, "Version %@"},
      {0, [] { return FcpTf("shell.registerFailed", "7"); }, "Registration failed (error %d)" + move},
      {5, [] { return FcpTf("shell.version", "1.0", 3, "x"); }, "Versão 1.0"},
      // An unknown key is its own format; no key gives nothing.
      {0, [] { return FcpTf("%@ and %d, %@ at 100%% %s %", 5, 6, "b"); }, "%@ and 6, b at 100% %s %"},
      {0, [] { return FcpTf(nullptr, "x"); }, ""},
  };
  for (const auto& c : cases) {
    UseLanguage(c.language);
    EXPECT_EQ(c.format(), c.expected);
  }
}

}  // namespace
}  // namespace orvistelle::i18n
