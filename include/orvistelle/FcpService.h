/* The service interface: the one flat set of functions through which a host, the companion application or the
   effect's plug-in in another process, drives the account session and the update check. It is plain C, so that
   C, C++ and Objective-C hosts can all include it; it is built into liborvistelle-service.so and into a static
   library.

   Conventions:
   (1) Every function may be called from any thread and returns without blocking on the network: requests run on
       background threads inside the library. None takes an argument and none reports failure; problems show in
       the status line and the system log.
   (2) A returned string is never NULL and is UTF-8. The library owns it: the caller never frees it, and it stays
       valid and unchanged until the same function has returned FCP_SERVICE_KEPT_STRINGS other values after it,
       which in practice is the life of the process; a host that keeps strings across many changes copies them.
       "" stands for nothing.
   (3) Results that change in the background (status, busy flag, e-mail, update state) are read as they stand at
       the moment of the call; a host that shows them reads them again.
   (4) Only the functions declared here are exported from the shared library.
   (5) No exception ever leaves a function (they are noexcept to C++ hosts): a failure inside the library becomes
       the function's answer for nothing (false, "", no action) and a line in the system log.
   (6) The shared library is never unloaded: its background threads outlive any call, so it is linked to stay
       mapped and a host's dlclose leaves it in place.
*/
#ifndef ORVISTELLE_FCP_SERVICE_H_
#define ORVISTELLE_FCP_SERVICE_H_

#include <stdbool.h>

#include "orvistelle/Version.h"

#if defined(__GNUC__)
#define FCP_SERVICE_EXPORT __attribute__((visibility("default")))
#else
#define FCP_SERVICE_EXPORT
#endif

#ifdef __cplusplus
#define FCP_SERVICE_NOEXCEPT noexcept
#else
#define FCP_SERVICE_NOEXCEPT
#endif

/* How many other values one function returns before a string it returned earlier may be freed; see (2). */
#define FCP_SERVICE_KEPT_STRINGS 16

#ifdef __cplusplus
extern "C" {
#endif

/* Starts the account maintenance (once per process) and an update check (unless one ran in the last six hours or
   one is running). Cheap to repeat: call it at every start of the host's interface. */
FCP_SERVICE_EXPORT void FcpServiceMaintain(void) FCP_SERVICE_NOEXCEPT;

/* The library's own version, "major.minor.patch": ORVISTELLE_VERSION_STRING of the build it came from, which may
   differ from the headers a host was compiled with. */
FCP_SERVICE_EXPORT const char* FcpServiceVersion(void) FCP_SERVICE_NOEXCEPT;

/* --- Account session --- */

FCP_SERVICE_EXPORT bool FcpServiceHasSession(void) FCP_SERVICE_NOEXCEPT;
/* Opens the sign-in page in the browser and waits for the session in the background. Does nothing at all while
   an update is required (FcpServiceUpdateForced): the host shows the update instead. */
FCP_SERVICE_EXPORT void FcpServiceLogin(void) FCP_SERVICE_NOEXCEPT;
/* Forgets the session on this machine at once, and asks the backend in the background to end it. */
FCP_SERVICE_EXPORT void FcpServiceLogout(void) FCP_SERVICE_NOEXCEPT;
/* A sign-in is in progress. */
FCP_SERVICE_EXPORT bool FcpServiceBusy(void) FCP_SERVICE_NOEXCEPT;
/* The account status line in the interface language, and whether it reports an error. */
FCP_SERVICE_EXPORT const char* FcpServiceStatus(void) FCP_SERVICE_NOEXCEPT;
FCP_SERVICE_EXPORT bool FcpServiceStatusIsError(void) FCP_SERVICE_NOEXCEPT;
/* The signed-in e-mail address, or "". */
FCP_SERVICE_EXPORT const char* FcpServiceEmail(void) FCP_SERVICE_NOEXCEPT;

/* --- The product's web pages, in the interface language, opened in the default browser --- */

FCP_SERVICE_EXPORT void FcpServiceOpenSignUp(void) FCP_SERVICE_NOEXCEPT;
FCP_SERVICE_EXPORT void FcpServiceOpenDocs(void) FCP_SERVICE_NOEXCEPT;
FCP_SERVICE_EXPORT void FcpServiceOpenTerms(void) FCP_SERVICE_NOEXCEPT;
FCP_SERVICE_EXPORT void FcpServiceOpenPrivacy(void) FCP_SERVICE_NOEXCEPT;
FCP_SERVICE_EXPORT void FcpServiceOpenSite(void) FCP_SERVICE_NOEXCEPT;

/* --- Update check --- */

/* This version is too old to keep running; nothing is forced before the first manifest has loaded. */
FCP_SERVICE_EXPORT bool FcpServiceUpdateForced(void) FCP_SERVICE_NOEXCEPT;
/* A newer, optional version exists and has not been put off. */
FCP_SERVICE_EXPORT bool FcpServiceUpdateSoftAvailable(void) FCP_SERVICE_NOEXCEPT;
/* The latest version and its release notes, "" until the first manifest has loaded. */
FCP_SERVICE_EXPORT const char* FcpServiceUpdateLatestVersion(void) FCP_SERVICE_NOEXCEPT;
FCP_SERVICE_EXPORT const char* FcpServiceUpdateNotes(void) FCP_SERVICE_NOEXCEPT;
/* Puts the offered optional update off for 24 hours, across restarts; a newer version is offered at once. */
FCP_SERVICE_EXPORT void FcpServiceUpdateDismissSoft(void) FCP_SERVICE_NOEXCEPT;
/* Opens the download in the default browser. */
FCP_SERVICE_EXPORT void FcpServiceUpdateOpenDownload(void) FCP_SERVICE_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif /* ORVISTELLE_FCP_SERVICE_H_ */
