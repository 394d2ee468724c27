// The built-in message catalogue: every text the product shows, in every interface language.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "i18n/Language.h"

namespace orvistelle::i18n {

struct CatalogueEntry {
  const char* key;
  std::array<const char*, kLanguageCount> texts;  // static data, indexed by language
};

// Every entry, in catalogue order.
std::span<const CatalogueEntry> CatalogueEntries();

// The entry's text in `language`; English when that column is null or empty; the key when English is null. An
// empty English text is returned as it is.
std::string_view EntryText(const CatalogueEntry& entry, Language language);

// The text for `key` in the current language with the fallbacks of EntryText; the key itself when unknown; empty
// for a null or empty key. Views static data or `key`; allocates nothing.
std::string_view Translate(const char* key);

}  // namespace orvistelle::i18n
