#include "auth/Maintenance.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "auth/Background.h"
#include "auth/Heartbeat.h"
#include "auth/Http.h"
#include "auth/Session.h"
#include "auth/SessionFileLock.h"
#include "auth/Settings.h"
#include "auth/Status.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpI18n.h"
#include "platform/Json.h"
#include "platform/NoDestructor.h"
#include "platform/Platform.h"
#include "platform/SupportFolder.h"

namespace orvistelle::auth {
using platform::Json, platform::JsonObject, platform::NonEmptyStringMember, platform::NumberMember,
    platform::ObjectMember, platform::Dump;
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
  static platform::NoDestructor<MaintenanceState> state;
  return *state;
}

double Now() { return platform::Seam<platform::Clock>::Get().Now(); }

bool ExpiresSoon(const Session& session) {
  return session.expiresAt > 0 && Now() + kRefreshMarginSeconds >= session.expiresAt;
}

// Another process sharing the session file may have refreshed the session or signed out since the last look.
// False when it signed out: this process then forgets the session too.
bool FollowOtherProcesses() {
  if (FollowSessionFile() != SessionFileChange::kSignedOut) return true;
  SetStatusKey("auth.signedOut", false);
  return false;
}

// A refresh that got no answer may have rotated the token all the same: it is sent again while the backend still
// hands the spent token's successor out. Nothing when another process signed out in the meantime.
std::optional<RefreshOutcome> RefreshRetryingLostAnswers() {
  RefreshOutcome outcome = RefreshAccess();
  for (std::chrono::milliseconds delay : CurrentSettings().refreshRetryDelays) {
    if (outcome.status != 0) break;
    std::this_thread::sleep_for(delay);
    if (!FollowOtherProcesses()) return std::nullopt;
    outcome = RefreshAccess();
  }
  return outcome;
}

// Under the file lock, so that of all the processes sharing the file, one refreshes and the others adopt its answer
// instead of presenting the spent refresh token. A lock that another process keeps past the wait (a process stopped
// mid-refresh) is left to the next pass for the same reason. False when the session has ended.
bool RefreshUnderFileLock() {
  SessionFileLock fileLock;
  if (!fileLock.Held()) return true;
  if (!FollowOtherProcesses()) return false;
  if (!ExpiresSoon(CurrentSession())) return true;
  std::optional<RefreshOutcome> outcome = RefreshRetryingLostAnswers();
  // A sign-out in another process while the request was out wins over its answer.
  if (!outcome || !FollowOtherProcesses()) return false;
  // No answer or a server error keeps the session: the next pass tries again.
  if (outcome->renewed || outcome->status == 0 || outcome->status >= 500) return true;
  MarkSessionExpired(outcome->generation);
  return false;
}

// False when the session has ended. A pass that finds another refresh of this process in flight skips its own
// rather than wait.
bool RefreshUnlessRefused() {
  bool idle = false;
  if (!State().refreshing.compare_exchange_strong(idle, true, std::memory_order_acq_rel)) return true;
  bool kept = RefreshUnderFileLock();
  State().refreshing.store(false, std::memory_order_release);
  return kept;
}

// A host that quits between the backend's rotating the refresh token and the save of its successor would leave the
// spent token in the file, and the next process to refresh would present it and lose the session. So exiting waits
// a little for a refresh under way to be saved, and keeps the flag, so that no timer firing during the exit starts
// another.
void WaitForRefreshUnderWay() {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  for (bool idle = false; !State().refreshing.compare_exchange_strong(idle, true, std::memory_order_acq_rel);
       idle = false) {
    if (std::chrono::steady_clock::now() >= deadline) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
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
  static std::once_flag exitHandler;
  std::call_once(exitHandler, [] {
    if (std::atexit(WaitForRefreshUnderWay) != 0) platform::Log("could not wait for refreshes at exit");
  });
  FcpI18nApplyHostLocale();
  platform::MoveEarlierStateFiles();
  LoadSession();
  if (FcpAuthHasSession()) {
    ShowAccountUnlessError();
  } else {
    SetStatusKey("auth.notSignedIn", false);
  }
  AuthSettings settings = CurrentSettings();
  if (!state.timer.Start(settings.timerFirstDelay, settings.timerPeriod, RunPassUnlessRunning)) {
    platform::Log("could not start the session maintenance timer");
  }
  RunInBackground(RunPassUnlessRunning);
}

void RefreshIfNeeded() {
  ReportHeartbeatIfNeeded();
  if (!FcpAuthHasSession() || !FollowOtherProcesses()) return;
  FetchEmailIfNeeded();
  if (ExpiresSoon(CurrentSession()) && !RefreshUnlessRefused()) return;
  if (FcpAuthHasSession()) ShowAccountUnlessError();
}

RefreshOutcome RefreshAccess() {
  SessionSnapshot held = SnapshotSession();
  RefreshOutcome outcome{false, 401, held.generation};
  if (held.session.refresh.empty()) {
    State().lastRefreshStatus.store(outcome.status);
    return outcome;
  }
  AuthSettings settings = CurrentSettings();
  std::string url = settings.authBaseURL + "/auth/v1/token?grant_type=refresh_token";
  HttpAnswer reply = Http("POST", url, config::kPublicApiKey, Dump({{"refresh_token", held.session.refresh}}),
                          config::kPublicApiKey, settings.refreshIdle);
  outcome.status = reply.status;
  std::optional<Json> answer = JsonObject(reply.body);
  State().lastRefreshStatus.store(outcome.status);
  std::optional<std::string> access = answer ? NonEmptyStringMember(*answer, "access_token") : std::nullopt;
  if (outcome.status != 200 || !access) return outcome;
  const Json* user = ObjectMember(*answer, "user");
  IssuedTokens tokens{*access, NonEmptyStringMember(*answer, "refresh_token").value_or(""),
                      NumberMember(*answer, "expires_in"),
                      user != nullptr ? NonEmptyStringMember(*user, "email").value_or("") : ""};
  outcome.renewed = ApplyAccessToken(tokens, held.generation, FileRule::kOnlyIfUnchanged);
  return outcome;
}

int64_t LastRefreshStatus() { return State().lastRefreshStatus.load(); }

void FetchEmailIfNeeded() {
  SessionSnapshot held = SnapshotSession();
  if (!held.session.email.empty() || held.session.access.empty()) return;
  HttpAnswer reply = Http("GET", UserEndpoint(), held.session.access, std::nullopt, config::kPublicApiKey);
  std::optional<Json> answer = JsonObject(reply.body);
  std::optional<std::string> email = answer ? NonEmptyStringMember(*answer, "email") : std::nullopt;
  if (reply.status == 200 && email) SaveEmail(*email, held.generation);
}

void MarkSessionExpired(uint32_t generation) {
  if (!ClearSessionStateIfCurrent(generation)) return;
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
