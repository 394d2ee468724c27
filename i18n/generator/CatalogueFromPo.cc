// Builds the catalogue table that Catalogue.cc compiles in from the translators' files: the template gives the keys
// (msgctxt), their order and the English texts (msgid); each language file gives one column (msgstr). A file that
// would ship a missing, empty, fuzzy or stale text, or a text whose placeholders differ from the English, fails the
// build with one line per problem, and no table is written.
//
// usage: orvistelle_catalogue_gen OUTPUT.inc TEMPLATE.pot LANGUAGE.po...   (language files in column order)
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

void ReadError2(int severity, po_message_t, const char* file, size_t line, size_t, int, const char* text,
                po_message_t, const char*, size_t, size_t, int, const char* text2) {
  ReadError(severity, nullptr, file, line, 0, 0, (std::string(text) + " " + text2).c_str());
}

const po_xerror_handler kReadErrors = {ReadError, ReadError2};

struct Message {
  std::string key;
  std::string english;
  std::string text;
  bool fuzzy;
};

// The messages of one file in file order, or nothing when it cannot be read; the header entry (no context, empty
// msgid) is left out.
std::optional<std::vector<Message>> ReadMessages(const char* path) {
  std::unique_ptr<std::remove_pointer_t<po_file_t>, void (*)(po_file_t)> file(po_file_read(path, &kReadErrors),
                                                                              po_file_free);
  if (!file) {
    Problem(path, "cannot be read");
    return std::nullopt;
  }
  std::vector<Message> messages;
  po_message_iterator_t iterator = po_message_iterator(file.get(), nullptr);
  while (po_message_t message = po_next_message(iterator)) {
    if (po_message_is_obsolete(message)) continue;
    const char* key = po_message_msgctxt(message);
    if (key == nullptr) {
      if (*po_message_msgid(message) != '\0') Problem(path, Quoted(po_message_msgid(message)) + " has no key (msgctxt)");
      continue;
    }
    messages.push_back({key, po_message_msgid(message), po_message_msgstr(message), po_message_is_fuzzy(message) != 0});
  }
  po_message_iterator_free(iterator);
  return messages;
}

// The conversions of a text in order, "%@" and "%d" as "@d"; a "%%" counts as a conversion "%".
std::string Placeholders(std::string_view text) {
  std::string found;
  for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 2))
    found += at + 1 < text.size() ? text[at + 1] : '%';
  return found;
}

std::vector<Message> ReadTemplate(const char* path) {
  std::vector<Message> keys = ReadMessages(path).value_or(std::vector<Message>());
  std::map<std::string_view, int> seen;
  for (const Message& message : keys) {
    if (++seen[message.key] == 2) Problem(path, "key " + message.key + " appears twice");
    if (message.english.empty()) Problem(path, message.key + " has no English text");
  }
  return keys;
}

// One column of the table, in template order; reports every text the build must not ship.
std::vector<std::string> ReadColumn(const char* path, const std::vector<Message>& keys) {
  std::optional<std::vector<Message>> messages = ReadMessages(path);
  if (!messages) return std::vector<std::string>(keys.size());
  std::map<std::string, Message> byKey;
  for (Message& message : *messages) byKey.emplace(message.key, std::move(message));
  std::vector<std::string> column;
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
      Problem(path, key + " translates " + Quoted(message.english) + ", not the current English " +
                        Quoted(expected.english));
    if (message.text.empty()) Problem(path, key + " has no translation");
    if (message.fuzzy) Problem(path, key + " is marked fuzzy");
    if (Placeholders(message.text) != Placeholders(expected.english))
      Problem(path, key + ": placeholders of " + Quoted(message.text) + " differ from the English " +
                        Quoted(expected.english));
    column.push_back(message.text);
    byKey.erase(found);
  }
  for (const auto& [key, message] : byKey) Problem(path, key + " is not in the template");
  return column;
}

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

bool WriteTable(const char* path, const std::vector<Message>& keys, const std::vector<std::vector<std::string>>& columns) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << "// Generated from i18n/po at build time; edit the .po files instead.\n"
         "// E(key, en, then one text per language file in column order)\n";
  for (std::size_t row = 0; row < keys.size(); ++row) {
    out << "E(" << CQuoted(keys[row].key) << ", " << CQuoted(keys[row].english);
    for (const std::vector<std::string>& column : columns) out << ", " << CQuoted(column[row]);
    out << ")\n";
  }
  out.flush();
  return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: " << argv[0] << " OUTPUT.inc TEMPLATE.pot LANGUAGE.po...\n";
    return 2;
  }
  const std::vector<Message> keys = ReadTemplate(argv[2]);
  std::vector<std::vector<std::string>> columns;
  for (int file = 3; file < argc; ++file) columns.push_back(ReadColumn(argv[file], keys));
  if (gProblems > 0) {
    std::cerr << gProblems << " problem(s) in the translation files; no catalogue written\n";
    return 1;
  }
  if (!WriteTable(argv[1], keys, columns)) {
    std::cerr << "cannot write " << argv[1] << "\n";
    return 1;
  }
  return 0;
}
