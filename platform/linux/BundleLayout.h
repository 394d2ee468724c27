#pragma once

#include <string>

#include "platform/Platform.h"

namespace orvistelle::platform {

// A bundle is "X/Contents/MacOS/executable" with an "X/Contents/Info.plist", the shape a Mac uses, whatever X's
// extension: the app (".app") and the plug-ins it carries (".pluginkit", ".appex", ".xpc", ".bundle", ".plugin") all
// read their own Info. Any other executable is a bare one: its folder, no Info, no plug-ins.
BundleLocation LocateBundle(const std::string& executablePath);

}  // namespace orvistelle::platform
