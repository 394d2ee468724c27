// Browser sign-in: what the relay table hands back once the website has deposited a new session.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orvistelle::auth {

struct RelayTokens {
  std::string access;
  std::string refresh;
};

// The tokens of the first row's "session_payload" in an answer of exactly 200; nothing for any other answer, or when
// either token is missing or empty.
std::optional<RelayTokens> ReadRelayAnswer(int64_t status, const std::optional<std::string>& body);

}  // namespace orvistelle::auth
