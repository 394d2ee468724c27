// The bytes as a whole token, and as the payload of a well-formed one so that the claim readers see every input.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "auth/Json.h"
#include "auth/Session.h"

namespace {

using namespace orvistelle::auth;

void Require(bool holds) {
  if (!holds) std::abort();
}

std::string Base64Url(std::string_view bytes) {
  static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t group = static_cast<uint32_t>(static_cast<uint8_t>(bytes[i])) << 16;
    if (i + 1 < bytes.size()) group |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[i + 1])) << 8;
    if (i + 2 < bytes.size()) group |= static_cast<uint8_t>(bytes[i + 2]);
    size_t characters = std::min<size_t>(4, bytes.size() - i + 1);
    for (size_t j = 0; j < characters; ++j) text += kAlphabet[(group >> (18 - 6 * j)) & 63];
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  AccessClaims direct = ParseAccessClaims(bytes);
  Require(std::isfinite(direct.expiry));

  AccessClaims wrapped = ParseAccessClaims("eyJhbGciOiJIUzI1NiJ9." + Base64Url(bytes) + ".c2lnbmF0dXJl");
  Require(std::isfinite(wrapped.expiry));
  std::optional<Json> claims = JsonObject(std::string(bytes));
  if (!claims) {
    Require(wrapped.email.empty() && wrapped.expiry == 0);
  } else if (std::optional<std::string> email = NonEmptyStringMember(*claims, "email")) {
    Require(wrapped.email == *email);
  }
  return 0;
}
