// Reads the account and update state a host shows before anything has run: no file is read, no request is sent.
#include <cstdio>
#include <string>

#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpI18n.h"
#include "orvistelle/FcpUpdate.h"

int main() {
  FcpI18nApplyHostLocale();
  std::printf("status=%s error=%d busy=%d email=[%s]\n", FcpAuthStatus().c_str(), FcpAuthStatusIsError(),
              FcpAuthBusy(), FcpAuthEmail().c_str());
  std::printf("forced=%d soft=%d latest=[%s]\n", FcpUpdateForced(), FcpUpdateSoftAvailable(),
              FcpUpdateLatestVersion().c_str());
  return 0;
}
