// Browser sign-in through the relay table, sign-out, and the website's pages.
#include <chrono>
#include <thread>

#include "auth/Background.h"
#include "auth/Http.h"
#include "auth/Maintenance.h"
#include "auth/Session.h"
#include "auth/Settings.h"
#include "auth/SignIn.h"
#include "auth/Status.h"
#include "auth/Uuid.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpAuth.h"
#include "orvistelle/FcpI18n.h"
#include "platform/DiagnosticsLog.h"
#include "platform/Json.h"
#include "platform/Platform.h"
#include "platform/WebUrl.h"

namespace orvistelle::auth {
using platform::Json, platform::ParseJson, platform::NonEmptyStringMember, platform::ObjectMember;

// The relay answers an array of rows; the first row's "session_payload" carries the website's new session.
std::optional<RelayTokens> ReadRelayAnswer(int64_t status, const std::optional<std::string>& body) {
  std::optional<Json> rows = ParseJson(body);
  if (status != 200 || !rows || !rows->is_array() || rows->empty()) return std::nullopt;
  const Json* payload = ObjectMember(rows->front(), "session_payload");
  if (payload == nullptr) return std::nullopt;
  std::optional<std::string> access = NonEmptyStringMember(*payload, "access_token");
  std::optional<std::string> refresh = NonEmptyStringMember(*payload, "refresh_token");
  if (!access || !refresh) return std::nullopt;
  return RelayTokens{*access, *refresh};
}

namespace {

constexpr int kPollRounds = 30;

std::optional<RelayTokens> FetchRelayTokens(const std::string& relayURL) {
  HttpAnswer reply = Http("GET", relayURL, config::kPublicApiKey, std::nullopt, config::kPublicApiKey);
  return ReadRelayAnswer(reply.status, reply.body);
}

// Ends quietly once another sign-in, a sign-out or an expiry has superseded this attempt.
void PollRelay(const std::string& flowId, uint32_t generation) {
  AuthSettings settings = CurrentSettings();
  std::string relayURL = settings.authBaseURL + "/rest/v1/auth_relay?id=eq." + flowId + "&select=session_payload";
  std::optional<RelayTokens> tokens;
  for (int round = 0; round < kPollRounds && !tokens; ++round) {
    if (CurrentLoginGeneration() != generation) return;
    tokens = FetchRelayTokens(relayURL);
    if (!tokens) std::this_thread::sleep_for(settings.pollInterval);
  }
  if (!tokens) {
    if (CurrentLoginGeneration() == generation) {
      SetBusy(false);
      SetStatusKey("auth.timeoutRetry", true);
    }
    return;
  }
  // A sign-out or a newer sign-in while the answer was on its way has superseded this attempt.
  if (!ApplyAccessToken({tokens->access, tokens->refresh, std::nullopt, ""}, generation, FileRule::kReplace)) return;
  RefreshIfNeeded();
  if (CurrentLoginGeneration() == generation) SetBusy(false);
}

// A refresh token that leaked (a copied home folder, a backup) would otherwise stay good on the backend. This machine
// has forgotten the session already, so an answer other than success changes nothing: it is only noted.
void EndBackendSession(const std::string& accessToken) {
  // An empty body rather than none: a POST without Content-Length is refused by some servers.
  std::string url = CurrentSettings().authBaseURL + "/auth/v1/logout?scope=local";
  int64_t status = Http("POST", url, accessToken, "", "").status;
  platform::Diagnose(status == 204 || status == 200 ? "sign-out: the backend ended the session"
                                                    : "sign-out: the backend answered " + std::to_string(status));
}

// Only well-formed http(s) addresses reach the browser.
void OpenURLString(const std::string& url) {
  if (platform::IsWebUrl(url)) platform::Seam<platform::Browser>::Get().Open(url);
}

}  // namespace
}  // namespace orvistelle::auth

using namespace orvistelle::auth;

void FcpAuthLogin() {
  StartMaintenanceOnce();
  uint32_t generation = NextLoginGeneration();
  SetBusy(true);
  SetStatusKey("auth.waitingBrowser", false);
  std::string flowId = NewLowercaseUUID();
  OpenURLString(FcpI18nSignInURL(flowId.c_str()));
  RunInBackground([flowId, generation] { PollRelay(flowId, generation); });
}

void FcpAuthLogout() {
  const std::string accessToken = CurrentSession().access;
  ClearSessionState();
  SetStatusKey("auth.signedOut", false);
  // Never on the caller's thread: without a thread of its own, the backend is simply not told.
  if (!accessToken.empty()) TryRunInBackground([accessToken] { EndBackendSession(accessToken); });
}

void FcpAuthOpenSignup() { OpenURLString(FcpI18nSignUpURL()); }
void FcpAuthOpenTerms() { OpenURLString(FcpI18nTermsURL()); }
void FcpAuthOpenPrivacy() { OpenURLString(FcpI18nPrivacyURL()); }
void FcpAuthOpenSite() { OpenURLString(FcpI18nSiteURL()); }
void FcpAuthOpenDocs() { OpenURLString(FcpI18nDocsURL()); }
