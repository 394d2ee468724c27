// Base64 in both of its alphabets: standard ("+/", as published keys and signatures use it) and URL-safe ("-_", as
// JSON Web Tokens and the development backend's tokens use it).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvistelle::platform {

// Whether a text ends with the '=' that completes its last group of four: a signature file carries it, a JWT
// segment never does, and a token from elsewhere may or may not.
enum class Base64Padding {
  kRequired,   // whole groups of four, the last completed by '='
  kOptional,   // '=' may complete the last group, in part or in full, but never go past it
  kForbidden,  // no '=' at all
};

// The bytes of `text`, or nothing when it holds a character outside the alphabet (white space included), '='
// anywhere but at the end, padding the rule refuses, or a last group of a single character. An empty text is
// zero bytes.
std::optional<std::string> DecodeBase64(std::string_view text, Base64Padding padding = Base64Padding::kRequired);
std::optional<std::string> DecodeBase64Url(std::string_view text, Base64Padding padding = Base64Padding::kForbidden);

// Standard base64 with padding, and URL-safe base64 without it.
std::string EncodeBase64(std::string_view bytes);
std::string EncodeBase64Url(std::string_view bytes);

}  // namespace orvistelle::platform
