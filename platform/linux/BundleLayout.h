#pragma once

#include <string>

#include "platform/Platform.h"

namespace orvistelle::platform {

// A bundle is ".../Name.app/Contents/MacOS/executable", the shape a Mac uses, so that the build lays out one tree
// that both platforms understand. Any other executable is a bare one: its folder, no Info, no plug-ins.
BundleLocation LocateBundle(const std::string& executablePath);

}  // namespace orvistelle::platform
