// Hooks for the tests only; production code never calls them.
#pragma once

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
  uint32_t bits = 0;
  int pending = 0;  // bits not yet written
  for (unsigned char byte : bytes) {
    bits = (bits << 8) | byte;
    for (pending += 8; pending >= 6; pending -= 6) text += kAlphabet[(bits >> (pending - 6)) & 63];
  }
  if (pending > 0) text += kAlphabet[(bits << (6 - pending)) & 63];
  return text;
}

}  // namespace orvistelle::auth
