// Whatever the body: no crash, and an empty direct download reads as none, so that the fallback takes its place.
#include <cstdlib>

#include "update/Manifest.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto reading = orvistelle::update::ReadManifest(std::string_view(reinterpret_cast<const char*>(data), size));
  const auto* entry = std::get_if<orvistelle::update::HostEntry>(&reading);
  if (entry != nullptr && entry->download && entry->download->empty()) std::abort();
  return 0;
}
