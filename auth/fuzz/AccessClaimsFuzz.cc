// The bytes as a whole token and as the payload of a well-formed one: whatever a token claims, the expiry is a
// finite number and the e-mail is fit to be shown.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "auth/AccessClaims.h"
#include "auth/Status.h"
#include "platform/Base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace orvistelle::auth;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  std::string payload = orvistelle::platform::EncodeBase64Url(bytes);
  for (const std::string& token : {bytes, "eyJhbGciOiJIUzI1NiJ9." + payload + ".c2ln"}) {
    AccessClaims claims = ParseAccessClaims(token);
    if (!std::isfinite(claims.expiry) || !IsShowableText(claims.email)) std::abort();
  }
  return 0;
}
