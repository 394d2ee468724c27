#include <gtest/gtest.h>

#include "update/Version.h"
#include "update/tests/TestSupport.h"

namespace orvistelle::update {
namespace {

struct Comparison {
  const char* a;
  const char* b;
  int expected;
};

void PrintTo(const Comparison& c, std::ostream* out) { *out << '"' << c.a << "\" vs \"" << c.b << '"'; }

class CmpSemverTest : public ::testing::TestWithParam<Comparison> {};

TEST_P(CmpSemverTest, ComparesNumericallyAndSymmetrically) {
  const Comparison& c = GetParam();
  EXPECT_EQ(CmpSemver(c.a, c.b), c.expected);
  EXPECT_EQ(CmpSemver(c.b, c.a), -c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Versions, CmpSemverTest,
    ::testing::Values(Comparison{"1.2", "1.2.0", 0}, Comparison{"v1.2.0", "1.2.0.9", 0},
                      Comparison{"1.10.0", "1.9.9", 1}, Comparison{"1.2.3-beta", "1.2.3", 0},
                      Comparison{"", "0.0.0", -1}, Comparison{"", "", 0}, Comparison{"v", "0", 0},
                      Comparison{"V2", "v1.99.99", 1}, Comparison{"1.rc1.0", "1.0.0", 0},
                      Comparison{" 1. 2.\t3", "1.2.3", 0}, Comparison{"-1.0.0", "0.0.0", -1},
                      Comparison{"+2.0.0", "2", 0}, Comparison{"vv1", "0", 0},
                      Comparison{"4294967297.0.0", "2147483647.0.0", 0},
                      Comparison{"99999999999999999999999.1", "2147483647.0", 1},
                      Comparison{"-99999999999.0.0", "-2147483648", 0},
                      Comparison{"1.2147483648", "1.2147483646", 1}));

TEST(ParseSemver, ClampsComponentsToThirtyTwoBits) {
  int32_t major = 0, minor = 0, patch = 0;
  ASSERT_TRUE(ParseSemver("4294967296.-4294967296.12abc", &major, &minor, &patch));
  EXPECT_EQ(major, INT32_MAX);
  EXPECT_EQ(minor, INT32_MIN);
  EXPECT_EQ(patch, 12);
}

TEST(ParseSemver, RefusesEmptyTextOrMissingOutputWithoutTouchingOutputs) {
  int32_t major = 7, minor = 7, patch = 7;
  EXPECT_FALSE(ParseSemver("", &major, &minor, &patch));
  EXPECT_FALSE(ParseSemver("1.2.3", nullptr, &minor, &patch));
  EXPECT_FALSE(ParseSemver("1.2.3", &major, &minor, nullptr));
  EXPECT_EQ(major + minor + patch, 21);
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
