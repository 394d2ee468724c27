// Three version texts separated by newlines; whatever they hold, the comparison must stay a total order.
#include <cstdlib>

#include "update/Version.h"

using orvistelle::update::CmpSemver;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size), texts[3];
  for (std::string_view& text : texts) {
    text = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), text.size() + 1));
  }
  const auto& [a, b, c] = texts;
  int ab = CmpSemver(a, b), bc = CmpSemver(b, c), ac = CmpSemver(a, c);
  bool antisymmetric = std::abs(ab) <= 1 && CmpSemver(b, a) == -ab && CmpSemver(a, a) == 0;
  bool transitive = (ab > 0 || bc > 0 || ac <= 0) && (ab != 0 || bc != 0 || ac == 0);
  if (!antisymmetric || !transitive) std::abort();
  return 0;
}
