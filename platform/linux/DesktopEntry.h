// Desktop entry files (the freedesktop.org format the Linux application database is made of): reading the main
// group, and writing the values this program puts into its own entry.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace orvistelle::platform {

// The keys of the "[Desktop Entry]" group with their values, string escapes ("\s", "\n", "\t", "\r", "\\") decoded;
// localised keys keep their "[locale]" suffix; of a repeated key the first value counts. Nothing when the text is not
// a desktop entry: a line that is neither blank, a comment, a group header nor "key=value", a key outside
// [A-Za-z0-9-] (plus the suffix), or a first group other than "Desktop Entry". Never throws, whatever the input.
std::optional<std::map<std::string, std::string>> ParseDesktopEntry(std::string_view text);

// Reads and parses the file; nothing when it cannot be read or parsed.
std::optional<std::map<std::string, std::string>> ReadDesktopEntry(const std::string& path);

// A value of type string as the file must hold it: backslash, newline, tab and carriage return escaped, and a leading
// space written "\s" so that it survives the trimming around "=".
std::string EscapeDesktopValue(std::string_view value);

// One argument of an Exec line: always inside double quotes, with '"', '`', '$' and '\' escaped by a backslash and
// '%' doubled, so that no character in a path is read as a field code or a separator. The result still needs
// EscapeDesktopValue before it goes into the file.
std::string QuoteExecArgument(std::string_view argument);

}  // namespace orvistelle::platform
