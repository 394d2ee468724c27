// The process-wide interface language, shared by the catalogue lookup and the links.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orvistelle::i18n {

// In the catalogue's column order, which is the order of the translation files the catalogue is generated from.
enum class Language : std::uint8_t {
  English,
  SimplifiedChinese,
  TraditionalChinese,
  Japanese,
  Korean,
  Portuguese,
  Spanish,
  German,
};

inline constexpr std::size_t kLanguageCount = static_cast<std::size_t>(Language::German) + 1;

// The language's column in the catalogue and in every table indexed by language.
constexpr std::size_t Column(Language language) { return static_cast<std::size_t>(language); }

// The language chosen by FcpI18nApplyHostLocale; English until then.
Language CurrentLanguage();

}  // namespace orvistelle::i18n
