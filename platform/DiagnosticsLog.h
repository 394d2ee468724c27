// The support log: timestamped lines about versions, paths, set-up steps and requests, kept in the user's state
// folder so that a support request has something to go on. It never holds a token, a key or an e-mail address.
//
// It writes nowhere until the program names a folder, so that the modules, linked into tests and tools, leave no
// file behind. Every function may be called from any thread, never throws, and gives up on a line rather than wait
// long; the state lives on the heap and is never torn down, so threads still logging while a host exits are safe.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace orvistelle::platform {

inline constexpr char kDiagnosticsLogName[] = "orvistelle.log";
// At this size the file becomes "orvistelle.log.1", replacing the one rotated before.
inline constexpr size_t kDiagnosticsLogLimit = 256 * 1024;

// $XDG_STATE_HOME/orvistelle when XDG_STATE_HOME is an absolute path, else .local/state/orvistelle under the Home
// seam's directory.
std::string DiagnosticsFolder(const std::function<const char*(const char*)>& getenv);

// Sends the following lines to kDiagnosticsLogName in the folder, creating it (owner only); "" stops logging.
void SetDiagnosticsFolder(const std::string& folder);

// SetDiagnosticsFolder(DiagnosticsFolder(the process environment)), unless a folder is set already.
void StartDiagnosticsLog();

// The log file's path, or "" while there is none.
std::string DiagnosticsLogPath();

// Appends "2026-11-23T07:10:32.123Z message" (UTC, from the Clock seam); line breaks in the message become spaces.
void Diagnose(std::string_view message);

// The last `count` lines of the log file at `path` and of its rotated predecessor, oldest first.
std::vector<std::string> ReadDiagnosticsTail(const std::string& path, size_t count);

// "2026-11-23T07:10:32.123Z" for seconds since 1970.
std::string IsoTimestamp(double seconds);

}  // namespace orvistelle::platform
