#include "platform/InfoPlist.h"

#include "platform/StateFile.h"

namespace orvistelle::platform {
namespace {

// A forward-only reader over the few XML constructs an Info.plist uses: tags, text and character entities.
class PlistCursor {
 public:
  explicit PlistCursor(std::string_view xml) : xml_(xml) {}

  // Moves past the next tag and returns its name ("dict", "/dict", "string/"); empty at the end of input.
  std::string NextTag() {
    while (true) {
      size_t open = xml_.find('<', pos_);
      if (open == std::string_view::npos) return {};
      size_t close = xml_.find('>', open);
      if (close == std::string_view::npos) return {};
      pos_ = close + 1;
      std::string_view tag = xml_.substr(open + 1, close - open - 1);
      if (tag.empty() || tag[0] == '?' || tag[0] == '!') continue;  // declarations, doctype, comments
      return NameOf(tag);
    }
  }

  // The text up to the next '<', entities decoded.
  std::optional<std::string> Text() {
    size_t end = xml_.find('<', pos_);
    if (end == std::string_view::npos) return std::nullopt;
    std::string_view raw = xml_.substr(pos_, end - pos_);
    pos_ = end;
    return Decode(raw);
  }

 private:
  static std::string NameOf(std::string_view tag) {
    bool selfClosing = tag.back() == '/';
    size_t end = tag.find_first_of(" \t\r\n/", tag[0] == '/' ? 1 : 0);
    std::string name(tag.substr(0, end));
    return selfClosing ? name + "/" : name;
  }

  static std::optional<std::string> Decode(std::string_view raw) {
    static constexpr std::pair<std::string_view, char> kEntities[] = {
        {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
    std::string out;
    for (size_t i = 0; i < raw.size();) {
      if (raw[i] != '&') {
        out += raw[i++];
        continue;
      }
      bool known = false;
      for (const auto& [entity, ch] : kEntities) {
        if (raw.substr(i, entity.size()) == entity) {
          out += ch;
          i += entity.size();
          known = true;
          break;
        }
      }
      if (!known) return std::nullopt;
    }
    return out;
  }

  std::string_view xml_;
  size_t pos_ = 0;
};

// Skips one value whose opening tag was just read, including nested containers.
bool SkipValue(PlistCursor& cursor, const std::string& openTag) {
  if (openTag.empty() || openTag.back() == '/') return !openTag.empty();
  int depth = 1;
  while (depth > 0) {
    std::string tag = cursor.NextTag();
    if (tag.empty()) return false;
    if (tag.back() == '/') continue;
    depth += tag[0] == '/' ? -1 : 1;
  }
  return true;
}

bool ReadEntry(PlistCursor& cursor, std::map<std::string, std::string>& out) {
  std::optional<std::string> key = cursor.Text();
  if (!key || cursor.NextTag() != "/key") return false;
  std::string valueTag = cursor.NextTag();
  if (valueTag != "string") return SkipValue(cursor, valueTag);
  std::optional<std::string> value = cursor.Text();
  if (!value || cursor.NextTag() != "/string") return false;
  out.emplace(*key, *value);
  return true;
}

}  // namespace

std::optional<std::map<std::string, std::string>> ParseInfoPlist(std::string_view xml) {
  PlistCursor cursor(xml);
  if (cursor.NextTag() != "plist" || cursor.NextTag() != "dict") return std::nullopt;
  std::map<std::string, std::string> values;
  for (std::string tag = cursor.NextTag(); tag != "/dict"; tag = cursor.NextTag()) {
    if (tag != "key" || !ReadEntry(cursor, values)) return std::nullopt;
  }
  return values;
}

std::optional<std::map<std::string, std::string>> ReadInfoPlist(const std::string& path) {
  std::optional<std::string> text = ReadStateFile(path);
  if (!text) return std::nullopt;
  return ParseInfoPlist(*text);
}

}  // namespace orvistelle::platform
