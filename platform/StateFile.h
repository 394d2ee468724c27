// The small state files that the modules keep in the support directory, read and written so that neither a
// hostile file system object at their path nor a process killed halfway can hurt the process or lose the file.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace orvistelle::platform {

// Far above any state file this system writes; anything larger is not one of them. A file that keeps what a server
// sent may need a larger limit of its own.
inline constexpr std::size_t kStateFileLimit = 64 * 1024;

struct StateFileContents {
  std::optional<std::string> contents;
  std::error_code error;  // when there are no contents: ENOENT for no file at all, else why it could not be read
};

// The contents of a regular file of at most `limit` bytes. A missing or unreadable file, a directory, FIFO, socket or
// device (a symbolic link is followed only to find out which: EINVAL, EISDIR for a folder), and anything larger
// (EFBIG, said in the diagnostics log), read as nothing; the call never blocks on the object it finds.
StateFileContents ReadStateFileReporting(const std::string& path, std::size_t limit = kStateFileLimit);
// The same, without the reason.
std::optional<std::string> ReadStateFile(const std::string& path, std::size_t limit = kStateFileLimit);

// Replaces the file whole: a new file, readable and writable by its owner alone unless `mode` says otherwise, is
// written and flushed beside it, then renamed over it. Readers and a process killed at any moment see the old contents
// or the new ones; a symbolic link at the path is replaced, never written through. On failure the old file is left as
// it was. Temporary files that killed processes left beside the file are removed once they are a minute old.
std::error_code WriteStateFile(const std::string& path, std::string_view contents, mode_t mode = 0600);

}  // namespace orvistelle::platform
