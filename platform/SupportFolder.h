// The folders of the user's own where the product keeps its files, each rule written once, and the move of what an
// earlier version left in the places a Mac uses.
#pragma once

#include <functional>
#include <string>

namespace orvistelle::platform {

// ".local/share/orvistelle" under the home directory that the user database records, else under the Home seam's
// directory: a host started with another HOME still shares the app's files. Not created here. The database is asked
// once per process, unless a test has put a fake Home seam in place.
std::string SupportFolder();

// The user's videos folder: XDG_VIDEOS_DIR of "user-dirs.dirs" in $XDG_CONFIG_HOME (when absolute, else .config
// under the Home seam's directory), "$HOME" standing for that directory; "Videos" under it when the file names none,
// or names the home directory itself, which is how a user turns the folder off.
std::string VideosFolder(const std::function<const char*(const char*)>& getenv);

// Moves what an earlier version kept at `earlier`, a path relative to `root`, to `destination`, and then removes the
// folders of `earlier` that are left empty. Nothing moves when nothing is there, when it is neither a regular file
// nor a folder, or when the destination already holds something; no symbolic link below `root` is followed, and a
// file arrives readable by its owner alone. The destination's parents are created. What moved, and what stayed and
// why, goes to the diagnostics log.
void MoveFromEarlierPlace(const std::string& root, const std::string& earlier, const std::string& destination);

// The state files of an earlier version, from "Library/Application Support/Orvistelle" under the same home as
// SupportFolder() into it. Quick, and safe to run in every process: what is gone or already moved is skipped.
void MoveEarlierStateFiles();

}  // namespace orvistelle::platform
