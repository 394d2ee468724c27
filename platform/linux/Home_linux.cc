#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "platform/DevOverrides.h"
#include "platform/NoDestructor.h"
#include "platform/Platform.h"

namespace orvistelle::platform {
namespace {

class PosixHome final : public Home {
 public:
  std::string FromUserDatabase() override {
    if (std::optional<std::string> devHome = DevHomeDirectory()) return *devHome;
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return {};
    return found->pw_dir != nullptr ? found->pw_dir : "";
  }

  std::string Directory() override {
    const char* home = std::getenv("HOME");
    if (home != nullptr && *home != '\0') return home;
    std::string fromDatabase = FromUserDatabase();
    return fromDatabase.empty() ? "/" : fromDatabase;
  }
};

}  // namespace

Home& Home::Default() {
  static NoDestructor<PosixHome> home;
  return *home;
}

}  // namespace orvistelle::platform
