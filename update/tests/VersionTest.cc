#include <gtest/gtest.h>

#include "update/Version.h"
#include "update/tests/TestSupport.h"

namespace orvistelle::update {
namespace {

TEST(CmpSemver, ComparesNumericallyAndSymmetrically) {
  const struct {
    const char *a, *b;
    int expected;
  } rows[] = {{"1.2", "1.2.0", 0}, {"v1.2.0", "1.2.0.9", 0}, {"1.10.0", "1.9.9", 1}, {"1.2.3-beta", "1.2.3", 0},
              {"", "0.0.0", -1}, {"", "", 0}, {"v", "0", 0}, {"V2", "v1.99.99", 1}, {"1.rc1.0", "1.0.0", 0},
              {" 1. 2.\t3", "1.2.3", 0}, {" \t\n\v\f\r1", "1", 0}, {"-1.0.0", "0.0.0", -1}, {"+2.0.0", "2", 0}, {"vv1", "0", 0},
              {"4294967297.0.0", "2147483647.0.0", 0}, {"99999999999999999999999.1", "2147483647.0", 1},
              {"-99999999999.0.0", "-2147483648", 0}, {"1.2147483648", "1.2147483646", 1}};
  for (const auto& row : rows) {
    EXPECT_EQ(CmpSemver(row.a, row.b), row.expected) << row.a << " vs " << row.b;
    EXPECT_EQ(CmpSemver(row.b, row.a), -row.expected) << row.b << " vs " << row.a;
  }
}

// Components are clamped to 32 bits; empty text or a missing output is refused without touching the outputs.
TEST(ParseSemver, ClampsAndRefusesWithoutTouchingOutputs) {
  int32_t major = 7, minor = 7, patch = 7;
  EXPECT_FALSE(ParseSemver("", &major, &minor, &patch));
  EXPECT_FALSE(ParseSemver("1.2.3", nullptr, &minor, &patch));
  EXPECT_FALSE(ParseSemver("1.2.3", &major, &minor, nullptr));
  EXPECT_EQ(major + minor + patch, 21);
  ASSERT_TRUE(ParseSemver("4294967296.-4294967296.12abc", &major, &minor, &patch));
  EXPECT_EQ(std::vector<int32_t>({major, minor, patch}), std::vector<int32_t>({INT32_MAX, INT32_MIN, 12}));
  ASSERT_TRUE(ParseSemver("v", &major, &minor, &patch));
  EXPECT_EQ(major + minor + patch, 0);
}

TEST(CurrentVersion, ReadsTheShortVersionOnlyAndFallsBackToZero) {
  platform::testing::FakeBundle bundle;
  platform::ScopedSeam<platform::Bundle> seam(&bundle);
  bundle.SetInfo("CFBundleVersion", "9.9.9");
  EXPECT_EQ(CurrentVersion(), "0.0.0");
  bundle.SetInfo("CFBundleShortVersionString", "");
  EXPECT_EQ(CurrentVersion(), "0.0.0");
  bundle.SetInfo("CFBundleShortVersionString", "2.1");
  EXPECT_EQ(CurrentVersion(), "2.1");
}

}  // namespace
}  // namespace orvistelle::update
