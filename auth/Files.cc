#include "auth/Files.h"

#include <unistd.h>

#include <filesystem>

#include "platform/SupportFolder.h"

namespace orvistelle::auth {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kWhitespace = " \t\n\r\v\f";

}  // namespace

void EnsureDir() {
  std::error_code ignored;
  fs::create_directories(platform::SupportFolder(), ignored);
}

std::string SupportFile(std::string_view name) { return (fs::path(platform::SupportFolder()) / name).string(); }

void RemoveFile(const std::string& path) { ::unlink(path.c_str()); }

std::string Trimmed(std::string_view text) {
  size_t first = text.find_first_not_of(kWhitespace);
  if (first == std::string_view::npos) return {};
  size_t last = text.find_last_not_of(kWhitespace);
  return std::string(text.substr(first, last - first + 1));
}

}  // namespace orvistelle::auth
