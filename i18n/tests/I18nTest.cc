#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "i18n/Catalogue.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpI18n.h"
#include "platform/testing/FakePlatform.h"

namespace orvistelle::i18n {
namespace {

// Chooses the language the way a host does: through a fake list of preferred languages.
void Prefer(std::vector<std::string> tags) {
  static platform::testing::FakeLanguages languages;
  static const platform::ScopedSeam<platform::Languages> seam{&languages};
  languages.SetPreferred(std::move(tags));
  FcpI18nApplyHostLocale();
}

// Missing texts and placeholders that differ from the English are refused when the catalogue is generated; a column
// left empty or null in a hand-made entry reads as the English.
TEST(Catalogue, EveryKeyOnceAndEveryTextPresentWithTheEllipsisCharacter) {
  std::set<std::string_view> keys;
  for (const CatalogueEntry& entry : CatalogueEntries()) {
    EXPECT_TRUE(keys.insert(entry.key).second) << entry.key;
    for (const char* text : entry.texts) {
      ASSERT_NE(text, nullptr) << entry.key;
      EXPECT_STRNE(text, "") << entry.key;
      EXPECT_EQ(std::string_view(text).find("..."), std::string_view::npos) << text;
    }
  }
  EXPECT_EQ(keys.size(), 306) << "the menu entry's texts (desktop.*) belong to the desktop entry, not here";
  const CatalogueEntry sparse{"k", {"English", "", nullptr, "ja", "", "", "", ""}};  // empty or null: the English
  for (const Language language : {Language::SimplifiedChinese, Language::TraditionalChinese})
    EXPECT_EQ(EntryText(sparse, language), "English") << Column(language);
}

TEST(Language, IsEnglishUntilChosenAndOnlyTheFirstPreferredTagPicksIt) {
  EXPECT_STREQ(FcpI18nLangCode(), "en") << "before any choice: ctest runs each test in a process of its own";
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{}, "en"}, {{"", "ja"}, "en"}, {{"zh_CN", "zh-TW"}, "zh"}, {{"zh-Hant-CN"}, "zh-TW"}, {{"zh-Hans-HK"}, "zh-TW"},
      {{"zh-MO"}, "zh-TW"}, {{"zhx"}, "en"}, {{"ZH_tw"}, "zh-TW"}, {{"JA_jp"}, "ja"}, {{"jav"}, "en"}, {{"ko"}, "ko"},
      {{"pt_PT"}, "pt"}, {{"es-419"}, "es"}, {{"de_CH"}, "de"}, {{"fr_FR", "de"}, "en"}, {{"z"}, "en"}};
  for (const auto& [tags, code] : cases) {  // the rows alternate, so a stale choice shows
    Prefer(tags);
    EXPECT_STREQ(FcpI18nLangCode(), code) << (tags.empty() ? "(none)" : tags[0]);
  }
}

// Per language: a tag, the site's page prefix (German reads English pages) and a hand-picked text, byte for byte,
// that tells the two Chinese columns apart and ends in U+2026.
TEST(Language, PrintedTextsAndLinksFollowTheLanguage) {
  const std::tuple<const char*, std::string, const char*> languages[] = {
      {"en", "", "Setting up…"}, {"zh-Hans-CN", "/zh", "正在设置…"}, {"zh-Hant-TW", "/zh", "正在設定…"},
      {"ja", "/ja", "設定中…"},  {"ko", "/ko", "설정 중…"},           {"pt-BR", "/pt-BR", "Configurando…"},
      {"es", "/es", "Configurando…"}, {"de", "", "Wird eingerichtet…"}};
  for (const auto& [tag, prefix, working] : languages) {
    SCOPED_TRACE(tag);
    Prefer({tag});
    EXPECT_EQ(FcpT("shell.actionWorking"), working);
    const std::string site = config::kSiteURL + prefix;
    EXPECT_EQ(FcpI18nSiteURL() + FcpI18nSignInURL(nullptr) + FcpI18nSignInURL("3f2a") + FcpI18nSignUpURL() +
                  FcpI18nTermsURL() + FcpI18nPrivacyURL() + FcpI18nDocsURL(),
              site + site + "/sign-in?from=vask&flowId=" + site + "/sign-in?from=vask&flowId=3f2a" + site +
                  "/sign-up?from=vask" + site + "/terms" + site + "/privacy" + config::kDocsURL + prefix +
                  "/fcp/install");
  }
}

TEST(Format, FillsPlaceholdersInOrderAndLeavesTheRest) {
  Prefer({"en"});
  const std::pair<std::string, std::string> cases[] = {
      // Texts put in are not read as formats; spare arguments are ignored.
      {FcpTf("shell.version", std::string("%d %@ %%"), 1), "Version %d %@ %%"},
      // An unknown key is its own format: an argument of the other kind, or none, leaves the placeholder.
      {FcpTf("%@ and %d, %@%@ at 100%% %s %d %", 5, INT32_MIN, "b", static_cast<const char*>(nullptr)),
       "%@ and -2147483648, b at 100% %s %d %"},
      {FcpTf(nullptr, "x") + FcpT("") + FcpT("Shell.stateReady"), "Shell.stateReady"}};
  for (const auto& [formatted, expected] : cases) EXPECT_EQ(formatted, expected);
}

// Readers race the first build of the catalogue and a language that keeps changing; each answer must belong
// wholly to one of the two languages.
TEST(Concurrency, LookupsStayWholeWhileTheLanguageChanges) {
  const std::set<std::string> answers = {"ja", "準備完了", "バージョン 9.9", "de", "Bereit", "Version 9.9"};
  Prefer({"ja"});
  std::atomic<int> finished{0}, wrong{0};
  auto read = [&] {
    for (int round = 0; round < 2000; ++round)
      for (const std::string& answer :
           {std::string(FcpI18nLangCode()), FcpT("shell.stateReady"), FcpTf("shell.version", "9.9")})
        wrong += !answers.count(answer);
    ++finished;
  };
  {
    std::jthread readers[] = {std::jthread(read), std::jthread(read), std::jthread(read), std::jthread(read)};
    for (int round = 0; finished.load() < 4; ++round) Prefer({round % 2 == 0 ? "de" : "ja"});
  }
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace orvistelle::i18n
