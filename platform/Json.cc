#include "platform/Json.h"

namespace orvistelle::platform {
namespace {

const Json* Member(const Json& object, std::string_view key) {
  if (!object.is_object()) return nullptr;
  auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

}  // namespace

std::optional<Json> ParseJson(std::optional<std::string_view> bytes) {
  if (!bytes) return std::nullopt;
  try {
    Json value = Json::parse(*bytes, nullptr, /*allow_exceptions=*/false);
    if (value.is_discarded()) return std::nullopt;
    return value;
  } catch (...) {  // out of memory on a hostile body: treated like any other undecodable one
    return std::nullopt;
  }
}

std::optional<Json> JsonObject(std::optional<std::string_view> bytes) {
  std::optional<Json> value = ParseJson(bytes);
  if (!value || !value->is_object()) return std::nullopt;
  return value;
}

std::optional<std::string> StringMember(const Json& object, std::string_view key) {
  const Json* value = Member(object, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

std::optional<std::string> NonEmptyStringMember(const Json& object, std::string_view key) {
  std::optional<std::string> value = StringMember(object, key);
  if (!value || value->empty()) return std::nullopt;
  return value;
}

std::optional<double> NumberMember(const Json& object, std::string_view key) {
  const Json* value = Member(object, key);
  if (value == nullptr || !value->is_number()) return std::nullopt;
  return value->get<double>();
}

const Json* ObjectMember(const Json& object, std::string_view key) {
  const Json* value = Member(object, key);
  return value != nullptr && value->is_object() ? value : nullptr;
}

std::string Dump(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace orvistelle::platform
