// Builds the catalogue table that Catalogue.cc compiles in from the translators' files: the template gives the keys
// (msgctxt), their order and the English texts (msgid); each language file gives one column (msgstr). A file that
// would ship a missing, empty, fuzzy or stale text, or a text whose placeholders differ from the English, fails the
// build with one line per problem, and nothing is written.
//
// Keys under "desktop." are the menu entry's texts, not the catalogue's: they go to a second file as desktop entry
// lines ("Comment=...", "Comment[de]=..."), each language under the locale its file names in its header.
//
// usage: orvistelle_catalogue_gen TABLE.inc DESKTOP_TEXTS TEMPLATE.pot LANGUAGE.po...   (languages in column order)
#include <gettext-po.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

int gProblems = 0;

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

void Problem(const std::string& where, const std::string& what) {
  std::cerr << where << ": " << what << "\n";
  ++gProblems;
}

void ReadError(int severity, po_message_t, const char* file, size_t line, size_t, int, const char* text) {
  Problem(std::string(file != nullptr ? file : "?") + ":" + std::to_string(line), text);
  if (severity == PO_SEVERITY_FATAL_ERROR) std::exit(1);
}

void ReadError2(int severity, po_message_t, const char* file, size_t line, size_t, int, const char* text, po_message_t,
                const char*, size_t, size_t, int, const char* text2) {
  ReadError(severity, nullptr, file, line, 0, 0, (std::string(text) + " " + text2).c_str());
}

const po_xerror_handler kReadErrors = {ReadError, ReadError2};

constexpr std::string_view kDesktopPrefix = "desktop.";

struct Message {
  std::string key;
  std::string english;
  std::string text;
  bool fuzzy;
};

struct PoFile {
  std::vector<Message> messages;
  std::string language;  // the header's "Language", such as "pt_BR"
};

std::string HeaderLanguage(po_file_t file) {
  const char* header = po_file_domain_header(file, nullptr);
  std::unique_ptr<char, void (*)(void*)> language(header != nullptr ? po_header_field(header, "Language") : nullptr,
                                                  std::free);
  return language ? language.get() : "";
}

// The messages of one file in file order, or nothing when it cannot be read; the header entry (no context, empty
// msgid) is left out.
std::optional<PoFile> ReadMessages(const char* path) {
  std::unique_ptr<std::remove_pointer_t<po_file_t>, void (*)(po_file_t)> file(po_file_read(path, &kReadErrors),
                                                                              po_file_free);
  if (!file) {
    Problem(path, "cannot be read");
    return std::nullopt;
  }
  PoFile read{{}, HeaderLanguage(file.get())};
  std::vector<Message>& messages = read.messages;
  po_message_iterator_t iterator = po_message_iterator(file.get(), nullptr);
  while (po_message_t message = po_next_message(iterator)) {
    if (po_message_is_obsolete(message)) continue;
    const char* key = po_message_msgctxt(message);
    if (key == nullptr) {
      if (*po_message_msgid(message) != '\0')
        Problem(path, Quoted(po_message_msgid(message)) + " has no key (msgctxt)");
      continue;
    }
    messages.push_back({key, po_message_msgid(message), po_message_msgstr(message), po_message_is_fuzzy(message) != 0});
  }
  po_message_iterator_free(iterator);
  return read;
}

// The conversions of a text in order, "%@" and "%d" as "@d"; a "%%" counts as a conversion "%".
std::string Placeholders(std::string_view text) {
  std::string found;
  for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 2))
    found += at + 1 < text.size() ? text[at + 1] : '%';
  return found;
}

std::vector<Message> ReadTemplate(const char* path) {
  std::vector<Message> keys = ReadMessages(path).value_or(PoFile()).messages;
  std::map<std::string_view, int> seen;
  for (const Message& message : keys) {
    if (++seen[message.key] == 2) Problem(path, "key " + message.key + " appears twice");
    if (message.english.empty()) Problem(path, message.key + " has no English text");
  }
  return keys;
}

struct Column {
  std::string language;
  std::vector<std::string> texts;  // in template order
};

