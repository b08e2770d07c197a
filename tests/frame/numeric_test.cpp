#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "frame/numeric.h"

namespace tocra {
namespace {

TEST(Numeric, TruncSatToInt32TruncatesTowardZeroAndSaturates) {
    EXPECT_EQ(TruncSatToInt32(2.9), 2);
    EXPECT_EQ(TruncSatToInt32(-2.9), -2);
    EXPECT_EQ(TruncSatToInt32(-0.5f), 0);
    EXPECT_EQ(TruncSatToInt32(2147483647.5), INT32_MAX);
    EXPECT_EQ(TruncSatToInt32(2147483648.0), INT32_MAX);
    EXPECT_EQ(TruncSatToInt32(-2147483648.0), INT32_MIN);
    EXPECT_EQ(TruncSatToInt32(-2147483649.0), INT32_MIN);
    EXPECT_EQ(TruncSatToInt32(3e9f), INT32_MAX);
    EXPECT_EQ(TruncSatToInt32(-3e9f), INT32_MIN);
    EXPECT_EQ(TruncSatToInt32(std::numeric_limits<double>::infinity()), INT32_MAX);
    EXPECT_EQ(TruncSatToInt32(-std::numeric_limits<float>::infinity()), INT32_MIN);
    EXPECT_EQ(TruncSatToInt32(std::nan("")), 0);
    EXPECT_EQ(TruncSatToInt32(std::nanf("")), 0);
    // The float form agrees with the double form at the float just below 2^31.
    EXPECT_EQ(TruncSatToInt32(2147483520.0f), 2147483520);
}

TEST(Numeric, ClampsAtBothEnds) {
    EXPECT_EQ(ClampToByte(-1), 0);
    EXPECT_EQ(ClampToByte(0), 0);
    EXPECT_EQ(ClampToByte(255), 255);
    EXPECT_EQ(ClampToByte(256), 255);
    EXPECT_EQ(ClampToByte(INT32_MIN), 0);
    EXPECT_EQ(ClampToInt8(-129), -128);
    EXPECT_EQ(ClampToInt8(-128), -128);
    EXPECT_EQ(ClampToInt8(127), 127);
    EXPECT_EQ(ClampToInt8(128), 127);
}

TEST(Numeric, RoundShiftRoundsHalfUp) {
    EXPECT_EQ(RoundShift(5, 1), 3);    // 2.5 -> 3
    EXPECT_EQ(RoundShift(-5, 1), -2);  // -2.5 -> -2 (half toward +infinity)
    EXPECT_EQ(RoundShift(6, 2), 2);    // 1.5 -> 2
    EXPECT_EQ(RoundShift(5, 2), 1);    // 1.25 -> 1
    EXPECT_EQ(RoundShift(1020, 2), 255);
    EXPECT_EQ(RoundShift(INT32_MAX, 1), 1073741824);  // no overflow in the sum
}

TEST(Numeric, Pitch128RoundsUpToWholeLines) {
    EXPECT_EQ(Pitch128(0), 0);
    EXPECT_EQ(Pitch128(1), 128);
    EXPECT_EQ(Pitch128(128), 128);
    EXPECT_EQ(Pitch128(129), 256);
    EXPECT_EQ(Pitch128(4000), 4096);
    static_assert(Pitch128(3) == 128, "usable in constant expressions");
}

}  // namespace
}  // namespace tocra
