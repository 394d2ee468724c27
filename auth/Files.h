// The per-user support folder and the small state files in it.
#pragma once

#include <string>
#include <string_view>

#include "platform/StateFile.h"

namespace orvistelle::auth {

// Creates the support folder (platform::SupportFolder) and its parents; failures are left for the following write to
// meet.
void EnsureDir();
// The file name joined to the support folder.
std::string SupportFile(std::string_view name);

// Every state file is read and replaced whole through these, never through a stream.
using platform::ReadStateFile;
using platform::WriteStateFile;
void RemoveFile(const std::string& path);

// Without leading and trailing spaces, tabs and line breaks.
std::string Trimmed(std::string_view text);

}  // namespace orvistelle::auth
