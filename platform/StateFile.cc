#include "platform/StateFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>

#include "platform/DiagnosticsLog.h"
#include "platform/UniqueFd.h"

namespace orvistelle::platform {
namespace {

namespace fs = std::filesystem;

std::error_code LastError() { return {errno, std::generic_category()}; }

std::error_code WriteAll(int fd, std::string_view contents) {
  while (!contents.empty()) {
    ssize_t written = ::write(fd, contents.data(), contents.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return LastError();
    contents.remove_prefix(static_cast<size_t>(written));
  }
  return {};
}

std::error_code TooLarge(const std::string& path, size_t limit) {
  Diagnose("state file refused: " + path + " is over " + std::to_string(limit) + " bytes");
  return std::make_error_code(std::errc::file_too_large);
}

// Reads up to one byte past what the file held when asked, but never past the limit, so that a file that has grown
// over it since is told from one exactly at it.
StateFileContents ReadBounded(int fd, size_t expected, size_t limit, const std::string& path) {
  std::string contents(std::min(expected, limit) + 1, '\0');
  size_t filled = 0;
  while (filled < contents.size()) {
    ssize_t count = ::read(fd, contents.data() + filled, contents.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return {std::nullopt, LastError()};
    if (count == 0) break;
    filled += static_cast<size_t>(count);
    if (filled == contents.size() && filled <= limit) contents.resize(std::min(2 * filled, limit + 1));
  }
  if (filled > limit) return {std::nullopt, TooLarge(path, limit)};
  contents.resize(filled);
  return {std::move(contents), {}};
}

// The new contents in a fresh, private file beside the target, flushed to the disk; its path, or the error.
std::error_code WriteTemporary(const fs::path& target, std::string_view contents, mode_t mode, std::string* temporary) {
  std::string pattern = (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
  UniqueFd file(::mkostemp(pattern.data(), O_CLOEXEC | O_NOFOLLOW));  // with O_CREAT | O_EXCL, mode 0600
  if (file.get() < 0) return LastError();
  *temporary = pattern;
  if (std::error_code error = WriteAll(file.get(), contents)) return error;
  if (mode != 0600 && ::fchmod(file.get(), mode) != 0) return LastError();
  if (::fsync(file.get()) != 0) return LastError();
  return file.Close() ? std::error_code() : LastError();
}

// A process killed between creating its temporary file and renaming it leaves that file behind. The next save of the
// same file removes those old enough not to belong to a save still under way in another process.
void RemoveStaleTemporaries(const fs::path& target) {
  constexpr auto kStaleAfter = std::chrono::minutes(1);
  const std::string prefix = "." + target.filename().string() + ".";
  const auto now = fs::file_time_type::clock::now();
  std::error_code error;
  for (fs::directory_iterator entry(target.parent_path(), error), end; !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (name.size() != prefix.size() + 6 || !name.starts_with(prefix)) continue;
    std::error_code ignored;
    const auto written = fs::last_write_time(entry->path(), ignored);
    if (!ignored && now - written > kStaleAfter) fs::remove(entry->path(), ignored);
  }
}

// So that the rename itself survives a power cut; a failure here costs only that.
void FlushFolder(const fs::path& folder) {
  UniqueFd directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.get() >= 0) ::fsync(directory.get());
}

}  // namespace

StateFileContents ReadStateFileReporting(const std::string& path, size_t limit) {
  UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info {};
  if (file.get() < 0 || ::fstat(file.get(), &info) != 0) return {std::nullopt, LastError()};
  if (!S_ISREG(info.st_mode)) {
    return {std::nullopt,
            std::make_error_code(S_ISDIR(info.st_mode) ? std::errc::is_a_directory : std::errc::invalid_argument)};
  }
  if (info.st_size > static_cast<off_t>(limit)) return {std::nullopt, TooLarge(path, limit)};
  return ReadBounded(file.get(), static_cast<size_t>(info.st_size), limit, path);
}

std::optional<std::string> ReadStateFile(const std::string& path, size_t limit) {
  return ReadStateFileReporting(path, limit).contents;
}

std::error_code WriteStateFile(const std::string& path, std::string_view contents, mode_t mode) {
  fs::path target(path);
  std::string temporary;
  std::error_code error = WriteTemporary(target, contents, mode, &temporary);
  if (!error && ::rename(temporary.c_str(), path.c_str()) != 0) error = LastError();
  if (error) {
    if (!temporary.empty()) ::unlink(temporary.c_str());
    return error;
  }
  FlushFolder(target.parent_path());
  RemoveStaleTemporaries(target);
  return {};
}

}  // namespace orvistelle::platform
