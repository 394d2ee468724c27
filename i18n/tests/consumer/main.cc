// Prints what the localisation module gives a host in the user's language; fails when the catalogue is missing.
#include <cstdio>
#include <string>

#include "orvistelle/FcpI18n.h"

int main() {
  FcpI18nApplyHostLocale();
  std::printf("language %s\n", FcpI18nLangCode());
  const std::string ready = FcpT("shell.stateReady");
  std::printf("%s\n%s\n%s\n", ready.c_str(), FcpTf("shell.version", "1.0.0").c_str(),
              FcpTf("shell.registerFailed", -10).c_str());
  for (const std::string& link : {FcpI18nSiteURL(), FcpI18nDocsURL(), FcpI18nSignInURL("flow"), FcpI18nSignUpURL(),
                                  FcpI18nTermsURL(), FcpI18nPrivacyURL()})
    std::printf("%s\n", link.c_str());
  return ready == "shell.stateReady" ? 1 : 0;
}
