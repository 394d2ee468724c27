#include "auth/Settings.h"

#include <mutex>

#include "auth/AuthTesting.h"
#include "auth/Background.h"
#include "auth/Heartbeat.h"
#include "auth/Maintenance.h"
#include "auth/Session.h"
#include "auth/Status.h"
#include "orvistelle/BuildConfig.h"

namespace orvistelle::auth {
namespace {

struct GuardedSettings {
  std::mutex mutex;
  AuthSettings settings = ProductionSettings();
};

GuardedSettings& Settings() {
  static auto* settings = new GuardedSettings;
  return *settings;
}

}  // namespace

AuthSettings ProductionSettings() { return {config::kAuthURL, config::kApiURL}; }

AuthSettings CurrentSettings() {
  std::lock_guard lock(Settings().mutex);
  return Settings().settings;
}

void SetAuthSettingsForTesting(const AuthSettings& settings) {
  std::lock_guard lock(Settings().mutex);
  Settings().settings = settings;
}

void ResetAuthForTesting() {
  StopMaintenanceTimer();
  NextLoginGeneration();  // running sign-in polls end at their next round
  WaitForBackgroundTasks();
  ResetMaintenanceMemory();
  ResetHeartbeatMemory();
  ResetSessionMemory();
  ResetStatus();
  SetAuthSettingsForTesting(ProductionSettings());
}

}  // namespace orvistelle::auth
