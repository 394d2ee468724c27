#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <variant>

#include "update/Manifest.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto reading = orvistelle::update::ReadManifest(std::string_view(reinterpret_cast<const char*>(data), size));
  if (const auto* entry = std::get_if<orvistelle::update::HostEntry>(&reading)) {
    // An empty direct download must read as none, so that the fallback takes its place.
    if (entry->downloadMacos && entry->downloadMacos->empty()) std::abort();
  }
  return 0;
}
