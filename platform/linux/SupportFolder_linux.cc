#include "platform/SupportFolder.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/DiagnosticsLog.h"
#include "platform/Platform.h"
#include "platform/StateFile.h"

namespace orvistelle::platform {
namespace {

namespace fs = std::filesystem;

constexpr char kEarlierSupportFolder[] = "Library/Application Support/Orvistelle";
// The lock goes along with the files it guards, so that the folder it leaves can be removed.
constexpr const char* kEarlierStateFiles[] = {"fcp-session.json", "fcp-install-id.txt", "fcp-heartbeat-day.txt",
                                              "fcp-update-dismiss.json", "fcp-session.lock"};
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;

std::string HomeOfUserDatabase(Home& home) {
  std::string directory = home.FromUserDatabase();
  return directory.empty() ? home.Directory() : directory;
}

// The user database may sit behind the network (LDAP, sssd), and a plug-in host asks for the folder on every call.
// Never destroyed, like the seams: host threads may still ask while the process exits.
std::string SupportHome() {
  Home& home = Seam<Home>::Get();
  if (&home != &Home::Default()) return HomeOfUserDatabase(home);
  static const auto& cached = *new std::string(HomeOfUserDatabase(home));
  return cached;
}

// Without a trailing separator, so that "/home/u/" and "/home/u" compare equal.
fs::path Normal(const fs::path& path) {
  fs::path normal = path.lexically_normal();
  return normal.has_filename() || normal == normal.root_path() ? normal : normal.parent_path();
}

std::string_view WithoutLeadingBlanks(std::string_view text) {
  return text.substr(std::min(text.size(), text.find_first_not_of(" \t")));
}

// The quoted value of one `XDG_VIDEOS_DIR="…"` line, "$HOME" expanded; nothing for any other line.
std::optional<fs::path> VideosAssignment(std::string_view line, const fs::path& home) {
  constexpr std::string_view kKey = "XDG_VIDEOS_DIR";
  line = WithoutLeadingBlanks(line);
  if (!line.starts_with(kKey)) return std::nullopt;
  line = WithoutLeadingBlanks(line.substr(kKey.size()));
  if (!line.starts_with('=')) return std::nullopt;
  line = WithoutLeadingBlanks(line.substr(1));
  const size_t close = line.find('"', 1);
  if (!line.starts_with('"') || close == std::string_view::npos) return std::nullopt;
  const std::string_view value = line.substr(1, close - 1);
  if (value == "$HOME" || value.starts_with("$HOME/")) return home / fs::path(value.substr(5)).relative_path();
  if (value.starts_with('/')) return fs::path(value);
  return std::nullopt;
}

// The last assignment wins, as when a shell reads the file.
std::optional<fs::path> VideosAssignmentIn(std::string_view text, const fs::path& home) {
  std::optional<fs::path> found;
  while (!text.empty()) {
    const size_t end = std::min(text.size(), text.find('\n'));
    if (std::optional<fs::path> value = VideosAssignment(text.substr(0, end), home)) found = value;
    text.remove_prefix(std::min(text.size(), end + 1));
  }
  return found;
}

// The folders along a relative path, each opened inside the one before without following a symbolic link.
class FolderChain {
 public:
  FolderChain(const fs::path& root, const fs::path& folders) {
    descriptors_.push_back(::open(root.c_str(), kFolderFlags));
    for (const fs::path& name : folders) {
      if (!complete()) return;
      descriptors_.push_back(::openat(descriptors_.back(), name.c_str(), kFolderFlags | O_NOFOLLOW));
      names_.push_back(name.string());
    }
  }
  ~FolderChain() {
    for (int descriptor : descriptors_) {
      if (descriptor >= 0) ::close(descriptor);
    }
  }
  FolderChain(const FolderChain&) = delete;
  FolderChain& operator=(const FolderChain&) = delete;

  bool complete() const { return descriptors_.back() >= 0; }
  int innermost() const { return descriptors_.back(); }

