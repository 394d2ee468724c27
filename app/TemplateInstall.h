// Replacing an installed folder with a fresh copy, so that whatever goes wrong the user keeps a whole folder: the
// previous one until the new one is complete, then the new one.
#pragma once

#include <string>

namespace orvistelle::shell {

struct InstallError {
  std::string domain;  // "OrvistelleShell" for our own errors, "POSIX" for the file system's
  int code = 0;
  std::string description;  // shown to the user after "Could not install template: "
};

inline constexpr char kShellErrorDomain[] = "OrvistelleShell";
inline constexpr char kPosixErrorDomain[] = "POSIX";

// Copies the contents of `source` (a folder) into a hidden temporary folder beside `destination`, then moves whatever
// was at `destination` (folder, file or symbolic link) aside, moves the copy in and removes the old one. The parent
// folders are created as needed. Symbolic links inside the source are copied as links, and removal never follows a
// link: a link in the old template that points elsewhere loses only the link. On failure the destination holds what
// it held before, `error` (when given) says why, and no temporary folder is left behind. Hidden folders that an
// earlier, killed call left beside `destination` are removed. The copy keeps the modes of the source, its top
// folder included.
bool ReplaceWithCopy(const std::string& source, const std::string& destination, InstallError* error);

}  // namespace orvistelle::shell
