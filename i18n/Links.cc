#include <iterator>
#include <string>
#include <string_view>

#include "i18n/Language.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpI18n.h"

namespace {

// The site has pages of its own for six languages. Traditional Chinese shares the Simplified pages, Portuguese
// always gets the Brazilian ones, and German has none, so it reads the English pages.
std::string_view LanguagePrefix() {
  using namespace orvistelle::i18n;
  static constexpr std::string_view kPrefixes[] = {"", "/zh", "/zh", "/ja", "/ko", "/pt-BR", "/es", ""};
  static_assert(std::size(kPrefixes) == kLanguageCount);
  return kPrefixes[Column(CurrentLanguage())];
}

std::string SitePage(std::string_view path) {
  std::string url = orvistelle::config::kSiteURL;
  url += LanguagePrefix();
  url += path;
  return url;
}

}  // namespace

std::string FcpI18nSiteURL() { return SitePage(""); }

std::string FcpI18nDocsURL() {
  std::string url = orvistelle::config::kDocsURL;
  url += LanguagePrefix();
  url += "/fcp/install";
  return url;
}

std::string FcpI18nSignInURL(const char* flowId) {
  return SitePage("/sign-in?from=vask&flowId=") + (flowId != nullptr ? flowId : "");
}

std::string FcpI18nSignUpURL() { return SitePage("/sign-up?from=vask"); }
std::string FcpI18nTermsURL() { return SitePage("/terms"); }
std::string FcpI18nPrivacyURL() { return SitePage("/privacy"); }