  // From the innermost folder outward, as long as each is empty; the root stays.
  void RemoveEmptied() const {
    for (size_t folder = names_.size(); folder > 0; --folder) {
      if (::unlinkat(descriptors_[folder - 1], names_[folder - 1].c_str(), AT_REMOVEDIR) != 0) return;
    }
  }

 private:
  std::vector<int> descriptors_;    // the root first
  std::vector<std::string> names_;  // names_[i] is the name of descriptors_[i + 1] inside descriptors_[i]
};

// The earlier version wrote its files with the umask's mode; state files are its owner's alone.
void MakePrivate(int folder, const std::string& name) {
  const int file = ::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  struct stat found {};
  if (file >= 0 && ::fstat(file, &found) == 0 && S_ISREG(found.st_mode)) ::fchmod(file, 0600);
  if (file >= 0) ::close(file);
}

// For a file system that cannot rename without replacing, or a destination on another one: a file is written anew
// and the earlier one removed. "" when moved, else why not.
std::string CopyFileOver(int folder, const std::string& name, const fs::path& from, const fs::path& to) {
  std::error_code error;
  if (fs::symlink_status(to, error).type() != fs::file_type::not_found) return "the new place holds one already";
  std::optional<std::string> contents = ReadStateFile(from.string());
  if (!contents) return "it cannot be read";
  if ((error = WriteStateFile(to.string(), *contents))) return error.message();
  ::unlinkat(folder, name.c_str(), 0);
  return "";
}

// "" when moved, else why not.
std::string MoveEntry(int folder, const std::string& name, bool isFile, const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::create_directories(to.parent_path(), error);
  const int target = ::open(to.parent_path().c_str(), kFolderFlags);
  if (target < 0) return std::error_code(errno, std::generic_category()).message();
  const bool renamed = ::renameat2(folder, name.c_str(), target, to.filename().c_str(), RENAME_NOREPLACE) == 0;
  const int renameError = errno;
  if (renamed && isFile) MakePrivate(target, to.filename().string());
  ::close(target);
  if (renamed) return "";
  if (renameError == EEXIST) return "the new place holds one already";
  if (isFile && (renameError == EXDEV || renameError == EINVAL)) return CopyFileOver(folder, name, from, to);
  return std::error_code(renameError, std::generic_category()).message();
}

}  // namespace

std::string SupportFolder() { return (fs::path(SupportHome()) / ".local/share/orvistelle").string(); }

std::string VideosFolder(const std::function<const char*(const char*)>& getenv) {
  const fs::path home = Seam<Home>::Get().Directory();
  const char* config = getenv("XDG_CONFIG_HOME");
  const fs::path configHome = config != nullptr && config[0] == '/' ? fs::path(config) : home / ".config";
  const std::string text = ReadStateFile((configHome / "user-dirs.dirs").string()).value_or("");
  const std::optional<fs::path> named = VideosAssignmentIn(text, home);
  if (!named || Normal(*named) == Normal(home)) return (home / "Videos").string();
  return Normal(*named).string();
}

void MoveFromEarlierPlace(const std::string& root, const std::string& earlier, const std::string& destination) {
  const fs::path relative(earlier);
  const FolderChain chain(root, relative.parent_path());
  if (!chain.complete()) return;
  const std::string name = relative.filename().string();
  const fs::path from = fs::path(root) / relative;
  struct stat found {};
  if (::fstatat(chain.innermost(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0) {
    const bool movable = S_ISREG(found.st_mode) || S_ISDIR(found.st_mode);
    const std::string failure = movable ? MoveEntry(chain.innermost(), name, S_ISREG(found.st_mode), from, destination)
                                        : "it is neither a file nor a folder";
    Diagnose(failure.empty() ? "moved " + from.string() + " to " + destination
                             : "left " + from.string() + " where it is: " + failure);
  }
  chain.RemoveEmptied();
}

void MoveEarlierStateFiles() {
  const std::string home = SupportHome();
  const fs::path folder = SupportFolder();
  for (const char* name : kEarlierStateFiles) {
    MoveFromEarlierPlace(home, (fs::path(kEarlierSupportFolder) / name).string(), (folder / name).string());
  }
}

}  // namespace orvistelle::platform