// One column of the table, in template order; reports every text the build must not ship.
Column ReadColumn(const char* path, const std::vector<Message>& keys) {
  std::optional<PoFile> file = ReadMessages(path);
  if (!file) return {"", std::vector<std::string>(keys.size())};
  std::map<std::string, Message> byKey;
  for (Message& message : file->messages) byKey.emplace(message.key, std::move(message));
  Column result{file->language, {}};
  std::vector<std::string>& column = result.texts;
  for (const Message& expected : keys) {
    const std::string& key = expected.key;
    const auto found = byKey.find(expected.key);
    if (found == byKey.end()) {
      Problem(path, key + " is missing");
      column.emplace_back();
      continue;
    }
    const Message& message = found->second;
    if (message.english != expected.english)
      Problem(path,
              key + " translates " + Quoted(message.english) + ", not the current English " + Quoted(expected.english));
    if (message.text.empty()) Problem(path, key + " has no translation");
    if (message.fuzzy) Problem(path, key + " is marked fuzzy");
    if (Placeholders(message.text) != Placeholders(expected.english))
      Problem(path, key + ": placeholders of " + Quoted(message.text) + " differ from the English " +
                        Quoted(expected.english));
    column.push_back(message.text);
    byKey.erase(found);
  }
  for (const auto& [key, message] : byKey) Problem(path, key + " is not in the template");
  return result;
}

bool IsDesktopText(const Message& message) { return message.key.starts_with(kDesktopPrefix); }

std::string CQuoted(std::string_view text) {
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (c == '\n') {
      quoted += "\\n";
      continue;
    }
    quoted += c;
  }
  return quoted + "\"";
}

bool WriteTable(const char* path, const std::vector<Message>& keys, const std::vector<Column>& columns) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << "// Generated from i18n/po at build time; edit the .po files instead.\n"
         "// E(key, en, then one text per language file in column order)\n";
  for (std::size_t row = 0; row < keys.size(); ++row) {
    if (IsDesktopText(keys[row])) continue;
    out << "E(" << CQuoted(keys[row].key) << ", " << CQuoted(keys[row].english);
    for (const Column& column : columns) out << ", " << CQuoted(column.texts[row]);
    out << ")\n";
  }
  out.flush();
  return static_cast<bool>(out);
}

std::string DesktopValue(std::string_view text) {
  std::string escaped;
  for (char c : text) escaped += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : std::string(1, c);
  return escaped;
}

// A desktop entry's locale is lang_COUNTRY; a region that is no country ("es_419", Latin America) matches no
// user's locale, so such a file stands for its whole language.
std::string DesktopLocale(const std::string& language) {
  const std::size_t underscore = language.find('_');
  const bool numericRegion =
      underscore != std::string::npos && language.find_first_not_of("0123456789", underscore + 1) == std::string::npos;
  return numericRegion ? language.substr(0, underscore) : language;
}

bool WriteDesktopTexts(const char* path, const std::vector<Message>& keys, const std::vector<Column>& columns) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  for (std::size_t row = 0; row < keys.size(); ++row) {
    if (!IsDesktopText(keys[row])) continue;
    const std::string name = keys[row].key.substr(kDesktopPrefix.size());
    out << name << "=" << DesktopValue(keys[row].english) << "\n";
    for (const Column& column : columns)
      out << name << "[" << DesktopLocale(column.language) << "]=" << DesktopValue(column.texts[row]) << "\n";
  }
  out.flush();
  return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::cerr << "usage: " << argv[0] << " TABLE.inc DESKTOP_TEXTS TEMPLATE.pot LANGUAGE.po...\n";
    return 2;
  }
  const std::vector<Message> keys = ReadTemplate(argv[3]);
  std::vector<Column> columns;
  for (int file = 4; file < argc; ++file) {
    columns.push_back(ReadColumn(argv[file], keys));
    if (columns.back().language.empty()) Problem(argv[file], "names no Language in its header");
  }
  if (gProblems > 0) {
    std::cerr << gProblems << " problem(s) in the translation files; no catalogue written\n";
    return 1;
  }
  if (!WriteTable(argv[1], keys, columns) || !WriteDesktopTexts(argv[2], keys, columns)) {
    std::cerr << "cannot write " << argv[1] << " or " << argv[2] << "\n";
    return 1;
  }
  return 0;
}
