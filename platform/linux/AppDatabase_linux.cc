#include "platform/linux/AppDatabase_linux.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/InfoPlist.h"
#include "platform/NoDestructor.h"
#include "platform/StateFile.h"
#include "platform/linux/DesktopEntry.h"

extern char** environ;

namespace orvistelle::platform {
namespace {

namespace fs = std::filesystem;

void WaitForChild(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
}

bool IsFile(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

// What Register writes for one bundle, and under which file name.
struct BundleEntry {
  std::string identifier;  // CFBundleIdentifier; the file is "<identifier>.desktop"
  std::string text;
};

// The entry the bundle carries, with the texts of every language and the themed icon, completed with what only the
// place of this copy decides.
std::optional<std::string> EntryText(const std::string& identifier, const fs::path& executable,
                                     const fs::path& bundle) {
  const fs::path carried = bundle / "Contents" / "Resources" / (identifier + ".desktop");
  std::optional<std::string> text = ReadStateFile(carried.string());
  if (!text || !ParseDesktopEntry(*text)) return std::nullopt;
  if (!text->empty() && text->back() != '\n') *text += '\n';
  *text += "Exec=" + EscapeDesktopValue(QuoteExecArgument(executable.string())) + "\n";
  *text += std::string(kDesktopEntryBundleKey) + "=" + EscapeDesktopValue(bundle.string()) + "\n";
  return text;
}

std::optional<std::map<std::string, std::string>> BundleInfo(const fs::path& bundle) {
  return ReadInfoPlist((bundle / "Contents" / "Info.plist").string());
}

// The identifier names the entry's file, so it may not leave the folder.
std::optional<std::string> BundleIdentifier(const fs::path& bundle) {
  auto info = BundleInfo(bundle);
  if (!info || !info->contains("CFBundleIdentifier")) return std::nullopt;
  std::string identifier = info->at("CFBundleIdentifier");
  if (identifier.empty() || identifier.find('/') != std::string::npos) return std::nullopt;
  return identifier;
}

bool EntryNamesBundle(const fs::path& file, const std::string& bundle) {
  auto entry = ReadDesktopEntry(file.string());
  if (!entry) return false;
  auto named = entry->find(kDesktopEntryBundleKey);
  return named != entry->end() && AppDatabase::SameBundle(named->second, bundle);
}

// A bundle the database can start: an Info.plist with an identifier, its entry, and an executable where the Info
// says.
std::optional<BundleEntry> DescribeBundle(const fs::path& bundle) {
  const std::optional<std::string> identifier = BundleIdentifier(bundle);
  auto info = BundleInfo(bundle);
  if (!identifier || !info) return std::nullopt;
  auto found = info->find("CFBundleExecutable");
  const std::string executableName = found != info->end() ? found->second : bundle.stem().string();
  if (executableName.find('/') != std::string::npos) return std::nullopt;  // stays inside the bundle
  const fs::path executable = bundle / "Contents" / "MacOS" / executableName;
  if (!IsFile(executable) || access(executable.c_str(), X_OK) != 0) return std::nullopt;
  std::optional<std::string> text = EntryText(*identifier, executable, bundle);
  if (!text) return std::nullopt;
  return BundleEntry{*identifier, std::move(*text)};
}

// A desktop entry is read by every program of the desktop, so it is written as a state file readable by all.
int WriteEntry(const fs::path& folder, const std::string& name, std::string_view text) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (!error) error = WriteStateFile((folder / name).string(), text, 0644);
  return error ? -error.value() : 0;
}

class XdgAppDatabase final : public AppDatabase {
 public:
  explicit XdgAppDatabase(XdgAppDatabaseSettings settings) : settings_(std::move(settings)) {}

  // An entry that already names the bundle, the package's for an installed copy, is its registration: a second one
  // in the user's folder would shadow it.
  int Register(const std::string& bundlePath) override {
    auto entry = DescribeBundle(bundlePath);
    if (!entry) return -ENOENT;
    if (Lists(entry->identifier, bundlePath)) return 0;
    return WriteEntry(ApplicationsFolder(DataHome()), entry->identifier + ".desktop", entry->text);
  }

