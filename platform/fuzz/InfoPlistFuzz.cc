#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/InfoPlist.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto info = orvistelle::platform::ParseInfoPlist(std::string_view(reinterpret_cast<const char*>(data), size));
  if (info) {
    for (const auto& [key, value] : *info) (void)(key.size() + value.size());
  }
  return 0;
}
