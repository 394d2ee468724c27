#include "tools/devbackend/Jwt.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>

namespace orvistelle::devbackend {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

int AlphabetIndex(char c) {
  auto at = kAlphabet.find(c);
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

std::string HmacSha256(std::string_view key, std::string_view data) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(data.data()),
       data.size(), digest.data(), &length);
  return std::string(reinterpret_cast<const char*>(digest.data()), length);
}

}  // namespace

std::string Base64UrlEncode(std::string_view bytes) {
  std::string out;
  uint32_t bits = 0;
  int pending = 0;
  for (unsigned char byte : bytes) {
    bits = (bits << 8) | byte;
    pending += 8;
    while (pending >= 6) {
      pending -= 6;
      out += kAlphabet[(bits >> pending) & 0x3F];
    }
  }
  if (pending > 0) out += kAlphabet[(bits << (6 - pending)) & 0x3F];
  return out;
}

std::optional<std::string> Base64UrlDecode(std::string_view text) {
  if (text.size() % 4 == 1) return std::nullopt;
  std::string out;
  uint32_t bits = 0;
  int pending = 0;
  for (char c : text) {
    int value = AlphabetIndex(c);
    if (value < 0) return std::nullopt;
    bits = (bits << 6) | static_cast<uint32_t>(value);
    pending += 6;
    if (pending >= 8) {
      pending -= 8;
      out += static_cast<char>((bits >> pending) & 0xFF);
    }
  }
  return out;
}

std::string SignHs256(const nlohmann::json& claims, std::string_view secret) {
  static const nlohmann::json header = {{"alg", "HS256"}, {"typ", "JWT"}};
  std::string signingInput = Base64UrlEncode(header.dump()) + "." + Base64UrlEncode(claims.dump());
  return signingInput + "." + Base64UrlEncode(HmacSha256(secret, signingInput));
}

std::optional<nlohmann::json> VerifyHs256(std::string_view token, std::string_view secret, double now) {
  auto firstDot = token.find('.');
  auto lastDot = token.rfind('.');
  if (firstDot == std::string_view::npos || firstDot == lastDot) return std::nullopt;
  auto header = Base64UrlDecode(token.substr(0, firstDot));
  auto payload = Base64UrlDecode(token.substr(firstDot + 1, lastDot - firstDot - 1));
  auto signature = Base64UrlDecode(token.substr(lastDot + 1));
  if (!header || !payload || !signature) return std::nullopt;
  std::string expected = HmacSha256(secret, token.substr(0, lastDot));
  if (signature->size() != expected.size() ||
      CRYPTO_memcmp(signature->data(), expected.data(), expected.size()) != 0) {
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
