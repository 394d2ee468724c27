#include "auth/Uuid.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <random>

namespace orvistelle::auth {
namespace {

using Bytes = std::array<uint8_t, 16>;

// A flow id is all that guards the relay row holding a fresh session, so ids come from the system's entropy
// source. Only a system without one falls back to a clock-seeded generator, which still keeps ids distinct.
// The generators are never destroyed: a heartbeat may still create the install id while the process exits.
Bytes RandomBytes() {
  static auto& mutex = *new std::mutex;
  std::lock_guard lock(mutex);
  Bytes bytes{};
  try {
    static auto& device = *new std::random_device;
    for (size_t i = 0; i < bytes.size(); i += 4) {
      uint32_t word = device();
      for (size_t j = 0; j < 4; ++j) bytes[i + j] = static_cast<uint8_t>(word >> (8 * j));
    }
  } catch (...) {
    static auto& fallback = *new std::mt19937_64(
        static_cast<uint64_t>(std::chrono::high_resolution_clock::now().time_since_epoch().count()));
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(fallback());
  }
  return bytes;
}

}  // namespace

std::string NewLowercaseUUID() {
  Bytes bytes = RandomBytes();
  bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0f) | 0x40);  // version 4
  bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3f) | 0x80);  // RFC 4122 variant
  static constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kHex[bytes[i] >> 4];
    text += kHex[bytes[i] & 0x0f];
  }
  return text;
}

}  // namespace orvistelle::auth
