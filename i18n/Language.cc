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

// Written at start-up and read by every lookup on any thread; relaxed is enough because the language guards no
// other data.
std::atomic<Language> g_lang{Language::English};

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

Language LanguageForTag(std::string_view tag) {
  if (LocalePrefix(tag, 'z', 'h')) {
    // A Traditional region wins over a Simplified script: zh-Hans-HK reads as Traditional.
    const bool traditional =
        LocaleHas(tag, "hant") || LocaleHas(tag, "tw") || LocaleHas(tag, "hk") || LocaleHas(tag, "mo");
    return traditional ? Language::TraditionalChinese : Language::SimplifiedChinese;
  }
  if (LocalePrefix(tag, 'j', 'a')) return Language::Japanese;
  if (LocalePrefix(tag, 'k', 'o')) return Language::Korean;
  if (LocalePrefix(tag, 'p', 't')) return Language::Portuguese;  // Portugal reads the Brazilian texts too
  if (LocalePrefix(tag, 'e', 's')) return Language::Spanish;
  if (LocalePrefix(tag, 'd', 'e')) return Language::German;
  return Language::English;
}

}  // namespace

Language CurrentLanguage() { return g_lang.load(std::memory_order_relaxed); }

}  // namespace orvistelle::i18n

void FcpI18nApplyHostLocale() {
  using namespace orvistelle;
  const std::vector<std::string> preferred = platform::Seam<platform::Languages>::Get().Preferred();
  // Only the first preferred language counts.
  const i18n::Language language = preferred.empty() ? i18n::Language::English : i18n::LanguageForTag(preferred.front());
  i18n::g_lang.store(language, std::memory_order_relaxed);
}

const char* FcpI18nLangCode() {
  using namespace orvistelle::i18n;
  static constexpr const char* kCodes[] = {"en", "zh", "zh-TW", "ja", "ko", "pt", "es", "de"};
  static_assert(std::size(kCodes) == kLanguageCount);
  return kCodes[Column(CurrentLanguage())];
}
