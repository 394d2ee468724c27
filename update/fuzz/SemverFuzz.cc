// Three version texts separated by newlines; whatever they hold, the comparison must stay a total order.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "update/Version.h"

namespace {

using orvistelle::update::CmpSemver;
using orvistelle::update::ParseSemver;

std::string_view NextLine(std::string_view& rest) {
  size_t end = rest.find('\n');
  std::string_view line = rest.substr(0, end);
  rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  return line;
}

void Require(bool holds) {
  if (!holds) std::abort();
}

void CheckParse(std::string_view text) {
  int32_t major = 7, minor = 7, patch = 7;
  bool parsed = ParseSemver(text, &major, &minor, &patch);
  Require(parsed == !text.empty());
  if (!parsed) Require(major == 7 && minor == 7 && patch == 7);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  std::string_view a = NextLine(rest);
  std::string_view b = NextLine(rest);
  std::string_view c = rest;
  for (std::string_view text : {a, b, c}) CheckParse(text);

  int ab = CmpSemver(a, b), bc = CmpSemver(b, c), ac = CmpSemver(a, c);
  Require(ab >= -1 && ab <= 1);
  Require(CmpSemver(a, a) == 0);
  Require(CmpSemver(b, a) == -ab);
  if (ab <= 0 && bc <= 0) Require(ac <= 0);
  if (ab == 0 && bc == 0) Require(ac == 0);
  return 0;
}
