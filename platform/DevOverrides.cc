#include "platform/DevOverrides.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

#include "orvistelle/BuildConfig.h"

namespace orvistelle::platform {
namespace {

std::optional<std::string_view> DevVariable(const char* name) {
  if (config::kReleaseBuild) return std::nullopt;
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string_view(value);
}

bool IsHttpBase(std::string_view url) {
  bool http = url.starts_with("http://") || url.starts_with("https://");
  return http && !url.ends_with('/') && url.find_first_of(" \t\r\n") == std::string_view::npos;
}

}  // namespace

std::optional<std::string> DevBackendBase() {
  std::optional<std::string_view> base = DevVariable("ORVISTELLE_DEV_BACKEND");
  if (!base || !IsHttpBase(*base)) return std::nullopt;
  return std::string(*base);
}

std::optional<std::chrono::milliseconds> DevTimerPeriod() {
  std::optional<std::string_view> text = DevVariable("ORVISTELLE_DEV_TIMER_MS");
  if (!text) return std::nullopt;
  long millis = 0;
  auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), millis);
  if (error != std::errc() || end != text->data() + text->size() || millis < 1 || millis > 3600000) {
    return std::nullopt;
  }
  return std::chrono::milliseconds(millis);
}

std::optional<std::string> DevHomeDirectory() {
  std::optional<std::string_view> home = DevVariable("ORVISTELLE_DEV_HOME");
  if (!home || !home->starts_with('/')) return std::nullopt;
  return std::string(*home);
}

std::optional<std::string> DevUpdateKey() {
  std::optional<std::string_view> key = DevVariable("ORVISTELLE_DEV_UPDATE_KEY");
  return key ? std::optional<std::string>(*key) : std::nullopt;
}

}  // namespace orvistelle::platform
