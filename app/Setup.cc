#include "app/Setup.h"

#include <filesystem>

#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpI18n.h"
#include "platform/DiagnosticsLog.h"
#include "platform/Platform.h"
#include "platform/SupportFolder.h"

namespace orvistelle::shell {
namespace {

RowState Row(bool ready, RowStatus statusWhenNot, const char* keyWhenNot) {
  return ready ? RowState{RowStatus::Ready, "shell.stateReady"} : RowState{statusWhenNot, keyWhenNot};
}

const char* YesNo(bool value) { return value ? "yes" : "no"; }

}  // namespace

WindowState DecideWindowState(const Probes& probes) {
  WindowState state{Row(probes.host, RowStatus::NeedsAttention, "shell.stateNeeded"),
                    Row(probes.service, RowStatus::Missing, "shell.stateMissing"),
                    Row(probes.templ, RowStatus::NeedsAttention, "shell.stateNeeded"),
                    "shell.actionSetup",
                    true,
                    1.0,
                    "shell.hintSetup"};
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
  std::string outcome = "database " + std::to_string(result);
  if (result != 0) {
    int tool = database.RunRegistrationTool(bundle);
    outcome += ", tool " + std::to_string(tool);
    if (tool == 0) result = 0;
  }
  if (status != nullptr) *status = result;
  bool listed = IsHostRegisteredForThisApp();
  platform::Diagnose("set-up: register " + bundle + ": " + outcome + ", listed " + YesNo(listed));
  return listed || result == 0;
}

bool InstallTemplateNow(InstallError* error) {
  const std::string source = BundledTemplatePath();
  const std::string step = "set-up: template " + source + " -> " + MotionTemplatePath() + ": ";
  InstallError failure{kShellErrorDomain, 1, FcpT("shell.installTemplateMissing")};
  bool installed = IsDirectory(source) && ReplaceWithCopy(source, MotionTemplatePath(), &failure);
  platform::Diagnose(step + (installed ? "installed"
                                       : "failed (" + failure.domain + " " + std::to_string(failure.code) + ": " +
                                             failure.description + ")"));
  if (!installed && error != nullptr) *error = failure;
  return installed;
}

PendingSetup StartSetup(const Probes& probes) {
  const bool allReady = probes.host && probes.templ;
  platform::Diagnose(std::string("set-up: start; host ") + YesNo(probes.host) + ", plug-in " + YesNo(probes.service) +
                     ", template " + YesNo(probes.templ));
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
    return {Tone::Error, FcpTf("shell.installTemplateFailed",
                               description.empty() ? FcpT("shell.installTemplateMissing") : description)};
  }
  if (allReadyNow) return {Tone::Quiet, FcpT("shell.actionDone")};
  // Registration went through but the database does not list the bundle yet.
  return {Tone::Warning, FcpT("shell.registerPending")};
}

void MoveEarlierFiles() {
  platform::MoveEarlierStateFiles();
  const std::string earlier = (std::filesystem::path(kEarlierVideosFolder) / kInstalledTemplate).string();
  platform::MoveFromEarlierPlace(platform::Seam<platform::Home>::Get().Directory(), earlier, MotionTemplatePath());
}

void NoteLaunch(std::string_view program) {
  platform::Diagnose(std::string(program) + ": app " + BundleVersion() + ", library " + config::kVersion + ", bundle " +
                     platform::Seam<platform::Bundle>::Get().Main().bundlePath);
}

}  // namespace orvistelle::shell
