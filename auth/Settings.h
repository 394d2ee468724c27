// The endpoints and timings the account session runs on. Production always uses the built-in values; only the
// tests replace them (auth/AuthTesting.h), so that a whole day of maintenance can run in milliseconds.
#pragma once

#include <chrono>
#include <string>

namespace orvistelle::auth {

struct AuthSettings {
  std::string authBaseURL;                           // the auth backend ("/auth/v1/...", "/rest/v1/...")
  std::string apiBaseURL;                            // the product API ("/console/v1/...")
  std::chrono::milliseconds pollInterval{1000};      // pause after each unsuccessful sign-in poll
  std::chrono::milliseconds timerFirstDelay{30000};  // from maintenance start to the first timer pass
  std::chrono::milliseconds timerPeriod{30000};      // between timer passes
};

AuthSettings CurrentSettings();

}  // namespace orvistelle::auth
