// The bytes as a whole token, and as the payload of a well-formed one so that the claim readers see every input.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "auth/AuthTesting.h"
#include "auth/Json.h"
#include "auth/Session.h"

namespace {

using namespace orvistelle::auth;

void Require(bool holds) {
  if (!holds) std::abort();
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
