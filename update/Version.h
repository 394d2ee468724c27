// Three-part numeric versions as the manifest and the bundle write them ("1.4.2", "v2.0", "1.2.3-beta").
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvistelle::update {

// False, leaving the outputs untouched, when a pointer is null or the text is empty. Otherwise an optional leading
// "v"/"V" is dropped and the first three dot-separated components are read leniently: leading blanks, a sign,
// then digits up to the first other character, clamped to 32 bits ("3-beta" is 3, "rc1" and "" are 0).
bool ParseSemver(std::string_view text, int32_t* major, int32_t* minor, int32_t* patch);

// Whether a manifest's "version" or "force_below" names a version, so that garbage is ignored rather than read
// leniently: an optional "v"/"V", dot-separated groups of 1 to 9 digits, and optionally "-" or "+" and a label of
// letters, digits, ".", "-" and "+" ("1.4.2", "v2", "1.2.3-beta.1").
bool IsVersion(std::string_view text);

// -1, 0 or 1. A text that does not parse (only the empty one) is lower than any that does.
int CmpSemver(std::string_view a, std::string_view b);

// The bundle's short version string, or "0.0.0". The build number is deliberately not consulted.
std::string CurrentVersion();

}  // namespace orvistelle::update
