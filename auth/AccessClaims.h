// What the access token says about its holder.
#pragma once

#include <string>
#include <string_view>

namespace orvistelle::auth {

struct AccessClaims {
  std::string email;  // "email", else "user_metadata"."email"; empty when neither is a non-empty string
  double expiry = 0;  // "exp" as a number or numeric string; 0 otherwise
};
// Reads the claims of a JWT without verifying it: they only serve display and scheduling.
AccessClaims ParseAccessClaims(std::string_view token);

// An e-mail that could not be shown is not kept either: it reads as unknown.
std::string ShowableOrEmpty(const std::string& email);

}  // namespace orvistelle::auth
