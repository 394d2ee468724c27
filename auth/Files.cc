#include "auth/Files.h"

#include <unistd.h>

#include <filesystem>

#include "platform/Platform.h"

namespace orvistelle::auth {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kWhitespace = " \t\n\r\v\f";

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

void RemoveFile(const std::string& path) { ::unlink(path.c_str()); }

std::string Trimmed(std::string_view text) {
  size_t first = text.find_first_not_of(kWhitespace);
  if (first == std::string_view::npos) return {};
  size_t last = text.find_last_not_of(kWhitespace);
  return std::string(text.substr(first, last - first + 1));
}

}  // namespace orvistelle::auth
