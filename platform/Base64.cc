#include "platform/Base64.h"

#include <cstdint>

namespace orvistelle::platform {
namespace {

constexpr std::string_view kStandard = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kUrlSafe = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

// Whether `padCount` '=' may follow `digits` characters; a last group of one character carries no whole byte.
bool PaddingAllowed(size_t digits, size_t padCount, Base64Padding padding) {
  if (digits % 4 == 1) return false;
  size_t completing = (4 - digits % 4) % 4;
  switch (padding) {
    case Base64Padding::kRequired: return padCount == completing;
    case Base64Padding::kOptional: return padCount <= completing;
    case Base64Padding::kForbidden: return padCount == 0;
  }
  return false;
}

std::optional<std::string> Decode(std::string_view text, std::string_view alphabet, Base64Padding padding) {
  size_t digits = text.find_last_not_of('=') + 1;  // npos + 1 == 0: all padding
  if (!PaddingAllowed(digits, text.size() - digits, padding)) return std::nullopt;
  std::string bytes;
  bytes.reserve(digits * 3 / 4);
  uint32_t bits = 0;
  int bitCount = 0;
  for (char c : text.substr(0, digits)) {
    size_t value = alphabet.find(c);
    if (value == std::string_view::npos) return std::nullopt;
    bits = (bits << 6) | static_cast<uint32_t>(value);
    bitCount += 6;
    if (bitCount >= 8) {
      bitCount -= 8;
      bytes += static_cast<char>((bits >> bitCount) & 0xff);
    }
  }
  return bytes;
}

std::string Encode(std::string_view bytes, std::string_view alphabet) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  uint32_t bits = 0;
  int pending = 0;  // bits not yet written
  for (unsigned char byte : bytes) {
    bits = (bits << 8) | byte;
    for (pending += 8; pending >= 6; pending -= 6) text += alphabet[(bits >> (pending - 6)) & 63];
  }
  if (pending > 0) text += alphabet[(bits << (6 - pending)) & 63];
  return text;
}

}  // namespace

std::optional<std::string> DecodeBase64(std::string_view text, Base64Padding padding) {
  return Decode(text, kStandard, padding);
}

std::optional<std::string> DecodeBase64Url(std::string_view text, Base64Padding padding) {
  return Decode(text, kUrlSafe, padding);
}

std::string EncodeBase64(std::string_view bytes) {
  std::string text = Encode(bytes, kStandard);
  text.append((4 - text.size() % 4) % 4, '=');
  return text;
}

std::string EncodeBase64Url(std::string_view bytes) { return Encode(bytes, kUrlSafe); }

}  // namespace orvistelle::platform
