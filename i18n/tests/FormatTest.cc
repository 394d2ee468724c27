#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "i18n/tests/I18nTestSupport.h"

namespace orvistelle::i18n {
namespace {

template <class T>
constexpr bool kFormattable = requires(const T& value) {
  FcpTf("shell.version", value);
};

// Wrong argument types are refused at compile time rather than printed as garbage.
static_assert(kFormattable<std::int32_t> && kFormattable<int> && kFormattable<const char*> && kFormattable<char[4]> &&
              kFormattable<std::string> && kFormattable<std::string_view>);
static_assert(!kFormattable<double> && !kFormattable<std::int64_t> && !kFormattable<std::uint32_t> &&
              !kFormattable<char> && !kFormattable<bool> && !kFormattable<void*>);

struct FormatCase {
  const char* name;
  int language;
  std::function<std::string()> format;
  std::string expected;
};

class FormatTest : public I18nTest, public ::testing::WithParamInterface<FormatCase> {};

TEST_P(FormatTest, FillsPlaceholdersInOrder) {
  UseLanguage(GetParam().language);
  EXPECT_EQ(GetParam().format(), GetParam().expected);
}

const std::string kMoveHint = ". Move the app to Applications and try again.";

INSTANTIATE_TEST_SUITE_P(
    Cases, FormatTest,
    ::testing::Values(
        FormatCase{"negative_number", 0, [] { return FcpTf("shell.registerFailed", -42); },
                   "Registration failed (error -42)" + kMoveHint},
        FormatCase{"smallest_number", 0, [] { return FcpTf("shell.registerFailed", INT32_MIN); },
                   "Registration failed (error -2147483648)" + kMoveHint},
        FormatCase{"traditional_chinese", 2, [] { return FcpTf("shell.registerFailed", 0); },
                   "登記失敗（錯誤碼 0）。請把應用放到「應用程式」後重試。"},
        FormatCase{"japanese_version", 3, [] { return FcpTf("shell.version", "1.4.0"); }, "バージョン 1.4.0"},
        FormatCase{"std_string", 7, [] { return FcpTf("shell.version", std::string("2.0")); }, "Version 2.0"},
        FormatCase{"string_view", 1, [] { return FcpTf("auth.sessionSaveFailed", std::string_view("磁盘已满")); },
                   "登录状态保存失败：磁盘已满"},
        FormatCase{"null_c_string", 0,
                   [] { return FcpTf("auth.sessionSaveFailed", static_cast<const char*>(nullptr)); },
                   "Could not save sign-in state: "},
        // Texts put in are not read as formats themselves.
        FormatCase{"inserted_text_is_not_a_format", 6, [] { return FcpTf("shell.installTemplateFailed", "%d %@ %%"); },
                   "No se pudo instalar la plantilla: %d %@ %%"},
        // A missing argument or one of the other kind leaves the placeholder; spare arguments are ignored.
        FormatCase{"missing_argument", 0, [] { return FcpTf("shell.version"); }, "Version %@"},
        FormatCase{"number_for_string", 0, [] { return FcpTf("shell.version", 7); }, "Version %@"},
        FormatCase{"string_for_number", 0, [] { return FcpTf("shell.registerFailed", "7"); },
                   "Registration failed (error %d)" + kMoveHint},
        FormatCase{"spare_arguments", 5, [] { return FcpTf("shell.version", "1.0", 3, "x"); }, "Versão 1.0"},
        // An unknown key is its own format.
        FormatCase{"unknown_key", 4, [] { return FcpTf("no.such.key", "x", 1); }, "no.such.key"},
        FormatCase{"key_as_format", 0, [] { return FcpTf("%@ and %d, %@ at 100%% %s %", 5, 6, "b"); },
                   "%@ and 6, b at 100% %s %"},
        FormatCase{"adjacent_placeholders", 0, [] { return FcpTf("%d%d%@", 1, 2, "c"); }, "12c"},
        FormatCase{"null_key", 0, [] { return FcpTf(nullptr, "x"); }, ""},
        FormatCase{"empty_key", 0, [] { return FcpTf("", 1); }, ""}));

}  // namespace
}  // namespace orvistelle::i18n
