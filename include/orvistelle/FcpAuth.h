// The account session shared by the app and the plug-in: browser sign-in through the relay, the stored session,
// background token renewal, the status line and the daily heartbeat. Hosts reach it through FcpService.h.
// Every function may be called from any thread and returns without waiting on the network.
#pragma once

#include <string>

// Starts background maintenance once per process (later calls do nothing).
void FcpAuthMaintain();
// True when a session with an access token is loaded, loading the session file if needed.
bool FcpAuthHasSession();
bool FcpAuthSignedIn();
// Opens the sign-in page in the browser and waits for the session in the background.
void FcpAuthLogin();
// Forgets the session locally and deletes the session file.
void FcpAuthLogout();

void FcpAuthOpenSignup();
void FcpAuthOpenTerms();
void FcpAuthOpenPrivacy();
void FcpAuthOpenSite();
void FcpAuthOpenDocs();

// A sign-in is in progress.
bool FcpAuthBusy();
// The status line in the current language.
std::string FcpAuthStatus();
bool FcpAuthStatusIsError();
// The signed-in e-mail address, or "".
std::string FcpAuthEmail();
