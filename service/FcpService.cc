#include "orvistelle/FcpService.h"

#include <string>

#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpUpdate.h"
#include "service/InternedValues.h"

namespace {

using orvistelle::service::InternedValues;

// One set of values per function, never destroyed: a host thread may still ask while the process exits.
template <const char* (*Function)()>
InternedValues& ValuesOf() {
  static auto& values = *new InternedValues;
  return values;
}

}  // namespace

const char* FcpServiceVersion(void) { return ORVISTELLE_VERSION_STRING; }

void FcpServiceMaintain(void) {
  FcpAuthMaintain();
  FcpUpdateMaintain();
}

bool FcpServiceHasSession(void) { return FcpAuthHasSession(); }

void FcpServiceLogin(void) {
  // A build too old to keep running must not sign in; the host shows the required update instead.
  if (FcpUpdateForced()) return;
  FcpAuthLogin();
}

void FcpServiceLogout(void) { FcpAuthLogout(); }
bool FcpServiceBusy(void) { return FcpAuthBusy(); }
const char* FcpServiceStatus(void) { return ValuesOf<FcpServiceStatus>().Intern(FcpAuthStatus()); }
bool FcpServiceStatusIsError(void) { return FcpAuthStatusIsError(); }
const char* FcpServiceEmail(void) { return ValuesOf<FcpServiceEmail>().Intern(FcpAuthEmail()); }

void FcpServiceOpenSignUp(void) { FcpAuthOpenSignup(); }
void FcpServiceOpenDocs(void) { FcpAuthOpenDocs(); }
void FcpServiceOpenTerms(void) { FcpAuthOpenTerms(); }
void FcpServiceOpenPrivacy(void) { FcpAuthOpenPrivacy(); }
void FcpServiceOpenSite(void) { FcpAuthOpenSite(); }

bool FcpServiceUpdateForced(void) { return FcpUpdateForced(); }
bool FcpServiceUpdateSoftAvailable(void) { return FcpUpdateSoftAvailable(); }
const char* FcpServiceUpdateLatestVersion(void) {
  return ValuesOf<FcpServiceUpdateLatestVersion>().Intern(FcpUpdateLatestVersion());
}
const char* FcpServiceUpdateNotes(void) { return ValuesOf<FcpServiceUpdateNotes>().Intern(FcpUpdateNotes()); }
void FcpServiceUpdateDismissSoft(void) { FcpUpdateDismissSoft(); }
void FcpServiceUpdateOpenDownload(void) { FcpUpdateOpenDownload(); }
