// What outside text (a manifest, a server's answer, a file name) must go through before it reaches a log line.
#pragma once

#include <string>
#include <string_view>

namespace orvistelle::platform {

// The text with whatever could break a log line or steer a terminal made visible, so that outside text can neither
// forge lines nor hide in one: C0 controls as \n, \r, \t or \x1b, DEL as \x7f, each byte that is not part of valid
// UTF-8 as \xff, the C1 controls and the line and paragraph separators as \u0085, \u2028, \u2029. The result holds
// printable ASCII and other valid UTF-8 only, so escaping it again changes nothing.
std::string EscapeLogText(std::string_view text);

}  // namespace orvistelle::platform
