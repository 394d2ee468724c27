#include "auth/AccessClaims.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

#include "auth/Status.h"
#include "platform/Base64.h"
#include "platform/Json.h"

namespace orvistelle::auth {
using platform::Json, platform::JsonObject, platform::StringMember, platform::NonEmptyStringMember,
    platform::NumberMember, platform::ObjectMember;
namespace {

// The payload of "header.payload[.signature]" as bytes; nothing when it is missing or not base64url. Padding is
// not part of a token, but one that carries it is still read.
std::optional<std::string> JwtPayload(std::string_view token) {
  size_t firstDot = token.find('.');
  if (firstDot == std::string_view::npos) return std::nullopt;
  std::string_view payload = token.substr(firstDot + 1);
  payload = payload.substr(0, payload.find('.'));
  if (payload.empty()) return std::nullopt;
  return platform::DecodeBase64Url(payload, platform::Base64Padding::kOptional);
}

// The number that the text starts with, after any leading white space; 0 when it starts with none.
double LeadingNumber(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\r\v\f"), text.size()));
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && std::isfinite(value) ? value : 0;
}

double ExpiryClaim(const Json& claims) {
  if (std::optional<double> number = NumberMember(claims, "exp")) return *number;
  if (std::optional<std::string> text = StringMember(claims, "exp")) return LeadingNumber(*text);
  return 0;
}

std::string EmailClaim(const Json& claims) {
  if (std::optional<std::string> email = NonEmptyStringMember(claims, "email")) return ShowableOrEmpty(*email);
  const Json* metadata = ObjectMember(claims, "user_metadata");
  return metadata != nullptr ? ShowableOrEmpty(NonEmptyStringMember(*metadata, "email").value_or("")) : "";
}

}  // namespace

AccessClaims ParseAccessClaims(std::string_view token) {
  std::optional<Json> claims = JsonObject(JwtPayload(token));
  if (!claims) return {};
  return {EmailClaim(*claims), ExpiryClaim(*claims)};
}

std::string ShowableOrEmpty(const std::string& email) { return IsShowableText(email) ? email : ""; }

}  // namespace orvistelle::auth
