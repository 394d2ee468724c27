#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "i18n/tests/I18nTestSupport.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::i18n {
namespace {

// Runs first in its own process under ctest, so nothing has chosen a language yet.
TEST(LanguageChoice, IsEnglishBeforeTheHostLocaleIsApplied) {
  EXPECT_STREQ(FcpI18nLangCode(), "en");
  EXPECT_EQ(FcpT("shell.stateReady"), "Ready");
}

struct TagCase {
  std::vector<std::string> preferred;
  const char* code;
};

// Names the test after its tags: ["zh-Hant-TW"], [] or ["","ja"].
void PrintTo(const TagCase& c, std::ostream* out) {
  *out << '[';
  for (std::size_t i = 0; i < c.preferred.size(); ++i) *out << (i > 0 ? ",\"" : "\"") << c.preferred[i] << '"';
  *out << ']';
}

class TagChoiceTest : public I18nTest, public ::testing::WithParamInterface<TagCase> {};

TEST_P(TagChoiceTest, FirstPreferredTagPicksTheLanguage) {
  UseLanguage(4);  // a stale choice must not survive
  ApplyPreferred(GetParam().preferred);
  EXPECT_STREQ(FcpI18nLangCode(), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Tags, TagChoiceTest,
    ::testing::Values(
        TagCase{{}, "en"}, TagCase{{""}, "en"}, TagCase{{"", "ja"}, "en"}, TagCase{{"z"}, "en"},
        TagCase{{"zh"}, "zh"}, TagCase{{"zh-Hans-CN"}, "zh"}, TagCase{{"zh_CN", "zh-TW"}, "zh"},
        TagCase{{"zh-Hant-TW"}, "zh-TW"}, TagCase{{"zh-Hant-CN"}, "zh-TW"}, TagCase{{"zh-Hans-HK"}, "zh-TW"},
        TagCase{{"zh-MO"}, "zh-TW"}, TagCase{{"ZH_tw"}, "zh-TW"}, TagCase{{"zh_HK"}, "zh-TW"},
        TagCase{{"zhx"}, "en"}, TagCase{{"ja"}, "ja"}, TagCase{{"JA_jp"}, "ja"}, TagCase{{"jav"}, "en"},
        TagCase{{"ko"}, "ko"}, TagCase{{"pt_PT"}, "pt"}, TagCase{{"pt-BR"}, "pt"}, TagCase{{"PT_br"}, "pt"},
        TagCase{{"pto"}, "en"}, TagCase{{"es"}, "es"}, TagCase{{"es-419"}, "es"}, TagCase{{"de_CH"}, "de"},
        TagCase{{"fr_FR", "de"}, "en"}, TagCase{{"it"}, "en"}, TagCase{{"nl"}, "en"}));

struct EnvironmentCase {
  std::map<std::string, std::string> environment;
  const char* code;
};

void PrintTo(const EnvironmentCase& c, std::ostream* out) {
  if (c.environment.empty()) *out << "(nothing set)";
  const char* separator = "";
  for (const auto& [name, value] : c.environment) *out << std::exchange(separator, " ") << name << '=' << value;
}

class EnvironmentChoiceTest : public I18nTest, public ::testing::WithParamInterface<EnvironmentCase> {};

// The Linux host's list of preferred languages comes from the locale environment.
TEST_P(EnvironmentChoiceTest, LocaleEnvironmentPicksTheLanguage) {
  const auto& environment = GetParam().environment;
  auto getenv = [&environment](const char* name) -> const char* {
    auto found = environment.find(name);
    return found == environment.end() ? nullptr : found->second.c_str();
  };
  const std::optional<std::string> tag = platform::LanguageTagFromEnvironment(getenv);
  ApplyPreferred(tag ? std::vector<std::string>{*tag} : std::vector<std::string>{});
  EXPECT_STREQ(FcpI18nLangCode(), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Environments, EnvironmentChoiceTest,
    ::testing::Values(EnvironmentCase{{{"LANG", "zh_HK.UTF-8"}}, "zh-TW"},
                      EnvironmentCase{{{"LANG", "zh_CN.UTF-8"}}, "zh"},
                      EnvironmentCase{{{"LANG", "C"}}, "en"}, EnvironmentCase{{{"LANG", "POSIX"}}, "en"},
                      EnvironmentCase{{{"LANG", "C.UTF-8"}}, "en"}, EnvironmentCase{{}, "en"},
                      EnvironmentCase{{{"LANGUAGE", "ko:ja:de"}, {"LANG", "es_ES.UTF-8"}}, "ko"},
                      EnvironmentCase{{{"LANGUAGE", "fr:ja"}, {"LANG", "ja_JP.UTF-8"}}, "en"},
                      EnvironmentCase{{{"LC_ALL", "pt_PT.UTF-8@euro"}, {"LANG", "de_DE"}}, "pt"},
                      EnvironmentCase{{{"LC_MESSAGES", "de_CH.UTF-8"}, {"LANG", "ja_JP"}}, "de"}));

struct LinkCase {
  int language;
  // What follows the website base for the site, sign-in, sign-up, terms and privacy links, and what follows the
  // documentation base for the guide.
  std::vector<std::string> sitePaths;
  std::string docsPath;
};

void PrintTo(const LinkCase& c, std::ostream* out) { *out << kTagForLanguage[c.language]; }

class LinkTest : public I18nTest, public ::testing::WithParamInterface<LinkCase> {};

TEST_P(LinkTest, LinksCarryTheLanguagesPagePrefix) {
  const LinkCase& c = GetParam();
  UseLanguage(c.language);
  const std::string site = config::kSiteURL;
  const std::vector<std::string> links = {FcpI18nSiteURL(), FcpI18nSignInURL(nullptr), FcpI18nSignUpURL(),
                                          FcpI18nTermsURL(), FcpI18nPrivacyURL()};
  for (std::size_t i = 0; i < links.size(); ++i) EXPECT_EQ(links[i], site + c.sitePaths[i]);
  EXPECT_EQ(FcpI18nSignInURL("3f2a-9c0d"), site + c.sitePaths[1] + "3f2a-9c0d");
  EXPECT_EQ(FcpI18nDocsURL(), std::string(config::kDocsURL) + c.docsPath);
}

INSTANTIATE_TEST_SUITE_P(
    Languages, LinkTest,
    ::testing::Values(
        LinkCase{0, {"", "/sign-in?from=vask&flowId=", "/sign-up?from=vask", "/terms", "/privacy"},
                 "/fcp/install"},
        LinkCase{1, {"/zh", "/zh/sign-in?from=vask&flowId=", "/zh/sign-up?from=vask", "/zh/terms",
                     "/zh/privacy"}, "/zh/fcp/install"},
        LinkCase{2, {"/zh", "/zh/sign-in?from=vask&flowId=", "/zh/sign-up?from=vask", "/zh/terms",
                     "/zh/privacy"}, "/zh/fcp/install"},
        LinkCase{3, {"/ja", "/ja/sign-in?from=vask&flowId=", "/ja/sign-up?from=vask", "/ja/terms",
                     "/ja/privacy"}, "/ja/fcp/install"},
        LinkCase{4, {"/ko", "/ko/sign-in?from=vask&flowId=", "/ko/sign-up?from=vask", "/ko/terms",
                     "/ko/privacy"}, "/ko/fcp/install"},
        LinkCase{5, {"/pt-BR", "/pt-BR/sign-in?from=vask&flowId=", "/pt-BR/sign-up?from=vask",
                     "/pt-BR/terms", "/pt-BR/privacy"}, "/pt-BR/fcp/install"},
        LinkCase{6, {"/es", "/es/sign-in?from=vask&flowId=", "/es/sign-up?from=vask", "/es/terms",
                     "/es/privacy"}, "/es/fcp/install"},
        LinkCase{7, {"", "/sign-in?from=vask&flowId=", "/sign-up?from=vask", "/terms", "/privacy"},
                 "/fcp/install"}));

}  // namespace
}  // namespace orvistelle::i18n
