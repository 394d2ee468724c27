// Prints what a host shows before anything has run; fails when the catalogue is missing.
#include <cstdio>
#include <string>

#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpI18n.h"
#include "orvistelle/FcpUpdate.h"

int main() {
  FcpI18nApplyHostLocale();
  const std::string ready = FcpT("shell.stateReady");
  std::printf("language %s %s %s %s status=%s forced=%d\n", FcpI18nLangCode(), ready.c_str(),
              FcpTf("shell.registerFailed", -10).c_str(), FcpI18nSignInURL("flow").c_str(), FcpAuthStatus().c_str(),
              FcpUpdateForced());
  return ready == "shell.stateReady" ? 1 : 0;
}
