// Reads the string values of a bundle's Info.plist (the XML property-list form).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace orvistelle::platform {

// The top-level dictionary's keys whose values are <string>s; other values are skipped. Nothing when the text is not
// an XML property list with a dictionary at its top. Never throws, whatever the input.
std::optional<std::map<std::string, std::string>> ParseInfoPlist(std::string_view xml);

// Reads and parses the file; nothing when it cannot be read or parsed.
std::optional<std::map<std::string, std::string>> ReadInfoPlist(const std::string& path);

}  // namespace orvistelle::platform
