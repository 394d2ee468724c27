#include "platform/LogText.h"

namespace orvistelle::platform {
namespace {

struct CodePoint {
  char32_t value = 0;
  size_t length = 0;  // 0: the byte at the start is not valid UTF-8
};

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// The code point at the start of a non-empty text, refusing overlong forms, surrogates and values past U+10FFFF.
CodePoint DecodeUtf8(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) return {lead, 1};
  const size_t length = lead >= 0xF8 ? 0 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
  if (length == 0 || text.size() < length) return {};
  char32_t value = lead & (0x7F >> length);
  for (size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (!IsContinuation(byte)) return {};
    value = (value << 6) | (byte & 0x3F);
  }
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (value < kSmallest[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return {};
  return {value, length};
}

bool IsLineBreaking(char32_t c) { return c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x2028 || c == 0x2029; }

// "\\x1b" for a byte, "\\u2028" for a code point: lower-case hexadecimal, two or four digits.
std::string Hex(std::string_view prefix, char32_t value, int digits) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text(prefix);
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) text += kDigits[(value >> shift) & 0xF];
  return text;
}

std::string Escape(char32_t c) {
  switch (c) {
    case '\n': return "\\n";
    case '\r': return "\\r";
    case '\t': return "\\t";
    default: break;
  }
  return c < 0x80 ? Hex("\\x", c, 2) : Hex("\\u", c, 4);
}

}  // namespace

std::string EscapeLogText(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  while (!text.empty()) {
    const CodePoint point = DecodeUtf8(text);
    if (point.length == 0) {
      escaped += Hex("\\x", static_cast<unsigned char>(text[0]), 2);
      text.remove_prefix(1);
      continue;
    }
    if (IsLineBreaking(point.value)) {
      escaped += Escape(point.value);
    } else {
      escaped += text.substr(0, point.length);
    }
    text.remove_prefix(point.length);
  }
  return escaped;
}

}  // namespace orvistelle::platform
