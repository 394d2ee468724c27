#include "tools/devbackend/Jwt.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>

#include "platform/Base64.h"

namespace orvistelle::devbackend {
namespace {

std::string HmacSha256(std::string_view key, std::string_view data) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(data.data()),
       data.size(), digest.data(), &length);
  return std::string(reinterpret_cast<const char*>(digest.data()), length);
}

}  // namespace

std::string SignHs256(const nlohmann::json& claims, std::string_view secret) {
  static const nlohmann::json header = {{"alg", "HS256"}, {"typ", "JWT"}};
  std::string signingInput = platform::EncodeBase64Url(header.dump()) + "." + platform::EncodeBase64Url(claims.dump());
  return signingInput + "." + platform::EncodeBase64Url(HmacSha256(secret, signingInput));
}

std::optional<nlohmann::json> VerifyHs256(std::string_view token, std::string_view secret, double now) {
  auto firstDot = token.find('.');
  auto lastDot = token.rfind('.');
  if (firstDot == std::string_view::npos || firstDot == lastDot) return std::nullopt;
  auto header = platform::DecodeBase64Url(token.substr(0, firstDot));
  auto payload = platform::DecodeBase64Url(token.substr(firstDot + 1, lastDot - firstDot - 1));
  auto signature = platform::DecodeBase64Url(token.substr(lastDot + 1));
  if (!header || !payload || !signature) return std::nullopt;
  std::string expected = HmacSha256(secret, token.substr(0, lastDot));
  if (signature->size() != expected.size() || CRYPTO_memcmp(signature->data(), expected.data(), expected.size()) != 0) {
    return std::nullopt;
  }
  // Only HS256 is ever issued here; a token naming another algorithm ("none" above all) was not made here.
  auto headerJson = nlohmann::json::parse(*header, nullptr, false);
  auto claims = nlohmann::json::parse(*payload, nullptr, false);
  if (!headerJson.is_object() || headerJson["alg"] != "HS256" || !claims.is_object()) return std::nullopt;
  auto exp = claims.find("exp");
  if (exp == claims.end() || !exp->is_number() || exp->get<double>() <= now) return std::nullopt;
  return claims;
}

}  // namespace orvistelle::devbackend
