// Writes our catalogue's German column as a gettext .po file: the key is the msgid, and the msgstr is exactly what
// FcpT answers in German (English where German has no text), so both lookups hand out the same strings.
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>

#include "GermanInterface.h"
#include "i18n/Catalogue.h"
#include "orvistelle/FcpI18n.h"

namespace {

std::string PoQuoted(std::string_view text) {
  std::string quoted = "\"";
  for (char c : text) {
    switch (c) {
      case '\\': quoted += "\\\\"; break;
      case '"': quoted += "\\\""; break;
      case '\n': quoted += "\\n"; break;
      case '\t': quoted += "\\t"; break;
      default: quoted += c;
    }
  }
  return quoted + "\"";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUTPUT.po\n", argv[0]);
    return 2;
  }
  const orvistelle::bench::GermanInterface german;
  std::ofstream po(argv[1], std::ios::binary | std::ios::trunc);
  po << "msgid \"\"\nmsgstr \"\"\n\"Content-Type: text/plain; charset=UTF-8\\n\"\n\"Language: de\\n\"\n";
  for (const auto& entry : orvistelle::i18n::CatalogueEntries()) {
    po << "\nmsgid " << PoQuoted(entry.key) << "\nmsgstr " << PoQuoted(FcpT(entry.key)) << "\n";
  }
  po.flush();
  return po ? 0 : 1;
}
