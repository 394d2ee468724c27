// Hooks for the tests only; production code never calls them.
#pragma once

#include "auth/Settings.h"

namespace orvistelle::auth {

// The built-in endpoints and timings, for a test to start from.
AuthSettings ProductionSettings();

void SetAuthSettingsForTesting(const AuthSettings& settings);

// Stops the maintenance timer, ends sign-in polls, waits for every background task to finish, then returns the
// module to its state at process start (settings included), so that each test starts from nothing.
// Background requests in flight are waited for, so a test must let its servers answer or close first.
void ResetAuthForTesting();

}  // namespace orvistelle::auth
