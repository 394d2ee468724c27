#include "orvistelle/FcpService.h"

#include <exception>
#include <string>

#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpUpdate.h"
#include "platform/DiagnosticsLog.h"
#include "platform/Platform.h"
#include "service/InternedValues.h"

namespace {

using orvistelle::service::InternedValues;

void LogFailure(const char* function, const char* what) noexcept {
  try {
    orvistelle::platform::Log(std::string(function) + " failed: " + what);
  } catch (...) {
    // No memory left even for the line: the host still gets its answer.
  }
}

// Runs the work of the host-facing `function`. An exception from the modules behind it stops here, at the C
// boundary: it becomes one log line and `nothing`, the function's answer for nothing.
template <class Result, class Work>
Result OrNothing(const char* function, Result nothing, Work work) noexcept {
  try {
    return work();
  } catch (const std::exception& failure) {
    LogFailure(function, failure.what());
  } catch (...) {
    LogFailure(function, "an exception of unknown type");
  }
  return nothing;
}

template <class Work>
void OrNothing(const char* function, Work work) noexcept {
  OrNothing(function, false, [&work] {
    work();
    return true;
  });
}

// One set of values per function, never destroyed: a host thread may still ask while the process exits.
template <const char* (*Function)() noexcept>
InternedValues& ValuesOf() {
  static auto& values = *new InternedValues;
  return values;
}

// What `value()` returns, as a C string of `Function` that outlives the call; "" when that failed.
template <const char* (*Function)() noexcept>
const char* InternedOrEmpty(const char* function, std::string (*value)()) noexcept {
  return OrNothing(function, "", [value] { return ValuesOf<Function>().Intern(value()); });
}

}  // namespace

const char* FcpServiceVersion(void) noexcept { return ORVISTELLE_VERSION_STRING; }

void FcpServiceMaintain(void) noexcept {
  // A plug-in host enters here first; its requests then reach the support log as the app's do.
  OrNothing(__func__, orvistelle::platform::StartDiagnosticsLog);
  // Each module maintains itself even when the other failed.
  OrNothing(__func__, FcpAuthMaintain);
  OrNothing(__func__, FcpUpdateMaintain);
}

bool FcpServiceHasSession(void) noexcept { return OrNothing(__func__, false, FcpAuthHasSession); }

void FcpServiceLogin(void) noexcept {
  OrNothing(__func__, [] {
    // A build too old to keep running must not sign in; the host shows the required update instead.
    if (!FcpUpdateForced()) FcpAuthLogin();
  });
}

void FcpServiceLogout(void) noexcept { OrNothing(__func__, FcpAuthLogout); }
bool FcpServiceBusy(void) noexcept { return OrNothing(__func__, false, FcpAuthBusy); }
const char* FcpServiceStatus(void) noexcept { return InternedOrEmpty<FcpServiceStatus>(__func__, FcpAuthStatus); }
bool FcpServiceStatusIsError(void) noexcept { return OrNothing(__func__, false, FcpAuthStatusIsError); }
const char* FcpServiceEmail(void) noexcept { return InternedOrEmpty<FcpServiceEmail>(__func__, FcpAuthEmail); }

void FcpServiceOpenSignUp(void) noexcept { OrNothing(__func__, FcpAuthOpenSignup); }
void FcpServiceOpenDocs(void) noexcept { OrNothing(__func__, FcpAuthOpenDocs); }
void FcpServiceOpenTerms(void) noexcept { OrNothing(__func__, FcpAuthOpenTerms); }
void FcpServiceOpenPrivacy(void) noexcept { OrNothing(__func__, FcpAuthOpenPrivacy); }
void FcpServiceOpenSite(void) noexcept { OrNothing(__func__, FcpAuthOpenSite); }

bool FcpServiceUpdateForced(void) noexcept { return OrNothing(__func__, false, FcpUpdateForced); }
bool FcpServiceUpdateSoftAvailable(void) noexcept { return OrNothing(__func__, false, FcpUpdateSoftAvailable); }
const char* FcpServiceUpdateLatestVersion(void) noexcept {
  return InternedOrEmpty<FcpServiceUpdateLatestVersion>(__func__, FcpUpdateLatestVersion);
}
const char* FcpServiceUpdateNotes(void) noexcept {
  return InternedOrEmpty<FcpServiceUpdateNotes>(__func__, FcpUpdateNotes);
}
void FcpServiceUpdateDismissSoft(void) noexcept { OrNothing(__func__, FcpUpdateDismissSoft); }
void FcpServiceUpdateOpenDownload(void) noexcept { OrNothing(__func__, FcpUpdateOpenDownload); }
