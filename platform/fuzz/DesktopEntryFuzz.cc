// The bytes as a whole entry, and as a value that must come back unchanged through the escaping we write.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/linux/DesktopEntry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace orvistelle::platform;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  (void)ParseDesktopEntry(text);
  auto written = ParseDesktopEntry("[Desktop Entry]\nX-Value=" + EscapeDesktopValue(text) + "\n");
  if (!written || written->size() != 1 || written->at("X-Value") != text) std::abort();
  auto exec = ParseDesktopEntry("[Desktop Entry]\nExec=" + EscapeDesktopValue(QuoteExecArgument(text)) + "\n");
  if (!exec || exec->at("Exec") != QuoteExecArgument(text)) std::abort();
  return 0;
}
