#include <gtest/gtest.h>

#include "platform/Base64.h"

namespace orvistelle::platform {
namespace {

// A malformed signature or token must be refused whole, never read in part.
TEST(Base64, DecodesOnlyWhatTheAlphabetAndPaddingRuleAllow) {
  using enum Base64Padding;
  // Name, text, whether in the URL-safe alphabet, padding rule, bytes.
  const std::tuple<const char*, std::string_view, bool, Base64Padding, std::optional<std::string>> rows[] = {
      {"empty", "", false, kRequired, ""}, {"whole group", "TWFu", false, kRequired, "Man"},
      {"two padding", "TQ==", false, kRequired, "M"}, {"one padding", "TWE=", false, kRequired, "Ma"},
      {"required padding missing", "TWE", false, kRequired, {}}, {"past the group", "TWFu====", false, kRequired, {}},
      {"only padding", "====", false, kRequired, {}}, {"padding inside", "TQ==TWFu", false, kRequired, {}},
      {"white space", "TWFu\n", false, kRequired, {}}, {"non-ASCII", "TWF\xc3", false, kRequired, {}},
      {"standard", "+/8=", false, kRequired, "\xfb\xff"}, {"url in standard", "-_8=", false, kRequired, {}},
      {"url", "-_8", true, kForbidden, "\xfb\xff"}, {"standard in url", "+/8", true, kForbidden, {}},
      {"forbidden padding", "TWE=", true, kForbidden, {}}, {"lone last character", "TWFuT", true, kForbidden, {}},
      {"optional absent", "TWE", true, kOptional, "Ma"}, {"optional in part", "TQ=", true, kOptional, "M"},
      {"optional past the group", "TWE==", true, kOptional, {}}};
  for (const auto& [name, text, url, padding, bytes] : rows) {
    EXPECT_EQ(url ? DecodeBase64Url(text, padding) : DecodeBase64(text, padding), bytes) << name;
  }
}

TEST(Base64, EncodesStandardPaddedAndUrlUnpadded) {
  using Texts = std::pair<std::string, std::string>;
  const std::pair<std::string_view, Texts> rows[] = {
      {"", {"", ""}}, {"M", {"TQ==", "TQ"}}, {"\xfb\xff\xbf", {"+/+/", "-_-_"}}};
  for (const auto& [bytes, texts] : rows) EXPECT_EQ(Texts(EncodeBase64(bytes), EncodeBase64Url(bytes)), texts) << bytes;
}

}  // namespace
}  // namespace orvistelle::platform
