#include "i18n/Catalogue.h"

#include <iterator>
#include <string>
#include <unordered_map>

#include "orvistelle/FcpI18n.h"
#include "platform/NoDestructor.h"

namespace orvistelle::i18n {
namespace {

// Refuses, at compile time, a catalogue line without exactly one text per language.
template <class... Texts>
requires(sizeof...(Texts) == kLanguageCount) consteval CatalogueEntry MakeEntry(const char* key, Texts... texts) {
  return {key, {texts...}};
}

constexpr CatalogueEntry kCatalogue[] = {
#define E(key, ...) MakeEntry(key, __VA_ARGS__),
#include "i18n/Catalogue.inc"
#undef E
};

// Keys are views of the static table, so a lookup by string_view needs no temporary string.
using CatalogueMap = std::unordered_map<std::string_view, const CatalogueEntry*>;

CatalogueMap IndexByKey() {
  CatalogueMap map;
  map.reserve(std::size(kCatalogue));
  for (const CatalogueEntry& entry : kCatalogue) map.emplace(entry.key, &entry);
  return map;
}

const CatalogueMap& Entries() {
  // Status lines are translated on host threads that may still run while the process exits.
  static const platform::NoDestructor<CatalogueMap> entries(IndexByKey());
  return *entries;
}

}  // namespace

std::span<const CatalogueEntry> CatalogueEntries() { return kCatalogue; }

std::string_view EntryText(const CatalogueEntry& entry, Language language) {
  const char* text = entry.texts[Column(language)];
  if (text == nullptr || *text == '\0') text = entry.texts[Column(Language::English)];
  return text != nullptr ? text : entry.key;
}

std::string_view Translate(const char* key) {
  if (key == nullptr || *key == '\0') return {};
  const CatalogueMap& entries = Entries();
  auto found = entries.find(key);
  return found == entries.end() ? std::string_view(key) : EntryText(*found->second, CurrentLanguage());
}

}  // namespace orvistelle::i18n

std::string FcpT(const char* key) { return std::string(orvistelle::i18n::Translate(key)); }
