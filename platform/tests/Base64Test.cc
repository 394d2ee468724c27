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
      {"url", "-_-_-w", true, kForbidden, "\xfb\xff\xbf\xfb"}, {"standard in url", "+/8", true, kForbidden, {}},
      {"forbidden padding", "TWE=", true, kForbidden, {}}, {"lone last character", "TWFuT", true, kForbidden, {}},
      {"optional absent", "TWE", true, kOptional, "Ma"}, {"optional in part", "TQ=", true, kOptional, "M"},
      {"optional past the group", "TWE==", true, kOptional, {}}};
  for (const auto& [name, text, url, padding, bytes] : rows) {
    EXPECT_EQ(url ? DecodeBase64Url(text, padding) : DecodeBase64(text, padding), bytes) << name;
    // Encoding writes the standard alphabet padded and the URL-safe one unpadded.
    if (bytes && (!url || text.find('=') == text.npos))
      EXPECT_EQ(url ? EncodeBase64Url(*bytes) : EncodeBase64(*bytes), text) << name << " encoded";
  }
}

}  // namespace
}  // namespace orvistelle::platform
