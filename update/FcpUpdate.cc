#include "orvistelle/FcpUpdate.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <variant>

#include "orvistelle/BuildConfig.h"
#include "platform/DevOverrides.h"
#include "platform/DiagnosticsLog.h"
#include "platform/HttpTransport.h"
#include "platform/NoDestructor.h"
#include "platform/Platform.h"
#include "platform/WebUrl.h"
#include "update/DismissalFile.h"
#include "update/Manifest.h"
#include "update/ManifestSignature.h"
#include "update/Report.h"
#include "update/UpdateTesting.h"
#include "update/Version.h"

namespace orvistelle::update {
namespace {

using namespace std::chrono_literals;

constexpr double kCheckInterval = 21600.0;  // six hours between attempts, failed or not
constexpr double kDismissDuration = 86400.0;
constexpr char kManifestPath[] = "/orvistelle/vask/latest.json";

// This platform's package at its fixed address, for when no manifest names a direct download.
std::string FallbackDownloadPath() {
  return std::string("/orvistelle/vask/fcp/orvistelle-fcp-") + platform::kPlatformName + "-latest" +
         platform::kPackageExtension;
}

std::string BuiltInDownloadBase() { return platform::DevBackendBase().value_or(config::kDownloadURL); }

// Never destroyed: a check still in flight when the process exits may write into it.
struct ModuleState {
  // Guards the members down to publicKeyForTesting; accessors and a finishing check exclude each other.
  std::mutex lock;
  std::string downloadBase = BuiltInDownloadBase();
  std::string latest;
  std::string forceBelow;
  std::string notes;
  std::string downloadPage;
  std::string download;
  std::string softDismissVersion;
  double softDismissUntil = 0;
  SignatureState signature = SignatureState::kNotChecked;
  std::optional<std::string> publicKeyForTesting;

