#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "i18n/Catalogue.h"
#include "i18n/tests/I18nTestSupport.h"

namespace orvistelle::i18n {
namespace {

struct PrintedText {
  const char* key;
  std::array<const char*, kLanguageCount> texts;
};

// A sample of the window, about and account texts, which must stay byte for byte in every language: the status
// word, formatted text with CJK brackets, the U+2026 ellipsis, a link and an account status line.
const PrintedText kPrintedTexts[] = {
    {"shell.stateNeeded", {"Needed", "待安装", "待安裝", "必要", "필요", "Pendente", "Pendiente", "Erforderlich"}},
    {"shell.registerFailed",
     {"Registration failed (error %d). Move the app to Applications and try again.", "登记失败（错误码 %d）。请把应用放到「应用程序」后重试。",
      "登記失敗（錯誤碼 %d）。請把應用放到「應用程式」後重試。", "登録に失敗しました（エラー %d）。「アプリケーション」に移して再試行してください。",
      "등록 실패(오류 %d). 앱을 응용 프로그램으로 옮긴 뒤 다시 시도하세요.",
      "Falha no registro (erro %d). Mova o app para Aplicativos e tente de novo.",
      "Registro fallido (error %d). Mueve la app a Aplicaciones e inténtalo de nuevo.",
      "Registrierung fehlgeschlagen (Fehler %d). App nach Programme legen und erneut versuchen."}},
    {"shell.actionWorking",
     {"Setting up…", "正在设置…", "正在設定…", "設定中…", "설정 중…", "Configurando…", "Configurando…", "Wird eingerichtet…"}},
    {"auth.privacy",
     {"Privacy Policy", "隐私政策", "隱私政策", "プライバシーポリシー", "개인정보 처리방침", "Privacidade", "Privacidad", "Datenschutz"}},
    {"auth.sessionExpired",
     {"Session expired. Please sign in again.", "登录已失效，请重新登录", "登入已失效，請重新登入", "セッションの有効期限が切れました。再度ログインしてください",
      "세션이 만료되었습니다. 다시 로그인하세요", "Sessão expirada. Entre novamente", "Sesión caducada. Inicia sesión de nuevo",
      "Sitzung abgelaufen. Bitte erneut anmelden"}},
};

// A sample of the English texts fixed for keys of the other front ends.
const std::pair<const char*, const char*> kEnglishTexts[] = {
    {"auth.productFcp", "FCP Beauty"},
    {"obs.noFilterHow", "Add a filter to use the controls: Right-click the source -> Filters -> + -> Orvistelle Beauty"},
    {"tab.background", "BG"},
    {"update.quitHint", "Quit Final Cut Pro, install the new build, then reopen."},
};

// The conversions of a text in order: "@" and "d" for placeholders, anything else after a "%" as it stands.
std::string Placeholders(std::string_view text) {
  std::string found;
  for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 2))
    found += at + 1 < text.size() ? text[at + 1] : '%';
  return found;
}

using CatalogueTest = I18nTest;

TEST(Catalogue, HoldsEveryDottedKeyOnceFromFirstToLast) {
  const std::regex dottedKey("[a-z]+[A-Za-z]*(\\.[A-Za-z0-9_]+)+");
  std::set<std::string_view> keys;
  for (const CatalogueEntry& entry : CatalogueEntries()) {
    EXPECT_TRUE(std::regex_match(entry.key, dottedKey)) << entry.key;
    EXPECT_TRUE(keys.insert(entry.key).second) << entry.key << " twice";
  }
  EXPECT_EQ(keys.size(), 306u);
  EXPECT_STREQ(CatalogueEntries().front().key, "nav.openImage");
  EXPECT_STREQ(CatalogueEntries().back().key, "shell.version");
}

TEST(Catalogue, EveryTextIsPresentWithTheKeysPlaceholders) {
  for (const CatalogueEntry& entry : CatalogueEntries()) {
    SCOPED_TRACE(entry.key);
    for (int language = 0; language < kLanguageCount; ++language) {
      const char* text = entry.texts[language];
      ASSERT_NE(text, nullptr) << "language " << language;
      EXPECT_STRNE(text, "") << "language " << language;
      EXPECT_EQ(Placeholders(text), Placeholders(entry.texts[0])) << text;
      EXPECT_EQ(std::string_view(text).find("..."), std::string_view::npos) << "three dots instead of U+2026";
    }
    EXPECT_EQ(Placeholders(entry.texts[0]).find_first_not_of("@d"), std::string::npos) << entry.texts[0];
  }
}

TEST_F(CatalogueTest, LanguageNamesAreWrittenInTheirOwnScript) {
  for (int language = 0; language < kLanguageCount; ++language) {
    UseLanguage(language);
    EXPECT_EQ(FcpT("nav.langEn"), "English");
    EXPECT_EQ(FcpT("nav.langZh"), language == 2 ? "簡體中文" : "简体中文") << "language " << language;
  }
}

TEST_F(CatalogueTest, PrintedTextsAreExactInEveryLanguage) {
  for (int language = 0; language < kLanguageCount; ++language) {
    UseLanguage(language);
    for (const PrintedText& printed : kPrintedTexts)
      EXPECT_EQ(FcpT(printed.key), printed.texts[language]) << printed.key << " in language " << language;
  }
}

TEST_F(CatalogueTest, EnglishTextsAreExact) {
  for (const auto& [key, english] : kEnglishTexts) EXPECT_EQ(FcpT(key), english);
}

TEST_F(CatalogueTest, LookupFallsBackToTheKeyOrNothing) {
  UseLanguage(7);
  EXPECT_EQ(FcpT(nullptr), "");
  EXPECT_EQ(FcpT(""), "");
  for (const char* unknown : {"Shell.stateReady", "shell.stateReady ", "shell", "no.such.key", "shell.stateReady\n"})
    EXPECT_EQ(FcpT(unknown), unknown);
  EXPECT_EQ(FcpT("shell.stateReady"), "Bereit");
}

TEST(Catalogue, EmptyColumnsFallBackToEnglishButEnglishIsTakenAsIs) {
  const CatalogueEntry entry{"k", {"English", "", nullptr, "ja", "", "", "", ""}};
  const CatalogueEntry noEnglish{"k", {nullptr, "zh", "", "", "", "", "", ""}};
  const CatalogueEntry emptyEnglish{"k", {"", "zh", "", "", "", "", "", ""}};
  struct Case {
    const CatalogueEntry& entry;
    std::int32_t language;
    std::string_view text;
  } cases[] = {{entry, 3, "ja"},       {entry, 1, "English"},  {entry, 2, "English"}, {entry, 0, "English"},
               {entry, 8, "English"},  {entry, -1, "English"}, {noEnglish, 1, "zh"},  {noEnglish, 2, "k"},
               {noEnglish, 0, "k"},    {emptyEnglish, 2, ""},  {emptyEnglish, 0, ""}, {emptyEnglish, 1, "zh"}};
  for (const Case& c : cases) EXPECT_EQ(EntryText(c.entry, c.language), c.text) << "language " << c.language;
}

}  // namespace
}  // namespace orvistelle::i18n
