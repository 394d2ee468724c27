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

struct RefreshOutcome {
  bool renewed = false;     // new tokens were installed
  int64_t status = 0;       // 0 without an answer, 401 when there was no refresh token to send
  uint32_t generation = 0;  // of the session whose refresh token was sent
};
// One refresh-token grant. An answer that arrives after a sign-out or a newer sign-in is dropped.
RefreshOutcome RefreshAccess();
// The status of the last refresh attempt.
int64_t LastRefreshStatus();
void FetchEmailIfNeeded();
// Ends the session as refused by the backend, unless a sign-out or a newer sign-in has begun since `generation`.
void MarkSessionExpired(uint32_t generation);

// For the tests' reset: asks the timer to stop; once background tasks have ended, forgets everything.
void StopMaintenanceTimer();
void ResetMaintenanceMemory();

}  // namespace orvistelle::auth
