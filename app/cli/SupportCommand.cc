#include "app/cli/SupportCommand.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "app/Probes.h"
#include "app/Setup.h"
#include "orvistelle/BuildConfig.h"
#include "orvistelle/FcpI18n.h"
#include "platform/DiagnosticsLog.h"
#include "platform/HttpTransport.h"
#include "platform/InfoPlist.h"
#include "platform/Platform.h"
#include "platform/SupportFolder.h"
#include "service/ServicesReport.h"

namespace orvistelle::cli {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr char kProgram[] = "orvistelle-fcp";
constexpr size_t kReportLogLines = 50;

constexpr char kUsage[] = R"(Usage: orvistelle-fcp [--bundle PATH] COMMAND
Checks and sets up Orvistelle FCP Beauty for the current user.

Commands:
  status [--json]  the three checks; exit code 0 only when all are ready
  setup            registers the app and installs the Motion template, as the window's button does
  diagnose         one text to paste into a support request
  reset --yes      removes the installed template, the desktop entry set-up wrote and the support files

Options:
  --bundle PATH    the application bundle to work on; by default the one installed with this program
  --help           this text
  --version        the program's version
)";

struct Invocation {
  std::optional<std::string> bundle;
  std::string command;
  bool flag = false;  // --json for status, --yes for reset
};

const char* FlagOf(const std::string& command) {
  if (command == "status") return "--json";
  if (command == "reset") return "--yes";
  return nullptr;
}

bool IsCommand(const std::string& word) {
  return word == "status" || word == "setup" || word == "diagnose" || word == "reset";
}

// Nothing when the line is not `[--bundle PATH] COMMAND [FLAG]` (or --help / --version alone).
std::optional<Invocation> Parse(const std::vector<std::string>& arguments) {
  Invocation invocation;
  size_t next = 0;
  if (arguments.size() >= 2 && arguments[0] == "--bundle") {
    invocation.bundle = arguments[1];
    next = 2;
  }
  if (next == arguments.size()) return std::nullopt;
  invocation.command = arguments[next++];
  if (invocation.command == "--help" || invocation.command == "--version") {
    return next == arguments.size() ? std::optional(invocation) : std::nullopt;
  }
  if (!IsCommand(invocation.command)) return std::nullopt;
  const char* flag = FlagOf(invocation.command);
  if (next < arguments.size() && flag != nullptr && arguments[next] == flag) {
    invocation.flag = true;
    ++next;
  }
  return next == arguments.size() ? std::optional(invocation) : std::nullopt;
}

std::string BundlePath() { return platform::Seam<platform::Bundle>::Get().Main().bundlePath; }

void PrintRows(const shell::Probes& probes) {
  const shell::WindowState state = shell::DecideWindowState(probes);
  std::cout << FcpT("shell.labelHost") << ": " << FcpT(state.host.textKey) << "\n"
            << FcpT("shell.labelXpc") << ": " << FcpT(state.service.textKey) << "\n"
            << FcpT("shell.labelTemplate") << ": " << FcpT(state.templ.textKey) << "\n";
}

// Whether a session is held (never a token) and what a check of the manifest finds now.
nlohmann::json SessionAndUpdate() {
  const service::ServicesReport report = service::ReportServicesNow();
  return {{"session", report.session},
          {"update", {{"signature", report.signature}, {"latest", report.latest}, {"update", report.update}}}};
}

int Status(bool json) {
  const shell::Probes probes = shell::ProbeComponents();
  if (json) {
    nlohmann::json report = {{"ready", probes.AllReady()},
                             {"host", {{"ready", probes.host}, {"path", BundlePath()}}},
                             {"service", {{"ready", probes.service}, {"path", shell::XpcPluginPath().value_or("")}}},
                             {"template", {{"ready", probes.templ}, {"path", shell::MotionTemplatePath()}}}};
    report.update(SessionAndUpdate());
    std::cout << report.dump(2) << "\n";
  } else {
    PrintRows(probes);
  }
  return probes.AllReady() ? 0 : 1;
}

int Setup() {
  const shell::Probes probes = shell::ProbeComponents();
  if (!probes.service) {
    std::cerr << FcpT("shell.hintXpc") << "\n";
    return 1;
  }
  const shell::SetupResult result = shell::CompleteSetup(shell::StartSetup(probes));
  const bool allReady = shell::ProbeComponents().AllReady();
  const shell::Hint hint = shell::SetupOutcomeHint(result, allReady);
  (hint.tone == shell::Tone::Error ? std::cerr : std::cout) << hint.text << "\n";
  return allReady ? 0 : 1;
}

