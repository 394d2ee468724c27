// HS256 JSON Web Tokens, the form the client reads its session claims from.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace orvistelle::devbackend {

// Signs the development access tokens and the development public key alike; never used outside this machine.
inline constexpr char kDevelopmentSecret[] = "orvistelle-development-secret-not-for-production";

std::string SignHs256(const nlohmann::json& claims, std::string_view secret);

// The claims of a token signed with the secret whose "exp" lies after now; nothing for any other token.
std::optional<nlohmann::json> VerifyHs256(std::string_view token, std::string_view secret, double now);

}  // namespace orvistelle::devbackend
