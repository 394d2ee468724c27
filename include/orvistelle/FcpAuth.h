// The account session shared by the app and the plug-in: browser sign-in through the relay, the stored session,
// background token renewal, the status line and the daily heartbeat. Hosts reach it through FcpService.h.
// Every function may be called from any thread and returns without waiting on the network.
#pragma once

#include <string>

// Starts background maintenance once per process (later calls do nothing): loads the stored session, then keeps it
// renewed, reports the daily heartbeat and keeps the status line current, at once and every 30 s.
void FcpAuthMaintain();
// True when both an access and a refresh token are held; when none are, the session file is read first, so a file
// written by another process is picked up.
bool FcpAuthHasSession();
// The same as FcpAuthHasSession.
bool FcpAuthSignedIn();
// Starts maintenance if needed, opens the sign-in page in the browser and waits for the session in the background;
// a later sign-in or a sign-out supersedes it.
void FcpAuthLogin();
// Forgets the session and deletes the session file at once; in the background, asks the backend to end the
// session, so that a copy of its refresh token left elsewhere is refused too.
void FcpAuthLogout();

// The website's pages, in the current interface language.

void FcpAuthOpenSignup();
void FcpAuthOpenTerms();
void FcpAuthOpenPrivacy();
void FcpAuthOpenSite();
void FcpAuthOpenDocs();

// A sign-in is in progress.
bool FcpAuthBusy();
// The status line: a message in the current language, or the account's e-mail address.
std::string FcpAuthStatus();
// The status line reports a failure; it stays until sign-in, sign-out or an expiry replaces it.
bool FcpAuthStatusIsError();
// The signed-in e-mail address, or "".
std::string FcpAuthEmail();