  int RunRegistrationTool(const std::string& bundlePath) override {
    auto entry = DescribeBundle(bundlePath);
    if (!entry) return -ENOENT;
    std::string staging = (fs::path(Variable("TMPDIR").value_or("/tmp")) / "orvistelle-entry-XXXXXX").string();
    if (mkdtemp(staging.data()) == nullptr) return -errno;
    const std::string fileName = entry->identifier + ".desktop";
    int status = WriteEntry(staging, fileName, entry->text);
    if (status == 0) status = SpawnToolAndWait((fs::path(staging) / fileName).string());
    std::error_code ignored;
    fs::remove_all(staging, ignored);
    return status;
  }

  std::vector<std::string> ApplicationsWithBundleIdentifier(const std::string& bundleIdentifier) override {
    std::vector<std::string> bundles;
    if (bundleIdentifier.empty() || bundleIdentifier.find('/') != std::string::npos) return bundles;
    std::vector<fs::path> folders = DataDirs();
    folders.insert(folders.begin(), DataHome());
    for (const fs::path& folder : folders) {
      auto entry = ReadDesktopEntry((ApplicationsFolder(folder) / (bundleIdentifier + ".desktop")).string());
      if (!entry) continue;
      auto bundle = entry->find(kDesktopEntryBundleKey);
      if (bundle != entry->end() && !bundle->second.empty()) bundles.push_back(bundle->second);
    }
    return bundles;
  }

  // Only the user's own entry, and only while it names this bundle: an entry the user or another copy wrote stays.
  int Unregister(const std::string& bundlePath) override {
    std::optional<std::string> identifier = BundleIdentifier(bundlePath);
    if (!identifier) return -EINVAL;
    const fs::path folder = ApplicationsFolder(DataHome());
    const fs::path file = folder / (*identifier + ".desktop");
    if (!EntryNamesBundle(file, bundlePath)) return 0;
    std::error_code error;
    fs::remove(file, error);
    if (error) return -error.value();
    if (fs::is_empty(folder, error)) fs::remove(folder, error);
    return 0;
  }

 private:
  static fs::path ApplicationsFolder(const fs::path& dataFolder) { return dataFolder / "applications"; }

  // XDG ignores a variable that is unset, empty or not absolute.
  std::optional<std::string> Variable(const char* name) const {
    const char* value = settings_.getenv(name);
    if (value == nullptr || value[0] != '/') return std::nullopt;
    return std::string(value);
  }

  fs::path DataHome() const {
    return Variable("XDG_DATA_HOME").value_or((fs::path(Seam<Home>::Get().Directory()) / ".local/share").string());
  }

  std::vector<fs::path> DataDirs() const {
    const char* value = settings_.getenv("XDG_DATA_DIRS");
    std::string_view list = value != nullptr && *value != '\0' ? value : "/usr/local/share:/usr/share";
    std::vector<fs::path> folders;
    while (!list.empty()) {
      size_t colon = list.find(':');
      std::string_view folder = list.substr(0, colon);
      if (!folder.empty() && folder.front() == '/') folders.emplace_back(folder);
      list = colon == std::string_view::npos ? std::string_view() : list.substr(colon + 1);
    }
    return folders;
  }

  // No shell: the paths go to the tool as they are. 0 once it ran, whatever it answered.
  int SpawnToolAndWait(const std::string& entryFile) const {
    std::string tool = settings_.registrationTool;
    std::string dirFlag = "--dir";
    std::string folder = ApplicationsFolder(DataHome()).string();
    std::string file = entryFile;
    char* argv[] = {tool.data(), dirFlag.data(), folder.data(), file.data(), nullptr};
    pid_t child = 0;
    int error = posix_spawn(&child, tool.c_str(), nullptr, nullptr, argv, environ);
    if (error != 0) return -error;
    WaitForChild(child);
    return 0;
  }

  XdgAppDatabaseSettings settings_;
};

}  // namespace

AppDatabase& AppDatabase::Default() {
  static NoDestructor<XdgAppDatabase> database(XdgAppDatabaseSettings{
      [](const char* name) -> const char* { return std::getenv(name); }, "/usr/bin/desktop-file-install"});
  return *database;
}

}  // namespace orvistelle::platform
