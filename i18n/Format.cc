#include <charconv>
#include <string>

#include "i18n/Catalogue.h"
#include "orvistelle/FcpI18n.h"

namespace orvistelle::i18n::detail {
namespace {

// A placeholder takes its argument only when the kinds agree; otherwise it stays in the text as written.
void AppendPlaceholder(std::string& out, char conversion, const FormatArg* arg) {
  if (arg != nullptr && conversion == 'd' && arg->isNumber) {
    char digits[12];  // "-2147483648"
    out.append(digits, std::to_chars(digits, digits + sizeof digits, arg->number).ptr);
  } else if (arg != nullptr && conversion == '@' && !arg->isNumber) {
    out += arg->text;
  } else {
    out += '%';
    out += conversion;
  }
}

}  // namespace

std::string FormatTranslation(const char* key, std::span<const FormatArg> args) {
  const std::string_view format = Translate(key);
  std::string out;
  out.reserve(format.size());
  std::size_t nextArg = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    const char conversion = i + 1 < format.size() ? format[i + 1] : '\0';
    if (format[i] != '%' || (conversion != '@' && conversion != 'd' && conversion != '%')) {
      out += format[i];
      continue;
    }
    ++i;
    if (conversion == '%') {
      out += '%';
      continue;
    }
    AppendPlaceholder(out, conversion, nextArg < args.size() ? &args[nextArg] : nullptr);
    ++nextArg;
  }
  return out;
}

}  // namespace orvistelle::i18n::detail
