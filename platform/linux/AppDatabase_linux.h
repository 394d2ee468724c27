// The Linux application database: desktop entries in the XDG data folders, one per application, named after its
// bundle identifier and carrying the path of the bundle they start.
#pragma once

#include <functional>
#include <string>

#include "platform/Platform.h"

namespace orvistelle::platform {

// The key of a desktop entry that names the bundle it was written for.
inline constexpr char kDesktopEntryBundleKey[] = "X-Orvistelle-Bundle";

// Register writes "<identifier>.desktop" into $XDG_DATA_HOME/applications, where the identifier is the bundle's
// CFBundleIdentifier, unless an entry already names the bundle: the entry the bundle carries under that name in
// Contents/Resources, with Exec and the bundle key added. The lookup reads that file name in $XDG_DATA_HOME, then in
// every $XDG_DATA_DIRS entry. These settings say where it reads its folders and which tool it registers with.
struct XdgAppDatabaseSettings {
  // XDG_DATA_HOME, XDG_DATA_DIRS and TMPDIR are read through this; the home folder comes from the Home seam.
  std::function<const char*(const char*)> getenv;
  // The system tool that installs a desktop entry file: run as `tool --dir <applications folder> <file>`.
  std::string registrationTool;
};

}  // namespace orvistelle::platform
