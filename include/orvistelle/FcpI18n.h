// Localisation: one interface language for the process, a built-in catalogue of every text, and the localised
// web links. Every function may be called from any thread; none blocks, none throws.
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

// The text for `key` in the current language, else English, else the key itself; "" for a null or empty key.
std::string FcpT(const char* key);

namespace orvistelle::i18n::detail {

// The value for one placeholder: text for "%@", a number for "%d".
struct FormatArg {
  bool isNumber;
  std::int32_t number;
  std::string_view text;
};

inline FormatArg MakeFormatArg(std::int32_t number) { return {true, number, {}}; }
inline FormatArg MakeFormatArg(const char* text) { return {false, 0, text != nullptr ? text : ""}; }
inline FormatArg MakeFormatArg(std::string_view text) { return {false, 0, text}; }

// Exactly std::int32_t (no silent narrowing or widening), or anything that reads as a string.
template <class T>
concept FormatValue =
    std::same_as<std::remove_cvref_t<T>, std::int32_t> || std::convertible_to<const T&, std::string_view>;

std::string FormatTranslation(const char* key, std::span<const FormatArg> args);

}  // namespace orvistelle::i18n::detail

// FcpT(key) with its placeholders filled in order, one argument each: "%@" takes a string (std::string,
// std::string_view or a C string; a null C string counts as empty), "%d" a std::int32_t written in signed decimal.
// Any other argument type does not compile. A placeholder whose argument is missing or of the other kind stays as
// written, spare arguments are ignored, "%%" gives "%", and any other "%" is kept. Texts put in are not scanned again.
template <orvistelle::i18n::detail::FormatValue... Args>
std::string FcpTf(const char* key, const Args&... args) {
  using orvistelle::i18n::detail::FormatArg;
  using orvistelle::i18n::detail::MakeFormatArg;
  const std::array<FormatArg, sizeof...(Args)> values{MakeFormatArg(args)...};
  return orvistelle::i18n::detail::FormatTranslation(key, values);
}

// Chooses the interface language from the user's first preferred language. Called at start-up.
void FcpI18nApplyHostLocale();

// "en", "zh", "zh-TW", "ja", "ko", "pt", "es" or "de"; a static string, never null.
const char* FcpI18nLangCode();

std::string FcpI18nSiteURL();
std::string FcpI18nDocsURL();
// A null flow id counts as empty; the id goes in as it is.
std::string FcpI18nSignInURL(const char* flowId);
std::string FcpI18nSignUpURL();
std::string FcpI18nTermsURL();
std::string FcpI18nPrivacyURL();
