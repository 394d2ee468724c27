#include "auth/Files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "auth/Uuid.h"
#include "platform/Platform.h"

namespace orvistelle::auth {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kWhitespace = " \t\n\r\v\f";

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

std::error_code WriteNewContents(const std::string& path, int flags, std::string_view contents) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0600);
  if (fd < 0) return LastError();
  std::error_code error = WriteAll(fd, contents);
  if (::close(fd) != 0 && !error) error = LastError();
  return error;
}

}  // namespace

std::string SupportDir() {
  platform::Home& home = platform::Seam<platform::Home>::Get();
  std::string base = home.FromUserDatabase();
  if (base.empty()) base = home.Directory();
  return (fs::path(base) / "Library/Application Support/Orvistelle").string();
}

void EnsureDir() {
  std::error_code ignored;
  fs::create_directories(SupportDir(), ignored);
}

std::string SupportFile(std::string_view name) { return (fs::path(SupportDir()) / name).string(); }

std::optional<std::string> ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::ostringstream contents;
  contents << file.rdbuf();
  if (file.bad()) return std::nullopt;
  return std::move(contents).str();
}

std::error_code WritePrivateFile(const std::string& path, std::string_view contents) {
  return WriteNewContents(path, O_TRUNC, contents);
}

bool WriteFileAtomically(const std::string& path, std::string_view contents) {
  std::string temporary = path + "." + NewLowercaseUUID() + ".tmp";
  if (WriteNewContents(temporary, O_EXCL, contents) || ::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    return false;
  }
  return true;
}

void RemoveFile(const std::string& path) { ::unlink(path.c_str()); }

std::string Trimmed(std::string_view text) {
  size_t first = text.find_first_not_of(kWhitespace);
  if (first == std::string_view::npos) return {};
  size_t last = text.find_last_not_of(kWhitespace);
  return std::string(text.substr(first, last - first + 1));
}

}  // namespace orvistelle::auth
