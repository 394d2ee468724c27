// orvistelle-fcp: the window's checks and set-up for scripts and administrators, plus what a support request needs.
// It works on the application's bundle, found beside its own installed location (see DefaultBundlePath) or named
// with --bundle.
#pragma once

#include <string>
#include <vector>

namespace orvistelle::cli {

inline constexpr int kExitUsage = 2;

// Installed, the bundle lies at `installedRelative` from the executable's folder (bin/ to lib/orvistelle/); in a
// build tree it lies beside the executable under `bundleName`. The installed place wins when it exists.
std::string DefaultBundlePath(const std::string& executablePath, const std::string& installedRelative,
                              const std::string& bundleName);

// Runs one command line, without the program's name, and returns the exit code.
int SupportMain(const std::vector<std::string>& arguments);

}  // namespace orvistelle::cli
