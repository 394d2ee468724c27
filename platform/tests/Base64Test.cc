#include <gtest/gtest.h>

#include "platform/Base64.h"

namespace orvistelle::platform {
namespace {

constexpr auto kRequired = Base64Padding::kRequired;
constexpr auto kOptional = Base64Padding::kOptional;
constexpr auto kForbidden = Base64Padding::kForbidden;

// A malformed signature or token must be refused whole, never read in part.
TEST(Base64, DecodesOnlyWhatTheAlphabetAndPaddingRuleAllow) {
  struct Row {
    const char* name;
    std::string_view text;
    bool url;
    Base64Padding padding;
    std::optional<std::string> bytes;
  };
  const Row rows[] = {
      {"empty", "", false, kRequired, ""},
      {"whole group", "TWFu", false, kRequired, "Man"},
      {"two padding", "TQ==", false, kRequired, "M"},
      {"one padding", "TWE=", false, kRequired, "Ma"},
      {"required padding missing", "TWE", false, kRequired, std::nullopt},
      {"padding past the group", "TWFu====", false, kRequired, std::nullopt},
      {"only padding", "====", false, kRequired, std::nullopt},
      {"padding inside", "TQ==TWFu", false, kRequired, std::nullopt},
      {"white space", "TWFu\n", false, kRequired, std::nullopt},
      {"non-ASCII", "TWF\xc3", false, kRequired, std::nullopt},
      {"url characters in standard", "-_8=", false, kRequired, std::nullopt},
      {"standard", "+/8=", false, kRequired, "\xfb\xff"},
      {"url", "-_8", true, kForbidden, "\xfb\xff"},
      {"standard characters in url", "+/8", true, kForbidden, std::nullopt},
      {"forbidden padding", "TWE=", true, kForbidden, std::nullopt},
      {"lone last character", "TWFuT", true, kForbidden, std::nullopt},
      {"optional padding absent", "TWE", true, kOptional, "Ma"},
      {"optional padding in part", "TQ=", true, kOptional, "M"},
      {"optional padding past the group", "TWE==", true, kOptional, std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(row.url ? DecodeBase64Url(row.text, row.padding) : DecodeBase64(row.text, row.padding), row.bytes)
        << row.name;
  }
}

TEST(Base64, EncodesStandardPaddedAndUrlUnpadded) {
  const std::tuple<std::string_view, const char*, const char*> rows[] = {
      {"", "", ""}, {"M", "TQ==", "TQ"}, {"Ma", "TWE=", "TWE"}, {"\xfb\xff\xbf", "+/+/", "-_-_"}};
  for (const auto& [bytes, standard, url] : rows) {
    EXPECT_EQ(EncodeBase64(bytes), standard) << standard;
    EXPECT_EQ(EncodeBase64Url(bytes), url) << url;
  }
}

}  // namespace
}  // namespace orvistelle::platform
