#include "platform/DiagnosticsLog.h"
#include "platform/LogText.h"
#include "platform/Platform.h"

#include <cstdlib>
#include <string>

namespace orvistelle::platform {

void Log(std::string_view message) {
  std::string line = "[Orvistelle] ";
  line += EscapeLogText(message);
  Seam<SystemLog>::Get().Write(line);
  Diagnose(message);
}

namespace {

std::string_view StripEncodingAndModifier(std::string_view locale) {
  return locale.substr(0, locale.find_first_of(".@"));
}

const char* FirstNonEmpty(const std::function<const char*(const char*)>& getenv) {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = getenv(name);
    if (value != nullptr && *value != '\0') return value;
  }
  return nullptr;
}

}  // namespace

std::optional<std::string> LanguageTagFromEnvironment(const std::function<const char*(const char*)>& getenv) {
  std::string_view chosen;
  const char* language = getenv("LANGUAGE");
  std::string_view first = language != nullptr ? std::string_view(language) : std::string_view();
  first = first.substr(0, first.find(':'));
  if (!first.empty()) {
    chosen = first;
  } else if (const char* value = FirstNonEmpty(getenv)) {
    chosen = value;
  }
  chosen = StripEncodingAndModifier(chosen);
  if (chosen.empty() || chosen == "C" || chosen == "POSIX") return std::nullopt;
  return std::string(chosen);
}

}  // namespace orvistelle::platform
