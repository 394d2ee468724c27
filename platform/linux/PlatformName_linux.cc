#include "platform/Platform.h"

namespace orvistelle::platform {

const char kPlatformName[] = "linux";
const char kPackageExtension[] = ".deb";

}  // namespace orvistelle::platform
