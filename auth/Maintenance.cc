#include "auth/Maintenance.h"

#include <atomic>
#include <mutex>

#include "auth/Background.h"
#include "auth/Heartbeat.h"
#include "auth/Http.h"
#include "auth/Json.h"
#include "auth/Session.h"
#include "auth/Settings.h"
#include "auth/Status.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpI18n.h"
#include "platform/Platform.h"

namespace orvistelle::auth {
namespace {

constexpr double kRefreshMarginSeconds = 60;

struct MaintenanceState {
  std::mutex startMutex;
  bool started = false;
  RepeatingTimer timer;
  std::atomic<bool> passRunning{false};
  std::atomic<bool> refreshing{false};
  std::atomic<int64_t> lastRefreshStatus{0};
};

// Never destroyed: the timer's task runs until the process exits.
MaintenanceState& State() {
  static auto* state = new MaintenanceState;
  return *state;
}

double Now() { return platform::Seam<platform::Clock>::Get().Now(); }

// False when the backend refused the refresh token and the session has been ended. A pass that finds another
// refresh in flight skips its own rather than wait.
bool RefreshUnlessRefused() {
  bool idle = false;
  if (!State().refreshing.compare_exchange_strong(idle, true, std::memory_order_acq_rel)) return true;
  bool renewed = RefreshAccess();
  int64_t status = LastRefreshStatus();
  State().refreshing.store(false, std::memory_order_release);
  // No answer or a server error keeps the session: the next pass tries again.
  if (renewed || status == 0 || status >= 500) return true;
  MarkSessionExpired();
  return false;
}

// The timer's handler: a firing that finds the previous pass still at work is skipped, so a request that hangs
// never piles passes (and threads) up behind it.
void RunPassUnlessRunning() {
  bool idle = false;
  if (!State().passRunning.compare_exchange_strong(idle, true, std::memory_order_acq_rel)) return;
  RefreshIfNeeded();
  State().passRunning.store(false, std::memory_order_release);
}

void ShowAccountUnlessError() {
  std::string email = CurrentSession().email;
  SetStatusTextUnlessError(email.empty() ? FcpT("auth.signedIn") : email);
}

}  // namespace

void StartMaintenanceOnce() {
  MaintenanceState& state = State();
  std::lock_guard lock(state.startMutex);
  if (state.started) return;
  state.started = true;
  FcpI18nApplyHostLocale();
  LoadSession();
  if (!FcpAuthHasSession()) SetStatusKey("auth.notSignedIn", false);
  AuthSettings settings = CurrentSettings();
  if (!state.timer.Start(settings.timerFirstDelay, settings.timerPeriod, RunPassUnlessRunning)) {
    platform::Log("could not start the session maintenance timer");
  }
  RunInBackground(RunPassUnlessRunning);
}

void RefreshIfNeeded() {
  ReportHeartbeatIfNeeded();
  if (!FcpAuthHasSession()) return;
  FetchEmailIfNeeded();
  double expiresAt = CurrentSession().expiresAt;
  if (expiresAt > 0 && Now() + kRefreshMarginSeconds >= expiresAt && !RefreshUnlessRefused()) return;
  if (FcpAuthHasSession()) ShowAccountUnlessError();
}

bool RefreshAccess() {
  std::string refresh = CurrentSession().refresh;
  if (refresh.empty()) {
    State().lastRefreshStatus.store(401);
    return false;
  }
  int64_t status = 0;
  std::optional<Json> answer =
      JsonObject(Http("POST", CurrentSettings().authBaseURL + "/auth/v1/token?grant_type=refresh_token",
                      config::kPublicApiKey, Dump({{"refresh_token", refresh}}), config::kPublicApiKey, &status));
  State().lastRefreshStatus.store(status);
  std::optional<std::string> access = answer ? NonEmptyStringMember(*answer, "access_token") : std::nullopt;
  if (status != 200 || !access) return false;
  if (const Json* user = ObjectMember(*answer, "user")) {
    if (std::optional<std::string> email = NonEmptyStringMember(*user, "email")) SetEmail(*email);
  }
  ApplyAccessToken(*access, NonEmptyStringMember(*answer, "refresh_token").value_or(""),
                   NumberMember(*answer, "expires_in"));
  return true;
}

int64_t LastRefreshStatus() { return State().lastRefreshStatus.load(); }

void FetchEmailIfNeeded() {
  Session session = CurrentSession();
  if (!session.email.empty() || session.access.empty()) return;
  int64_t status = 0;
  std::optional<Json> answer = JsonObject(Http("GET", CurrentSettings().authBaseURL + "/auth/v1/user", session.access,
                                               std::nullopt, config::kPublicApiKey, &status));
  std::optional<std::string> email = answer ? NonEmptyStringMember(*answer, "email") : std::nullopt;
  if (status != 200 || !email) return;
  SetEmail(*email);
  SaveSession();
}

void MarkSessionExpired() {
  ClearSessionState();
  SetStatusKey("auth.sessionExpired", true);
  platform::Log("session expired; cleared local credentials");
}

void StopMaintenanceTimer() { State().timer.Stop(); }

void ResetMaintenanceMemory() {
  MaintenanceState& state = State();
  std::lock_guard lock(state.startMutex);
  state.started = false;
  state.passRunning.store(false);
  state.refreshing.store(false);
  state.lastRefreshStatus.store(0);
}

}  // namespace orvistelle::auth

void FcpAuthMaintain() { orvistelle::auth::StartMaintenanceOnce(); }
