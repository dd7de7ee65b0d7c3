// The exact-arithmetic helpers against the 32-bit two's-complement results the analysers are
// built on: wrap at both ends, INT32_MIN, truncating division and the x86 float conversion.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "common/exact_math.h"

namespace {

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

TEST(ExactMath, SumsAndProductsWrapAtBothEnds) {
    EXPECT_EQ(rtm::wrapAdd32(kMax, 1), kMin);
    EXPECT_EQ(rtm::wrapAdd32(kMin, -1), kMax);
    EXPECT_EQ(rtm::wrapSub32(kMin, 1), kMax);
    EXPECT_EQ(rtm::wrapSub32(kMax, -1), kMin);
    EXPECT_EQ(rtm::wrapMul32(65536, 65536), 0);
    EXPECT_EQ(rtm::wrapMul32(kMax, 2), -2);
    EXPECT_EQ(rtm::wrapNeg32(kMin), kMin);
    EXPECT_EQ(rtm::wrapAbs32(kMin), kMin);
    EXPECT_EQ(rtm::wrapAbs32(-7), 7);
    EXPECT_EQ(rtm::low32(0x1'0000'0005LL), 5);
    EXPECT_EQ(rtm::low32(-1LL), -1);
}

TEST(ExactMath, DivisionTruncatesTowardZero) {
    EXPECT_EQ(rtm::truncDiv32(-7, 2), -3);
    EXPECT_EQ(rtm::truncDiv32(7, -2), -3);
    EXPECT_EQ(rtm::truncMod32(-7, 2), -1);
    EXPECT_EQ(rtm::truncDiv32(kMin, -1), kMin);  // the one quotient that does not fit
    EXPECT_EQ(rtm::truncMod32(kMin, -1), 0);
    EXPECT_EQ(rtm::truncDiv32(5, 0), 0);
}

TEST(ExactMath, ShiftsAreArithmetic) {
    EXPECT_EQ(rtm::sar32(-1, 1), -1);
    EXPECT_EQ(rtm::sar32(-3, 1), -2);  // rounds toward minus infinity, unlike -3 / 2
    EXPECT_EQ(rtm::sar32(kMin, 31), -1);
    EXPECT_EQ(rtm::sar32(kMax, 30), 1);
    EXPECT_EQ(rtm::sar64(-3, 1), -2);
    EXPECT_EQ(rtm::sar64(std::numeric_limits<int64_t>::min(), 63), -1);
}

TEST(ExactMath, FloatToIntGivesIntMinForNaNAndOutOfRange) {
    EXPECT_EQ(rtm::floatToIntX86(std::nan("")), kMin);
    EXPECT_EQ(rtm::floatToIntX86(std::numeric_limits<float>::quiet_NaN()), kMin);
    EXPECT_EQ(rtm::floatToIntX86(std::numeric_limits<double>::infinity()), kMin);
    EXPECT_EQ(rtm::floatToIntX86(-std::numeric_limits<double>::infinity()), kMin);
    EXPECT_EQ(rtm::floatToIntX86(2147483648.0), kMin);
    EXPECT_EQ(rtm::floatToIntX86(2147483647.9), kMax);
    EXPECT_EQ(rtm::floatToIntX86(-2147483648.9), kMin);
    EXPECT_EQ(rtm::floatToIntX86(-2.9), -2);
    EXPECT_EQ(rtm::floatToIntX86(2.9f), 2);
}

}  // namespace
