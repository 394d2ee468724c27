#include "i18n/Language.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "orvistelle/FcpI18n.h"
#include "platform/Platform.h"

namespace orvistelle::i18n {
namespace {

// Written at start-up and read by every lookup on any thread; relaxed is enough because the index guards no
// other data.
std::atomic<std::int32_t> g_lang{0};

char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// True when the tag's language subtag is exactly `first` `second` (lower case): pt, pt-BR and PT_br, but not pto.
bool LocalePrefix(std::string_view tag, char first, char second) {
  return tag.size() >= 2 && AsciiLower(tag[0]) == first && AsciiLower(tag[1]) == second &&
         (tag.size() == 2 || tag[2] == '-' || tag[2] == '_');
}

// A plain substring test over the whole tag, ignoring the tag's case; `needle` is written in lower case.
bool LocaleHas(std::string_view tag, std::string_view needle) {
  if (needle.empty() || tag.empty()) return false;
  auto sameLetter = [](char tagChar, char needleChar) { return AsciiLower(tagChar) == needleChar; };
  return std::search(tag.begin(), tag.end(), needle.begin(), needle.end(), sameLetter) != tag.end();
}

std::int32_t LanguageForTag(std::string_view tag) {
  if (LocalePrefix(tag, 'z', 'h')) {
    // A Traditional region wins over a Simplified script: zh-Hans-HK reads as Traditional.
    const bool traditional =
        LocaleHas(tag, "hant") || LocaleHas(tag, "tw") || LocaleHas(tag, "hk") || LocaleHas(tag, "mo");
    return traditional ? 2 : 1;
  }
  if (LocalePrefix(tag, 'j', 'a')) return 3;
  if (LocalePrefix(tag, 'k', 'o')) return 4;
  if (LocalePrefix(tag, 'p', 't')) return 5;  // Portugal reads the Brazilian texts too
  if (LocalePrefix(tag, 'e', 's')) return 6;
  if (LocalePrefix(tag, 'd', 'e')) return 7;
  return 0;
}

}  // namespace

std::int32_t CurrentLanguage() { return g_lang.load(std::memory_order_relaxed); }

}  // namespace orvistelle::i18n

void FcpI18nApplyHostLocale() {
  using namespace orvistelle;
  const std::vector<std::string> preferred = platform::Seam<platform::Languages>::Get().Preferred();
  // Only the first preferred language counts.
  const std::int32_t language = preferred.empty() ? 0 : i18n::LanguageForTag(preferred.front());
  i18n::g_lang.store(language, std::memory_order_relaxed);
}

const char* FcpI18nLangCode() {
  static constexpr const char* kCodes[] = {"zh", "zh-TW", "ja", "ko", "pt", "es", "de"};
  const auto position = static_cast<std::uint32_t>(orvistelle::i18n::CurrentLanguage()) - 1;
  return position < std::size(kCodes) ? kCodes[position] : "en";
}
