#include "auth/AuthTesting.h"

#include "auth/Background.h"
#include "auth/Heartbeat.h"
#include "auth/Maintenance.h"
#include "auth/Session.h"
#include "auth/Status.h"

namespace orvistelle::auth {

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
