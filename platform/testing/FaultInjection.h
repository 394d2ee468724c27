// Hostile file systems for the fault tests of every module (misbehaving peers are in LoopbackServer.h): children in
// which a folder is read-only or the disk is full, and snapshots that show whether anything in a tree changed.
#pragma once

#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/testing/ChildProcess.h"

namespace orvistelle::platform::fault {

namespace fs = std::filesystem;

constexpr int kNotPrepared = 2;  // the child's exit status when its preparation failed

// Runs `body` in a forked child once `prepare` has succeeded there, and hands back what the body returned; nothing
// when the preparation failed, and a text no test expects when the child died. Whatever the child does to itself
// (limits, mounts) ends with it.
// The caller must have no other thread in the middle of the code the body runs.
inline std::optional<std::string> InChildProcess(const std::function<bool()>& prepare,
                                                 const std::function<std::string()>& body) {
  int channel[2];
  if (pipe(channel) != 0) return std::nullopt;
  pid_t child = fork();
  if (child == 0) {
    close(channel[0]);
    if (!prepare()) _exit(kNotPrepared);
    std::string result = body();
    // A blocking write to a pipe ends early only on a signal.
    if (write(channel[1], result.data(), result.size()) != static_cast<ssize_t>(result.size())) _exit(3);
    _exit(0);
  }
  close(channel[1]);
  std::string result;
  char buffer[512];
  for (ssize_t count; (count = read(channel[0], buffer, sizeof buffer)) > 0;) result.append(buffer, count);
  close(channel[0]);
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return std::nullopt;
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNotPrepared) return std::nullopt;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return "the child died: wait status " + std::to_string(status);
  return result;
}

// A disk that takes no more than `bytes` in any one file: writes past it fail with EFBIG instead of killing.
inline std::optional<std::string> WithFileSizeLimit(rlim_t bytes, const std::function<std::string()>& body) {
  const rlimit limit{bytes, bytes};
  auto prepare = [&limit] { return signal(SIGXFSZ, SIG_IGN) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &limit) == 0; };
  return InChildProcess(prepare, body);
}

// Root ignores permissions, so for root the folder becomes a read-only bind mount in a mount namespace of the
// child's own; for anyone else every folder in it loses its write permission until the child has ended.
inline bool MountReadOnly(const fs::path& folder) {
  struct statvfs current {};
  if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
      statvfs(folder.c_str(), &current) != 0) {
    return false;
  }
  // Flags the outer mount already carries must be kept, or the kernel may refuse the remount.
  unsigned long kept = (current.f_flag & ST_NOSUID ? MS_NOSUID : 0) | (current.f_flag & ST_NODEV ? MS_NODEV : 0) |
                       (current.f_flag & ST_NOEXEC ? MS_NOEXEC : 0);
  return mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | kept, nullptr) == 0;
}

inline std::optional<std::string> WithReadOnlyFolder(const fs::path& folder, const std::function<std::string()>& body) {
  if (geteuid() == 0) return InChildProcess([&folder] { return MountReadOnly(folder); }, body);
  std::map<fs::path, fs::perms> saved{{folder, fs::status(folder).permissions()}};
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_directory() && !entry.is_symlink()) saved[entry.path()] = entry.status().permissions();
  }
  for (const auto& [path, perms] : saved) fs::permissions(path, fs::perms::owner_read | fs::perms::owner_exec);
  std::optional<std::string> result = InChildProcess([] { return true; }, body);
  for (const auto& [path, perms] : saved) fs::permissions(path, perms);
  return result;
}

// Every entry under `root`, links not followed, with its kind and its contents or target: two equal snapshots mean
// nothing in the tree was created, removed or rewritten.
inline std::map<std::string, std::string> Snapshot(const fs::path& root) {
  std::map<std::string, std::string> entries;
  std::error_code error;
  for (fs::recursive_directory_iterator it(root, error), end; !error && it != end; it.increment(error)) {
    const fs::path& path = it->path();
    entries[fs::relative(path, root).string()] = it->is_symlink()     ? "link " + fs::read_symlink(path).string()
                                                 : it->is_directory() ? "folder"
                                                                      : "file " + testing::ReadWholeFile(path);
  }
  return entries;
}

}  // namespace orvistelle::platform::fault