  std::mutex loadLock;
  bool dismissalLoaded = false;
};

ModuleState& Module() {
  static platform::NoDestructor<ModuleState> state;
  return *state;
}

std::atomic<double> gLastCheck{0};  // the last attempt; 0 = never
std::atomic<bool> gChecking{false};

double Now() { return platform::Seam<platform::Clock>::Get().Now(); }

std::string FallbackDownloadLocked() { return Module().downloadBase + FallbackDownloadPath(); }

char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool StartsWithNoCase(std::string_view text, std::string_view lowerPrefix) {
  return text.size() >= lowerPrefix.size() && std::equal(lowerPrefix.begin(), lowerPrefix.end(), text.begin(),
                                                         [](char a, char b) { return a == AsciiLower(b); });
}

// Should the signing key leak, or a development build take a manifest unsigned, the browser is still sent only to
// this product's own servers: over https (plain http in a development build), on the download server's host or the
// website's.
bool IsOwnDownloadLocked(std::string_view url) {
  bool secure = StartsWithNoCase(url, "https://") || (!config::kReleaseBuild && StartsWithNoCase(url, "http://"));
  std::optional<std::string> host = platform::WebUrlHost(url);
  return secure && host &&
         (host == platform::WebUrlHost(Module().downloadBase) || host == platform::WebUrlHost(config::kSiteURL));
}

bool ForcedLocked(const std::string& current) {
  const std::string& forceBelow = Module().forceBelow;
  return !forceBelow.empty() && CmpSemver(current, forceBelow) == -1;
}

// The only load of the process, so a dismissal from an earlier run holds before the first manifest arrives.
void LoadDismissalOnce() {
  ModuleState& state = Module();
  std::lock_guard once(state.loadLock);
  if (state.dismissalLoaded) return;
  state.dismissalLoaded = true;
  std::optional<Dismissal> dismissal = LoadDismissal();
  if (!dismissal) return;
  std::lock_guard guard(state.lock);
  state.softDismissVersion = std::move(dismissal->version);
  state.softDismissUntil = dismissal->until;
}

void StoreHostEntry(HostEntry entry) {
  ModuleState& state = Module();
  std::lock_guard guard(state.lock);
  state.latest = std::move(entry.version);
  state.forceBelow = std::move(entry.forceBelow);
  state.notes = std::move(entry.notes);
  state.downloadPage = IsOwnDownloadLocked(entry.downloadPage) ? std::move(entry.downloadPage) : "";
  bool ownDownload = entry.download && IsOwnDownloadLocked(*entry.download);
  state.download = ownDownload ? std::move(*entry.download) : FallbackDownloadLocked();
}

// Empty when this build checks no signature.
std::string PublicKey() {
  {
    std::lock_guard guard(Module().lock);
    if (Module().publicKeyForTesting) return *Module().publicKeyForTesting;
  }
  return platform::DevUpdateKey().value_or(config::kUpdatePublicKey);
}

bool IsAnswer(const platform::HttpResponse& response) {
  return response.status == 200 && response.body && !response.body->empty();
}

SignatureState CheckSignature(const std::string& manifest, const std::string& signatureURL) {
  std::string key = PublicKey();
  if (key.empty()) {
    static std::once_flag noted;
    std::call_once(noted, [] { platform::Diagnose("update check: no update key in this build, manifests unsigned"); });
    return SignatureState::kNoKey;
  }
  platform::HttpResponse signature = platform::HttpSend(ManifestRequest(signatureURL));
  if (!IsAnswer(signature)) return SignatureState::kMissing;
  return VerifyEd25519(manifest, *signature.body, key) ? SignatureState::kVerified : SignatureState::kWrong;
}

// Every failure keeps the last good answer; the next attempt comes after the usual six hours. Nothing of a manifest
// without a good signature is used.
void ApplyResponse(const platform::HttpResponse& response, SignatureState signature) {
  if (!IsAnswer(response)) {
    platform::Log("update check failed (" + std::to_string(response.status) + ")");
    return;
  }
  {
    std::lock_guard guard(Module().lock);
    Module().signature = signature;
  }
  if (signature == SignatureState::kMissing || signature == SignatureState::kWrong) {
    platform::Log("update check: bad signature");
    return;
  }
  ManifestReading reading = ReadManifest(*response.body);
  if (std::holds_alternative<NotAnObject>(reading)) return;
  HostEntry* entry = std::get_if<HostEntry>(&reading);
  if (entry == nullptr) {
    platform::Log(std::string("update check: missing hosts.") + kHostKey);
    return;
  }
  std::string line =
      std::string("update check host=") + kHostKey + " latest=" + entry->version + " force_below=" + entry->forceBelow;
  StoreHostEntry(std::move(*entry));
  platform::Log(line);
}

void RunCheck(const std::string& manifestURL) {
  platform::HttpResponse response = platform::HttpSend(ManifestRequest(manifestURL));
  SignatureState signature = SignatureState::kNotChecked;
  if (IsAnswer(response)) signature = CheckSignature(*response.body, manifestURL + ".sig");
  gLastCheck.store(Now());
  ApplyResponse(response, signature);
  gChecking.store(false);
}

// A dismissal never reaches further than a day ahead: one made while the clock ran fast would otherwise hide the
// update for as long after the clock was put right.
bool DismissalHoldsLocked(double now) {
  double until = Module().softDismissUntil;
  return now < until && until - now <= kDismissDuration;
}

void StartCheck() {
  std::string manifestURL = ManifestURL();
  try {
    std::thread(RunCheck, std::move(manifestURL)).detach();
  } catch (const std::system_error&) {
    gChecking.store(false);
  }
}

}  // namespace

std::string ManifestURL() {
  std::lock_guard guard(Module().lock);
  return Module().downloadBase + kManifestPath;
}

void SetUpdatePublicKeyForTesting(std::optional<std::string> publicKeyBase64) {
  std::lock_guard guard(Module().lock);
  Module().publicKeyForTesting = std::move(publicKeyBase64);
}

UpdateReport CheckNowAndReport() {
  LoadDismissalOnce();
  bool idle = false;
  if (gChecking.compare_exchange_strong(idle, true)) {
    gLastCheck.store(Now());
    RunCheck(ManifestURL());
  }
  SignatureState signature = SignatureState::kNotChecked;
  {
    std::lock_guard guard(Module().lock);
    signature = Module().signature;
  }
  return {signature, FcpUpdateLatestVersion(), FcpUpdateForced(), FcpUpdateSoftAvailable()};
}

void SetDownloadBaseURLForTesting(std::string baseURL) {
  std::lock_guard guard(Module().lock);
  Module().downloadBase = baseURL.empty() ? std::string(config::kDownloadURL) : std::move(baseURL);
}

bool WaitForCheckForTesting(std::chrono::milliseconds limit) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (gChecking.load()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

void ResetForTesting() {
  WaitForCheckForTesting(20s);
  ModuleState& state = Module();
  {
    std::lock_guard once(state.loadLock);
    state.dismissalLoaded = false;
  }
  std::lock_guard guard(state.lock);
  state.downloadBase = config::kDownloadURL;
  for (std::string* value : {&state.latest, &state.forceBelow, &state.notes, &state.downloadPage, &state.download,
                             &state.softDismissVersion}) {
    value->clear();
  }
  state.softDismissUntil = 0;
  state.signature = SignatureState::kNotChecked;
  state.publicKeyForTesting.reset();
  gLastCheck.store(0);
}

}  // namespace orvistelle::update

using namespace orvistelle;
using namespace orvistelle::update;

void FcpUpdateMaintain() {
  LoadDismissalOnce();
  double now = Now();
  double last = gLastCheck.load();
  if (last > 0 && now - last < kCheckInterval) return;
  bool idle = false;
  if (!gChecking.compare_exchange_strong(idle, true)) return;
  gLastCheck.store(now);
  StartCheck();
}

bool FcpUpdateForced() {
  std::lock_guard guard(Module().lock);
  return ForcedLocked(CurrentVersion());
}

bool FcpUpdateSoftAvailable() {
  ModuleState& state = Module();
  std::lock_guard guard(state.lock);
  if (state.latest.empty()) return false;
  std::string current = CurrentVersion();
  if (CmpSemver(current, state.latest) != -1) return false;
  // A required update is shown as required, never also offered as an optional one.
  if (ForcedLocked(current)) return false;
  if (state.softDismissVersion == state.latest) return !DismissalHoldsLocked(Now());
  return true;
}

std::string FcpUpdateLatestVersion() {
  std::lock_guard guard(Module().lock);
  return Module().latest;
}

std::string FcpUpdateNotes() {
  std::lock_guard guard(Module().lock);
  return Module().notes;
}

// The direct download wins over the page: a loaded manifest always leaves one, falling back to the fixed package.
std::string FcpUpdateDownloadURL() {
  ModuleState& state = Module();
  std::lock_guard guard(state.lock);
  if (!state.download.empty()) return state.download;
  if (!state.downloadPage.empty()) return state.downloadPage;
  return FallbackDownloadLocked();
}

void FcpUpdateDismissSoft() {
  ModuleState& state = Module();
  // Held across the file write, so a concurrent reader sees the old pair or the new one, never half of each.
  std::lock_guard guard(state.lock);
  state.softDismissVersion = state.latest;
  state.softDismissUntil = Now() + kDismissDuration;
  SaveDismissal({state.softDismissVersion, state.softDismissUntil});
}

void FcpUpdateOpenDownload() {
  std::string url = FcpUpdateDownloadURL();
  if (!platform::IsWebUrl(url)) return;
  platform::Seam<platform::Browser>::Get().Open(url);
}
