// Hooks for the tests only; production code never calls them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "auth/Settings.h"

namespace orvistelle::auth {

// The built-in endpoints and timings, for a test to start from.
AuthSettings ProductionSettings();

void SetAuthSettingsForTesting(const AuthSettings& settings);

// Stops the maintenance timer, ends sign-in polls, waits for every background task to finish, then returns the
// module to its state at process start (settings included), so that each test starts from nothing.
// Background requests in flight are waited for, so a test must let its servers answer or close first.
void ResetAuthForTesting();

// The unpadded base64url text of `bytes`, as a token's payload carries it.
inline std::string Base64Url(std::string_view bytes) {
  static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t group = static_cast<uint32_t>(static_cast<uint8_t>(bytes[i])) << 16;
    if (i + 1 < bytes.size()) group |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[i + 1])) << 8;
    if (i + 2 < bytes.size()) group |= static_cast<uint8_t>(bytes[i + 2]);
    for (size_t j = 0; j < std::min<size_t>(4, bytes.size() - i + 1); ++j) text += kAlphabet[(group >> (18 - 6 * j)) & 63];
  }
  return text;
}

}  // namespace orvistelle::auth
