/* Compiled as C99 with -pedantic-errors: a C host must be able to include the header and call every function. */
#include <stddef.h>
#include <string.h>

#include "orvistelle/FcpService.h"

/* "" when every call behaved, else what went wrong. Expects a fresh process state: no session, no manifest. */
const char* CallEveryServiceFunctionFromC(void) {
  const char* strings[4];
  size_t i;
  if (FcpServiceHasSession() || FcpServiceBusy() || FcpServiceStatusIsError()) return "a session before any sign-in";
  if (FcpServiceUpdateForced() || FcpServiceUpdateSoftAvailable()) return "an update before any manifest";
  FcpServiceMaintain();
  FcpServiceLogin();
  FcpServiceLogout();
  FcpServiceOpenSignUp();
  FcpServiceOpenDocs();
  FcpServiceOpenTerms();
  FcpServiceOpenPrivacy();
  FcpServiceOpenSite();
  FcpServiceUpdateDismissSoft();
  FcpServiceUpdateOpenDownload();
  strings[0] = FcpServiceStatus();
  strings[1] = FcpServiceEmail();
  strings[2] = FcpServiceUpdateLatestVersion();
  strings[3] = FcpServiceUpdateNotes();
  for (i = 0; i < sizeof strings / sizeof strings[0]; ++i) {
    if (strings[i] == NULL) return "a string function returned NULL";
  }
  if (strings[0][0] == '\0') return "an empty status line";
  if (strcmp(strings[1], "") != 0 || strcmp(strings[2], "") != 0 || strcmp(strings[3], "") != 0) {
    return "e-mail, latest version or notes before they are known";
  }
  if (strcmp(FcpServiceVersion(), ORVISTELLE_VERSION_STRING) != 0) return "a library version unlike the headers'";
  return "";
}
