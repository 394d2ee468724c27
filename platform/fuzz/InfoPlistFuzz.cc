#include <cstdint>
#include <string_view>

#include "platform/InfoPlist.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  (void)orvistelle::platform::ParseInfoPlist(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
