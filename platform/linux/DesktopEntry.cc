#include "platform/linux/DesktopEntry.h"

#include "platform/StateFile.h"

namespace orvistelle::platform {
namespace {

constexpr std::string_view kMainGroup = "Desktop Entry";

bool IsKeyChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
}

bool IsLocaleChar(char c) { return IsKeyChar(c) || c == '_' || c == '@' || c == '.'; }

// "Name" or "Name[de_DE@euro]".
bool IsValidKey(std::string_view key) {
  size_t open = key.find('[');
  std::string_view name = key.substr(0, open);
  if (name.empty()) return false;
  for (char c : name) {
    if (!IsKeyChar(c)) return false;
  }
  if (open == std::string_view::npos) return true;
  std::string_view locale = key.substr(open + 1);
  if (locale.size() < 2 || locale.back() != ']') return false;
  locale.remove_suffix(1);
  for (char c : locale) {
    if (!IsLocaleChar(c)) return false;
  }
  return true;
}

std::string_view TrimLeft(std::string_view text) {
  size_t first = text.find_first_not_of(" \t");
  return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

std::string_view TrimRight(std::string_view text) {
  size_t last = text.find_last_not_of(" \t");
  return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

// Escapes other than the five of a string value ("\;" in lists) are kept as written for the caller to read.
std::string DecodeValue(std::string_view raw) {
  std::string out;
  out.reserve(raw.size());
  for (size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] != '\\' || i + 1 == raw.size()) {
      out += raw[i];
      continue;
    }
    switch (raw[++i]) {
      case 's': out += ' '; break;
      case 'n': out += '\n'; break;
      case 't': out += '\t'; break;
      case 'r': out += '\r'; break;
      case '\\': out += '\\'; break;
      default: out += '\\'; out += raw[i];
    }
  }
  return out;
}

enum class Section { BeforeFirstGroup, Main, AfterMain };

// One pass over the lines; the state says which group the current line belongs to.
class EntryReader {
 public:
  bool Line(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (TrimLeft(line).empty() || line.front() == '#') return true;
    if (line.front() == '[') return Group(line);
    if (section_ == Section::BeforeFirstGroup) return false;
    size_t equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    std::string_view key = TrimRight(line.substr(0, equals));
    if (!IsValidKey(key)) return false;
    if (section_ == Section::Main) keys_.emplace(std::string(key), DecodeValue(TrimLeft(line.substr(equals + 1))));
    return true;
  }

  std::optional<std::map<std::string, std::string>> Result() && {
    if (section_ == Section::BeforeFirstGroup) return std::nullopt;
    return std::move(keys_);
  }

 private:
  bool Group(std::string_view line) {
    if (line.size() < 2 || line.back() != ']') return false;
    std::string_view name = line.substr(1, line.size() - 2);
    if (name.find_first_of("[]") != std::string_view::npos) return false;
    bool main = name == kMainGroup;
    if (main != (section_ == Section::BeforeFirstGroup)) return false;  // first and only first
    section_ = main ? Section::Main : Section::AfterMain;
    return true;
  }

  Section section_ = Section::BeforeFirstGroup;
  std::map<std::string, std::string> keys_;
};

}  // namespace

std::optional<std::map<std::string, std::string>> ParseDesktopEntry(std::string_view text) {
  EntryReader reader;
  while (!text.empty()) {
    size_t end = text.find('\n');
    if (!reader.Line(text.substr(0, end))) return std::nullopt;
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
  }
  return std::move(reader).Result();
}

std::optional<std::map<std::string, std::string>> ReadDesktopEntry(const std::string& path) {
  // Other programs' entries carry every translation of their names; none comes near this.
  constexpr std::size_t kLimit = 1024 * 1024;
  std::optional<std::string> text = ReadStateFile(path, kLimit);
  if (!text) return std::nullopt;
  return ParseDesktopEntry(*text);
}

std::string EscapeDesktopValue(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  for (size_t i = 0; i < value.size(); ++i) {
    switch (value[i]) {
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      case ' ': out += i == 0 ? "\\s" : " "; break;
      default: out += value[i];
    }
  }
  return out;
}

std::string QuoteExecArgument(std::string_view argument) {
  std::string out = "\"";
  for (char c : argument) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') out += '\\';
    if (c == '%') out += '%';
    out += c;
  }
  out += '"';
  return out;
}

}  // namespace orvistelle::platform
