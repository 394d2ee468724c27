#include <cstdlib>

#include "platform/NoDestructor.h"
#include "platform/Platform.h"

namespace orvistelle::platform {
namespace {

// Linux has no ordered list of preferred languages; the locale environment names the one that counts.
class LocaleEnvironmentLanguages final : public Languages {
 public:
  std::vector<std::string> Preferred() override {
    std::optional<std::string> tag = LanguageTagFromEnvironment([](const char* name) { return std::getenv(name); });
    if (!tag) return {};
    return {*tag};
  }
};

}  // namespace

Languages& Languages::Default() {
  static NoDestructor<LocaleEnvironmentLanguages> languages;
  return *languages;
}

}  // namespace orvistelle::platform
