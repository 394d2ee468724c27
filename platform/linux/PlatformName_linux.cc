#include <sys/utsname.h>

#include "platform/Platform.h"

namespace orvistelle::platform {

const char kPlatformName[] = "linux";
const char kPackageExtension[] = ".deb";

std::optional<OperatingSystemNames> OperatingSystem() {
  utsname names{};
  if (uname(&names) != 0) return std::nullopt;
  return OperatingSystemNames{names.sysname, names.release, names.machine};
}

}  // namespace orvistelle::platform
