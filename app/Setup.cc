#include "app/Setup.h"

#include "orvistelle/FcpI18n.h"
#include "platform/Platform.h"

namespace orvistelle::shell {
namespace {

RowState Row(bool ready, int statusWhenNot, const char* keyWhenNot) {
  return ready ? RowState{kStatusReady, "shell.stateReady"} : RowState{statusWhenNot, keyWhenNot};
}

}  // namespace

WindowState DecideWindowState(const Probes& probes) {
  WindowState state{Row(probes.host, kStatusNeedsAttention, "shell.stateNeeded"),
                    Row(probes.service, kStatusMissing, "shell.stateMissing"),
                    Row(probes.templ, kStatusNeedsAttention, "shell.stateNeeded"),
                    "shell.actionSetup", true, 1.0, "shell.hintSetup"};
  if (probes.AllReady()) {
    state.buttonTitleKey = "shell.actionRepair";
    state.hintKey = "shell.hintAllOk";
  } else if (!probes.service) {
    // The one thing set-up cannot mend: it lives inside the application bundle.
    state.buttonEnabled = false;
    state.buttonAlpha = 0.45;
    state.hintKey = "shell.hintXpc";
  }
  return state;
}

bool RegisterHostNow(int* status) {
  if (status != nullptr) *status = 0;
  auto& database = platform::Seam<platform::AppDatabase>::Get();
  const std::string bundle = platform::Seam<platform::Bundle>::Get().Main().bundlePath;
  int result = database.Register(bundle);
  if (result != 0 && database.RunRegistrationTool(bundle) == 0) result = 0;
  if (status != nullptr) *status = result;
  bool listed = IsHostRegisteredForThisApp();
  return listed || result == 0;
}

bool InstallTemplateNow(InstallError* error) {
  const std::string source = BundledTemplatePath();
  if (!IsDirectory(source)) {
    if (error != nullptr) *error = {kShellErrorDomain, 1, FcpT("shell.installTemplateMissing")};
    return false;
  }
  return ReplaceWithCopy(source, MotionTemplatePath(), error);
}

PendingSetup StartSetup(const Probes& probes) {
  const bool allReady = probes.host && probes.templ;
  PendingSetup pending;
  // "Reinstall setup" registers again too; only a registered host with a missing template skips it.
  pending.registrationAttempted = allReady || !probes.host;
  if (pending.registrationAttempted) pending.registrationResult = RegisterHostNow(&pending.registrationStatus);
  pending.templateWanted = allReady || !probes.templ;
  return pending;
}

SetupResult CompleteSetup(const PendingSetup& pending) {
  SetupResult result;
  result.registrationStatus = pending.registrationStatus;
  result.registrationGood =
      !pending.registrationAttempted || IsHostRegisteredForThisApp() || pending.registrationResult;
  if (pending.templateWanted && result.registrationGood) {
    result.templateResult = InstallTemplateNow(&result.templateError);
  } else {
    result.templateResult = !pending.templateWanted;
  }
  return result;
}

Hint SetupOutcomeHint(const SetupResult& result, bool allReadyNow) {
  if (!result.registrationGood) {
    return {Tone::Error, FcpTf("shell.registerFailed", static_cast<std::int32_t>(result.registrationStatus))};
  }
  if (!result.templateResult) {
    const std::string& description = result.templateError.description;
    return {Tone::Error,
            FcpTf("shell.installTemplateFailed",
                  description.empty() ? FcpT("shell.installTemplateMissing") : description)};
  }
  if (allReadyNow) return {Tone::Quiet, FcpT("shell.actionDone")};
  // Registration went through but the database does not list the bundle yet.
  return {Tone::Warning, FcpT("shell.registerPending")};
}

}  // namespace orvistelle::shell
