// The endpoints and timings the account session runs on. Production always uses the built-in values; only the
// tests replace them (auth/AuthTesting.h), so that a whole day of maintenance can run in milliseconds.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace orvistelle::auth {

struct AuthSettings {
  std::string authBaseURL;                           // the auth backend ("/auth/v1/...", "/rest/v1/...")
  std::string apiBaseURL;                            // the product API ("/console/v1/...")
  std::chrono::milliseconds pollInterval{1000};      // pause after each unsuccessful sign-in poll
  std::chrono::milliseconds timerFirstDelay{30000};  // from maintenance start to the first timer pass
  std::chrono::milliseconds timerPeriod{30000};      // between timer passes
  // A refresh that got no answer may have rotated the token all the same, and the backend hands a spent token's
  // successor out again for 10 s: so a silent refresh request is given up early and retried after these pauses.
  std::chrono::milliseconds refreshIdle{6000};
  std::vector<std::chrono::milliseconds> refreshRetryDelays{std::chrono::seconds(1), std::chrono::seconds(2),
                                                            std::chrono::seconds(4)};
  std::chrono::milliseconds lockWait{30000};  // the longest a pass waits for another process's session lock
};

AuthSettings CurrentSettings();

// The backend's account of the signed-in user, which a session's token must open.
std::string UserEndpoint();

}  // namespace orvistelle::auth
