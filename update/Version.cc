#include "update/Version.h"

#include <algorithm>
#include <array>
#include <limits>

#include "platform/Platform.h"

namespace orvistelle::update {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The lenient reading the platform applies to version components: garbage after the number is ignored and an
// out-of-range number saturates instead of wrapping.
int32_t LenientInt(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && IsBlank(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  constexpr int64_t kLimit = int64_t{std::numeric_limits<int32_t>::max()} + 1;
  int64_t magnitude = 0;
  for (; i < text.size() && IsDigit(text[i]); ++i) magnitude = std::min(kLimit, magnitude * 10 + (text[i] - '0'));
  int64_t value = negative ? -magnitude : magnitude;
  return static_cast<int32_t>(
      std::clamp<int64_t>(value, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
}

bool IsLetterOrDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool IsDigitGroups(std::string_view text) {
  constexpr size_t kMaxDigits = 9;  // stays within 32 bits, so nothing saturates
  for (;;) {
    size_t dot = text.find('.');
    std::string_view group = text.substr(0, dot);
    if (group.empty() || group.size() > kMaxDigits || !std::all_of(group.begin(), group.end(), IsDigit)) return false;
    if (dot == std::string_view::npos) return true;
    text.remove_prefix(dot + 1);
  }
}

}  // namespace

bool IsVersion(std::string_view text) {
  if (!text.empty() && (text.front() == 'v' || text.front() == 'V')) text.remove_prefix(1);
  size_t labelStart = text.find_first_of("-+");
  if (labelStart == std::string_view::npos) return IsDigitGroups(text);
  std::string_view label = text.substr(labelStart + 1);
  bool labelChars = std::all_of(label.begin(), label.end(),
                                [](char c) { return IsLetterOrDigit(c) || c == '.' || c == '-' || c == '+'; });
  return !label.empty() && labelChars && IsDigitGroups(text.substr(0, labelStart));
}

bool ParseSemver(std::string_view text, int32_t* major, int32_t* minor, int32_t* patch) {
  if (major == nullptr || minor == nullptr || patch == nullptr || text.empty()) return false;
  if (text.front() == 'v' || text.front() == 'V') text.remove_prefix(1);
  std::array<int32_t*, 3> outputs{major, minor, patch};
  for (int32_t* output : outputs) *output = 0;
  for (int32_t* output : outputs) {
    size_t dot = text.find('.');
    *output = LenientInt(text.substr(0, dot));
    if (dot == std::string_view::npos) break;
    text.remove_prefix(dot + 1);
  }
  return true;
}

int CmpSemver(std::string_view a, std::string_view b) {
  std::array<int32_t, 3> va{};
  std::array<int32_t, 3> vb{};
  bool parsedA = ParseSemver(a, &va[0], &va[1], &va[2]);
  bool parsedB = ParseSemver(b, &vb[0], &vb[1], &vb[2]);
  if (!parsedA || !parsedB) return parsedA == parsedB ? 0 : (parsedA ? 1 : -1);
  if (va == vb) return 0;
  return va < vb ? -1 : 1;
}

std::string CurrentVersion() {
  std::optional<std::string> version = platform::Seam<platform::Bundle>::Get().InfoString("CFBundleShortVersionString");
  return version && !version->empty() ? *version : "0.0.0";
}

}  // namespace orvistelle::update
