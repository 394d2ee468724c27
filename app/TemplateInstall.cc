#include "app/TemplateInstall.h"

#include <stdlib.h>

#include <cerrno>
#include <filesystem>

namespace orvistelle::shell {
namespace {

namespace fs = std::filesystem;

// Hidden, so that an application scanning the folder never lists a half-made or retired copy.
fs::path MakeHiddenSibling(const fs::path& destination, const char* purpose, std::error_code& error) {
  std::string pattern =
      (destination.parent_path() / ("." + destination.filename().string() + "." + purpose + "-XXXXXX")).string();
  if (mkdtemp(pattern.data()) == nullptr) {
    error.assign(errno, std::generic_category());
    return {};
  }
  return pattern;
}

// A set-up killed halfway leaves its hidden copies behind; without this they would stay for good, a whole template
// each. Only names that MakeHiddenSibling could have made for this destination and purpose are touched.
void RemoveHiddenSiblings(const fs::path& destination, const char* purpose) {
  const std::string prefix = "." + destination.filename().string() + "." + purpose + "-";
  std::error_code error;
  for (fs::directory_iterator entry(destination.parent_path(), error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    std::error_code ignored;
    if (name.size() == prefix.size() + 6 && name.starts_with(prefix)) fs::remove_all(entry->path(), ignored);
  }
}

// The copy's own folder was made private by mkdtemp; it takes the source's modes like everything inside it.
void CopyContents(const fs::path& source, const fs::path& into, std::error_code& error) {
  constexpr auto options = fs::copy_options::recursive | fs::copy_options::copy_symlinks;
  for (fs::directory_iterator entry(source, error), end; !error && entry != end; entry.increment(error)) {
    fs::copy(entry->path(), into / entry->path().filename(), options, error);
    if (error) return;
  }
  if (!error) fs::permissions(into, fs::status(source, error).permissions(), error);
}

bool Exists(const fs::path& path) {
  std::error_code ignored;
  return fs::symlink_status(path, ignored).type() != fs::file_type::not_found;
}

// Moves the staged copy to the destination; the previous occupant goes into `retired` and is put back if the move in
// fails.
void SwapIn(const fs::path& staged, const fs::path& destination, const fs::path& retired, std::error_code& error) {
  fs::path previous = retired / destination.filename();
  bool hadPrevious = Exists(destination);
  if (hadPrevious) {
    fs::rename(destination, previous, error);
    if (error) return;
  }
  fs::rename(staged, destination, error);
  std::error_code ignored;
  if (error && hadPrevious) fs::rename(previous, destination, ignored);
}

bool Fail(const std::error_code& cause, InstallError* error) {
  if (error != nullptr) *error = {kPosixErrorDomain, cause.value(), cause.message()};
  return false;
}

}  // namespace

bool ReplaceWithCopy(const std::string& source, const std::string& destination, InstallError* error) {
  const fs::path target(destination);
  std::error_code cause;
  fs::create_directories(target.parent_path(), cause);
  if (cause) return Fail(cause, error);
  RemoveHiddenSiblings(target, "new");
  fs::path staged = MakeHiddenSibling(target, "new", cause);
  if (cause) return Fail(cause, error);
  CopyContents(source, staged, cause);
  fs::path retired = cause ? fs::path() : MakeHiddenSibling(target, "old", cause);
  if (!cause) SwapIn(staged, target, retired, cause);
  std::error_code ignored;
  fs::remove_all(staged, ignored);  // gone already unless something failed
  // Should both moves have failed, the old template waits in the retired folder rather than being deleted.
  if (!retired.empty() && Exists(target)) {
    fs::remove_all(retired, ignored);
    if (!cause) RemoveHiddenSiblings(target, "old");  // retired by set-ups that were killed, now replaced
  } else if (!retired.empty()) {
    fs::remove(retired, ignored);  // only when empty
  }
  return cause ? Fail(cause, error) : true;
}

}  // namespace orvistelle::shell
