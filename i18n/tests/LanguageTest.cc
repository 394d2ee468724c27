#include "i18n/Language.h"
#include "i18n/tests/I18nTestSupport.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::i18n {
namespace {

// Runs first in its own process under ctest, so nothing has chosen a language yet.
TEST(LanguageChoice, IsEnglishBeforeTheHostLocaleIsApplied) {
  EXPECT_STREQ(FcpI18nLangCode(), "en");
  EXPECT_EQ(FcpT("shell.stateReady"), "Ready");
}

using LanguageTest = I18nTest;

TEST_F(LanguageTest, FirstPreferredTagPicksTheLanguage) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{}, "en"},           {{""}, "en"},          {{"", "ja"}, "en"},          {{"z"}, "en"},
      {{"zh"}, "zh"},       {{"zh-Hans-CN"}, "zh"}, {{"zh_CN", "zh-TW"}, "zh"},  {{"zh-Hant-TW"}, "zh-TW"},
      {{"zh-Hant-CN"}, "zh-TW"}, {{"zh-Hans-HK"}, "zh-TW"}, {{"zh-MO"}, "zh-TW"}, {{"ZH_tw"}, "zh-TW"},
      {{"zh_HK"}, "zh-TW"}, {{"zhx"}, "en"},       {{"ja"}, "ja"},              {{"JA_jp"}, "ja"},
      {{"jav"}, "en"},      {{"ko"}, "ko"},        {{"pt_PT"}, "pt"},           {{"PT_br"}, "pt"},
      {{"pto"}, "en"},      {{"es-419"}, "es"},    {{"de_CH"}, "de"},           {{"fr_FR", "de"}, "en"},
      {{"it"}, "en"}};
  for (const auto& [tags, code] : cases) {
    UseLanguage(4);  // a stale choice must not survive
    ApplyPreferred(tags);
    EXPECT_STREQ(FcpI18nLangCode(), code) << (tags.empty() ? "(none)" : tags[0]);
  }
}

// Every link is the base, the language's page prefix and the page; German takes the English pages.
TEST_F(LanguageTest, LinksCarryTheLanguagesPagePrefix) {
  const char* const prefixes[kLanguageCount] = {"", "/zh", "/zh", "/ja", "/ko", "/pt-BR", "/es", ""};
  for (int language = 0; language < kLanguageCount; ++language) {
    UseLanguage(language);
    const std::string site = config::kSiteURL + std::string(prefixes[language]);
    EXPECT_EQ(FcpI18nSiteURL(), site);
    EXPECT_EQ(FcpI18nSignInURL(nullptr), site + "/sign-in?from=vask&flowId=");
    EXPECT_EQ(FcpI18nSignInURL("3f2a-9c0d"), site + "/sign-in?from=vask&flowId=3f2a-9c0d");
    EXPECT_EQ(FcpI18nSignUpURL(), site + "/sign-up?from=vask");
    EXPECT_EQ(FcpI18nTermsURL(), site + "/terms");
    EXPECT_EQ(FcpI18nPrivacyURL(), site + "/privacy");
    EXPECT_EQ(FcpI18nDocsURL(), config::kDocsURL + std::string(prefixes[language]) + "/fcp/install");
  }
}

}  // namespace
}  // namespace orvistelle::i18n
