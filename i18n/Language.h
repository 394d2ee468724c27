// The process-wide interface language, shared by the catalogue lookup and the links.
#pragma once

#include <cstdint>

namespace orvistelle::i18n {

// Columns of the catalogue and values of the current language: 0 "en", 1 "zh", 2 "zh-TW", 3 "ja", 4 "ko",
// 5 "pt", 6 "es", 7 "de".
inline constexpr std::int32_t kLanguageCount = 8;

// The index chosen by FcpI18nApplyHostLocale; 0 (English) until then.
std::int32_t CurrentLanguage();

}  // namespace orvistelle::i18n
