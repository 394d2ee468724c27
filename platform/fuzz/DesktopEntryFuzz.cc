// The bytes as a whole entry, and as a value that must come back unchanged through the escaping we write.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/linux/DesktopEntry.h"

namespace {

using namespace orvistelle::platform;

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  if (auto keys = ParseDesktopEntry(text)) {
    for (const auto& [key, value] : *keys) Require(!key.empty() && key.front() != '[');
  }

  auto written = ParseDesktopEntry("[Desktop Entry]\nX-Value=" + EscapeDesktopValue(text) + "\n");
  Require(written && written->size() == 1 && written->at("X-Value") == text);
  auto exec = ParseDesktopEntry("[Desktop Entry]\nExec=" + EscapeDesktopValue(QuoteExecArgument(text)) + "\n");
  Require(exec && exec->at("Exec") == QuoteExecArgument(text));
  return 0;
}
