// JSON as the backend and the state files speak it. Every read checks the value's type: a value of the wrong
// type is treated exactly like a missing one. Nothing here throws.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace orvistelle::platform {

using Json = nlohmann::json;

// Any JSON value; nothing for absent or malformed bytes.
std::optional<Json> ParseJson(std::optional<std::string_view> bytes);
// Only a top-level object; an array, string, number or malformed text gives nothing.
std::optional<Json> JsonObject(std::optional<std::string_view> bytes);

std::optional<std::string> StringMember(const Json& object, std::string_view key);
std::optional<std::string> NonEmptyStringMember(const Json& object, std::string_view key);
// Integers and floating-point numbers; booleans are not numbers here.
std::optional<double> NumberMember(const Json& object, std::string_view key);
// The member when it is an object, else null.
const Json* ObjectMember(const Json& object, std::string_view key);

// Compact text; invalid UTF-8 in a string is replaced rather than refused.
std::string Dump(const Json& value);

}  // namespace orvistelle::platform