// The installed copy holds the same files with the same bytes as the bundled one.
bool SameTree(const fs::path& a, const fs::path& b) {
  std::error_code error;
  auto files = [&error](const fs::path& root) {
    std::vector<std::pair<std::string, std::string>> found;
    for (fs::recursive_directory_iterator it(root, error), end; !error && it != end; it.increment(error)) {
      std::string contents;
      if (it->is_regular_file(error)) {
        std::ifstream file(it->path(), std::ios::binary);
        contents.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
      }
      found.emplace_back(it->path().lexically_relative(root).string(), std::move(contents));
    }
    std::sort(found.begin(), found.end());
    return found;
  };
  return files(a) == files(b) && !error;
}

std::string PluginVersion() {
  std::optional<std::string> plugin = shell::XpcPluginPath();
  if (!plugin || !shell::HasXPCPlugin()) return "missing";
  auto info = platform::ReadInfoPlist((fs::path(*plugin) / "Contents/Info.plist").string());
  if (!info) return "no readable Info.plist";
  for (const char* key : {"CFBundleShortVersionString", "CFBundleVersion"}) {
    if (info->count(key) != 0) return info->at(key);
  }
  return "unversioned";
}

std::string TemplateState() {
  if (!shell::HasMotionTemplate()) return "not installed";
  if (!shell::HasBundledTemplate()) return "installed; this app carries no template to compare with";
  return SameTree(shell::MotionTemplatePath(), shell::BundledTemplatePath()) ? "same as this app's copy"
                                                                             : "differs from this app's copy";
}

std::string OperatingSystem() {
  std::string name = "unknown";
  std::ifstream release("/etc/os-release");
  for (std::string line; std::getline(release, line);) {
    if (line.rfind("PRETTY_NAME=", 0) == 0) name = line.substr(12);
  }
  name.erase(std::remove(name.begin(), name.end(), '"'), name.end());
  if (const std::optional<platform::OperatingSystemNames> system = platform::OperatingSystem()) {
    name += ", " + system->name + " " + system->release + " " + system->machine;
  }
  return name;
}

std::string Language() {
  std::string preferred;
  for (const std::string& tag : platform::Seam<platform::Languages>::Get().Preferred()) {
    preferred += (preferred.empty() ? "" : ", ") + tag;
  }
  return std::string(FcpI18nLangCode()) + " (preferred: " + (preferred.empty() ? "none" : preferred) + ")";
}

// Any HTTP answer counts: the point is whether the server is reachable, not whether this request is welcome.
std::string BackendAnswer(const std::string& url) {
  platform::HttpRequest request;
  request.url = url;
  request.idle = 5s;
  request.wait = 6s;
  const platform::HttpResponse response = platform::HttpSend(request);
  return url + ": " + (response.status != 0 ? "answers (HTTP " + std::to_string(response.status) + ")" : "no answer") +
         (response.route.empty() ? "" : ", " + response.route);
}

std::string RegisteredBundles() {
  std::string list;
  auto& database = platform::Seam<platform::AppDatabase>::Get();
  for (const std::string& bundle : database.ApplicationsWithBundleIdentifier(config::kBundleIdentifier)) {
    list += (list.empty() ? "" : "; ") + bundle;
  }
  return list.empty() ? "none" : list;
}

int Report() {
  std::cout << "Orvistelle FCP Beauty support report, "
            << platform::IsoTimestamp(platform::Seam<platform::Clock>::Get().Now()) << "\n"
            << "App version: " << shell::BundleVersion() << "\n"
            << "Library version: " << config::kVersion << "\n"
            << "Plug-in version: " << PluginVersion() << "\n"
            << "Template: " << TemplateState() << "\n"
            << "Bundle: " << BundlePath() << "\n"
            << "Plug-in: " << shell::XpcPluginPath().value_or("none") << "\n"
            << "Installed template: " << shell::MotionTemplatePath() << "\n"
            << "Bundled template: " << shell::BundledTemplatePath() << "\n"
            << "Registered bundles: " << RegisteredBundles() << "\n"
            << "Support folder: " << platform::SupportFolder() << "\n"
            << "Log file: " << platform::DiagnosticsLogPath() << "\n"
            << "OS: " << OperatingSystem() << "\n"
            << "Language: " << Language() << "\n";
  PrintRows(shell::ProbeComponents());
  const service::BackendEndpoints endpoints = service::CurrentBackendEndpoints();
  std::cout << "Backend: " << BackendAnswer(endpoints.user) << "\n"
            << "Downloads: " << BackendAnswer(endpoints.manifest) << "\n";
  const nlohmann::json state = SessionAndUpdate();
  const nlohmann::json& update = state["update"];
  const std::string latest = update["latest"];
  std::cout << "Update manifest: signature " << update["signature"].get<std::string>() << ", latest "
            << (latest.empty() ? "unknown" : latest) << ", update " << update["update"].get<std::string>() << "\n"
            << "Session: " << (state["session"].get<bool>() ? "held" : "none") << "\n";
  std::cout << "Last " << kReportLogLines << " log lines:\n";
  for (const std::string& line : platform::ReadDiagnosticsTail(platform::DiagnosticsLogPath(), kReportLogLines)) {
    std::cout << "  " << line << "\n";
  }
  return 0;
}

