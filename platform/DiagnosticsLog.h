// The support log: timestamped lines about versions, paths, set-up steps and requests, kept in the user's state
// folder so that a support request has something to go on. It never holds a token, a key or an e-mail address.
//
// It writes nowhere until the program names a folder, so that the modules, linked into tests and tools, leave no
// file behind. Every function may be called from any thread and never throws. No caller touches the file system:
// lines go to a short queue that one background thread writes out, and a line that finds the queue full is dropped,
// so that a slow disk or a hostile object at the log's path (a FIFO, a device, a link) can never hold up a caller.
// The state lives on the heap and is never torn down, so threads still logging while a host exits are safe; lines
// still queued at exit are given a moment to reach the file.
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

// Sends the following lines to kDiagnosticsLogName in the folder, which the writer creates (owner only) if need be;
// "" stops logging.
void SetDiagnosticsFolder(const std::string& folder);

// SetDiagnosticsFolder(DiagnosticsFolder(the process environment)), unless a folder is set already.
void StartDiagnosticsLog();

// The log file's path, or "" while there is none.
std::string DiagnosticsLogPath();

// Queues "2026-11-23T07:10:32.123Z message" (UTC, from the Clock seam), the message passed through EscapeLogText
// (platform/LogText.h). Only a regular file is ever written: whatever else lies at the path, a link included, costs
// the line.
void Diagnose(std::string_view message);

// The last `count` lines of the log file at `path` and of its rotated predecessor, oldest first, each passed through
// EscapeLogText; lines this process queued before the call are in it unless the writer is held up. Whatever is not a
// regular file reads as no lines, and the call never blocks on it.
std::vector<std::string> ReadDiagnosticsTail(const std::string& path, size_t count);

// "2026-11-23T07:10:32.123Z" for seconds since 1970.
std::string IsoTimestamp(double seconds);

}  // namespace orvistelle::platform
