// The per-user support directory and the small state files in it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace orvistelle::auth {

// "Library/Application Support/Orvistelle" under the home directory that the user database records, or under
// the platform's home directory when the database has none. Not created here.
std::string SupportDir();
// Creates the support directory and its parents; failures are left for the following write to meet.
void EnsureDir();
// The file name joined to the support directory.
std::string SupportFile(std::string_view name);

// The whole file; nothing when it cannot be read.
std::optional<std::string> ReadFile(const std::string& path);
// Replaces the file in place, creating it readable and writable by its owner alone.
std::error_code WritePrivateFile(const std::string& path, std::string_view contents);
// Writes a temporary file beside the target and renames it over the target, so readers see old or new, whole.
bool WriteFileAtomically(const std::string& path, std::string_view contents);
void RemoveFile(const std::string& path);

// Without leading and trailing spaces, tabs and line breaks.
std::string Trimmed(std::string_view text);

}  // namespace orvistelle::auth
