#include "auth/Settings.h"

#include <mutex>

#include "auth/AuthTesting.h"
#include "orvistelle/BuildConfig.h"
#include "platform/DevOverrides.h"
#include "platform/NoDestructor.h"

namespace orvistelle::auth {
namespace {

AuthSettings WithDevOverrides(AuthSettings settings) {
  if (std::optional<std::string> base = platform::DevBackendBase()) {
    settings.authBaseURL = *base;
    settings.apiBaseURL = *base;
  }
  if (std::optional<std::chrono::milliseconds> period = platform::DevTimerPeriod()) {
    settings.timerFirstDelay = *period;
    settings.timerPeriod = *period;
  }
  return settings;
}

struct GuardedSettings {
  std::mutex mutex;
  AuthSettings settings = WithDevOverrides(ProductionSettings());
};

GuardedSettings& Settings() {
  static platform::NoDestructor<GuardedSettings> settings;
  return *settings;
}

}  // namespace

AuthSettings ProductionSettings() { return {config::kAuthURL, config::kApiURL}; }

AuthSettings CurrentSettings() {
  std::lock_guard lock(Settings().mutex);
  return Settings().settings;
}

std::string UserEndpoint() { return CurrentSettings().authBaseURL + "/auth/v1/user"; }

void SetAuthSettingsForTesting(const AuthSettings& settings) {
  std::lock_guard lock(Settings().mutex);
  Settings().settings = settings;
}

}  // namespace orvistelle::auth
