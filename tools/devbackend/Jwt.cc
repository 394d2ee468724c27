#include "tools/devbackend/Jwt.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>

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

// OpenSSL speaks standard base64 with padding; JWTs use the URL-safe alphabet without it.
std::string Base64UrlEncode(std::string_view bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                               reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  out.resize(static_cast<size_t>(length));
  while (!out.empty() && out.back() == '=') out.pop_back();
  for (char& c : out) c = c == '+' ? '-' : c == '/' ? '_' : c;
  return out;
}

std::optional<std::string> Base64UrlDecode(std::string_view text) {
  if (text.size() % 4 == 1 || text.find_first_of("+/= \t\r\n") != std::string_view::npos) return std::nullopt;
  std::string standard(text);
  for (char& c : standard) c = c == '-' ? '+' : c == '_' ? '/' : c;
  size_t padding = (4 - standard.size() % 4) % 4;
  standard.append(padding, '=');
  std::string out(3 * standard.size() / 4, '\0');
  int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                               reinterpret_cast<const unsigned char*>(standard.data()), static_cast<int>(standard.size()));
  if (length < 0) return std::nullopt;
  out.resize(static_cast<size_t>(length) - padding);  // the block decoder counts padding as zero bytes
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
