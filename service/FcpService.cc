#include "orvistelle/FcpService.h"

#include <mutex>
#include <string>
#include <unordered_set>

#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpUpdate.h"

namespace {

// Hosts may keep a returned pointer for as long as they run, so every distinct value is kept for the life of the
// process; the set stays small (status lines, versions, one e-mail). Never destroyed, as a host thread may still
// ask while the process exits. The set's nodes do not move when it grows, so the pointers stay valid.
const char* Intern(std::string value) {
  static auto* lock = new std::mutex;
  static auto* values = new std::unordered_set<std::string>;
  std::lock_guard guard(*lock);
  return values->insert(std::move(value)).first->c_str();
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
const char* FcpServiceStatus(void) { return Intern(FcpAuthStatus()); }
bool FcpServiceStatusIsError(void) { return FcpAuthStatusIsError(); }
const char* FcpServiceEmail(void) { return Intern(FcpAuthEmail()); }

void FcpServiceOpenSignUp(void) { FcpAuthOpenSignup(); }
void FcpServiceOpenDocs(void) { FcpAuthOpenDocs(); }
void FcpServiceOpenTerms(void) { FcpAuthOpenTerms(); }
void FcpServiceOpenPrivacy(void) { FcpAuthOpenPrivacy(); }
void FcpServiceOpenSite(void) { FcpAuthOpenSite(); }

bool FcpServiceUpdateForced(void) { return FcpUpdateForced(); }
bool FcpServiceUpdateSoftAvailable(void) { return FcpUpdateSoftAvailable(); }
const char* FcpServiceUpdateLatestVersion(void) { return Intern(FcpUpdateLatestVersion()); }
const char* FcpServiceUpdateNotes(void) { return Intern(FcpUpdateNotes()); }
void FcpServiceUpdateDismissSoft(void) { FcpUpdateDismissSoft(); }
void FcpServiceUpdateOpenDownload(void) { FcpUpdateOpenDownload(); }
