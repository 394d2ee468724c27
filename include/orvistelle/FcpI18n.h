// Localisation: one interface language for the process, a built-in catalogue of every text, and the localised
// web links. Every function may be called from any thread; none blocks, none throws.
#pragma once

#include <string>

// The text for `key` in the current language, else English, else the key itself; "" for a null or empty key.
std::string FcpT(const char* key);

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