bool Removed(const std::string& what, const std::string& path, std::error_code error) {
  const std::string outcome =
      error ? "could not remove " + what + " " + path + ": " + error.message() : "removed " + what + " " + path;
  (error ? std::cerr : std::cout) << outcome << "\n";
  platform::Diagnose("reset: " + outcome);
  return !error;
}

int RefuseReset() {
  std::cerr << kProgram << ": reset removes the installed template, the desktop entry and the support files "
            << "(session, install id, update dismissal); run `" << kProgram << " reset --yes` to go ahead.\n";
  return 1;
}

// "Effects.localized" and "Motion Templates.localized", which set-up made for the template, unless something else
// lies in them now.
void RemoveEmptyTemplateFolders(const fs::path& installedTemplate) {
  std::error_code ignored;
  for (fs::path folder = installedTemplate.parent_path(); folder.extension() == ".localized";
       folder = folder.parent_path()) {
    if (!fs::is_empty(folder, ignored) || !fs::remove(folder, ignored)) return;
  }
}

int Reset() {
  std::error_code templateError, supportError;
  fs::remove_all(shell::MotionTemplatePath(), templateError);
  if (!templateError) RemoveEmptyTemplateFolders(shell::MotionTemplatePath());
  fs::remove_all(platform::SupportFolder(), supportError);
  const int entry = platform::Seam<platform::AppDatabase>::Get().Unregister(BundlePath());
  bool ok = Removed("template", shell::MotionTemplatePath(), templateError);
  ok = Removed("support files", platform::SupportFolder(), supportError) && ok;
  ok = Removed("desktop entry of", BundlePath(), std::error_code(-entry, std::generic_category())) && ok;
  return ok ? 0 : 1;
}

int Run(const Invocation& invocation) {
  if (invocation.command == "status") return Status(invocation.flag);
  if (invocation.command == "setup") return Setup();
  if (invocation.command == "diagnose") return Report();
  return Reset();
}

}  // namespace

std::string DefaultBundlePath(const std::string& executablePath, const std::string& installedRelative,
                              const std::string& bundleName) {
  const fs::path folder = fs::path(executablePath).parent_path();
  const fs::path installed = (folder / installedRelative).lexically_normal();
  return shell::IsDirectory(installed.string()) ? installed.string() : (folder / bundleName).string();
}

int SupportMain(const std::vector<std::string>& arguments) {
  const std::optional<Invocation> invocation = Parse(arguments);
  if (!invocation) {
    std::cerr << kUsage;
    return kExitUsage;
  }
  if (invocation->command == "--help" || invocation->command == "--version") {
    std::cout << (invocation->command == "--help" ? kUsage : std::string(kProgram) + " " + config::kVersion + "\n");
    return 0;
  }
  // Refused before anything is looked at, so that no mistake further down can make an unconfirmed reset remove files.
  if (invocation->command == "reset" && !invocation->flag) return RefuseReset();
  const std::string bundlePath =
      invocation->bundle.value_or(DefaultBundlePath(platform::Seam<platform::Bundle>::Get().Main().executablePath,
                                                    ORVISTELLE_CLI_INSTALLED_BUNDLE, ORVISTELLE_CLI_BUNDLE_NAME));
  if (!shell::IsDirectory(bundlePath)) {
    std::cerr << kProgram << ": no application bundle at " << bundlePath << "; name one with --bundle PATH\n";
    return 1;
  }
  std::unique_ptr<platform::Bundle> bundle = platform::Bundle::At(bundlePath);
  platform::ScopedSeam<platform::Bundle> useBundle(bundle.get());
  platform::StartDiagnosticsLog();
  shell::NoteLaunch(std::string(kProgram) + " " + invocation->command);
  shell::MoveEarlierFiles();
  FcpI18nApplyHostLocale();
  return Run(*invocation);
}

}  // namespace orvistelle::cli
