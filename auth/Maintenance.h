// Keeps the session alive in the background: one pass at start and then on a 30 s timer.
#pragma once

#include <cstdint>

namespace orvistelle::auth {

// The once-per-process start shared by maintenance and browser sign-in. Runs on the caller's thread; concurrent
// callers wait until the first has finished it.
void StartMaintenanceOnce();

// One maintenance pass: the heartbeat, the e-mail when unknown, a refresh when the access token expires within
// 60 s, then the account on the status line. Blocks on the network.
void RefreshIfNeeded();

// One refresh-token grant; true when new tokens were installed.
bool RefreshAccess();
// The HTTP status of the last refresh attempt: 0 without an answer, 401 when there was no refresh token to send.
int64_t LastRefreshStatus();
void FetchEmailIfNeeded();
void MarkSessionExpired();

// For the tests' reset: asks the timer to stop; once background tasks have ended, forgets everything.
void StopMaintenanceTimer();
void ResetMaintenanceMemory();

}  // namespace orvistelle::auth
