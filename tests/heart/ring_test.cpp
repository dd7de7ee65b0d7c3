// The cardiac analyser's ring and index vocabulary: positions and slots fold onto their rings
// from any int, negative offsets included, and the write helpers wrap at the ring end.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>

#include "heart/ring.h"

namespace {

using namespace rtm::heart;

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

TEST(RingIndex, PositionsWrapAtBothEnds) {
    EXPECT_EQ(ringAt(0, -1), 3999);
    EXPECT_EQ(ringAt(3999, 1), 0);
    EXPECT_EQ(ringAt(2, -3), 3999);
    EXPECT_EQ(ringAt(-1), 3999);
    EXPECT_EQ(ringAt(3999, -4000), 3999);
    EXPECT_EQ(ringAt(0, 8001), 1);
}

TEST(RingIndex, ExtremePositionsStayInTheRingWithoutOverflow) {
    // Summed in 64 bits: INT32_MIN - 1 is -2147483649, not a wrapped INT32_MAX.
    EXPECT_EQ(ringAt(kMin, -1), 351);  // -2147483649 = -536871 * 4000 + 351
    EXPECT_EQ(ringAt(kMax, 1), 3648);  // 2147483648 = 536870 * 4000 + 3648
    EXPECT_EQ(slotAt(kMin), 12);       // -2147483648 = -107374183 * 20 + 12
    EXPECT_EQ(peakSlotAt(kMin), 2);
    EXPECT_EQ(wrapModulo(std::numeric_limits<int64_t>::min(), 7), 6);
}

TEST(RingIndex, FoldingAgreesWithTheModuloAtTheEdgesOfEachTurn) {
    // The first turns either side of the ring fold without a division; the results at and around
    // their edges must be those of the plain modulo.
    for (const int n : {1, 5, 20, 4000}) {
        for (const int64_t base : {int64_t{0}, int64_t{n}, -int64_t{n}, 2 * int64_t{n}, -2 * int64_t{n}}) {
            for (int64_t x = base - 2; x <= base + 2; ++x) {
                const int64_t expected = ((x % n) + n) % n;
                EXPECT_EQ(wrapModulo(x, n), expected) << "x " << x << " n " << n;
            }
        }
    }
    EXPECT_EQ(wrapModulo(std::numeric_limits<int64_t>::max(), 4000), 3807);
}

TEST(RingIndex, SlotsAndDistances) {
    EXPECT_EQ(slotAt(0, -1), 19);
    EXPECT_EQ(slotAt(19, 1), 0);
    EXPECT_EQ(slotAt(5, -25), 0);
    EXPECT_EQ(peakSlotAt(0, 4), 4);
    EXPECT_EQ(peakSlotAt(0, -1), 4);
    EXPECT_EQ(ringDistance(3990, 10), 20);  // forward across the ring end
    EXPECT_EQ(ringDistance(10, 3990), 3980);
    EXPECT_EQ(ringDistance(7, 7), 0);
    EXPECT_EQ(leadRow(0), 0);
    EXPECT_EQ(leadRow(1), 0);
    EXPECT_EQ(leadRow(-1), 0);
}

TEST(RingIndex, PushWrapsAndRepairsAStrayPosition) {
    int ring[5] = {};
    int pos = 3;
    EXPECT_EQ(pushRing(ring, pos, 7), 3);
    EXPECT_EQ(pushRing(ring, pos, 8), 4);
    EXPECT_EQ(pos, 0);
    pos = -1;  // a position written from outside folds onto the ring first
    EXPECT_EQ(pushRing(ring, pos, 9), 4);
    EXPECT_EQ(ring[4], 9);
    EXPECT_EQ(pos, 0);
}

TEST(RingIndex, ConfirmedPeaksCountBackFromTheNewest) {
    auto m = std::make_unique<CBeatMeasure>();
    for (int k = 0; k < kPeakSlots; ++k) m->nPeakPosRing[k] = 100 + k;
    m->nPeakPosRingPos = 0;  // the newest was written at slot 4
    EXPECT_EQ(confirmedPeak(*m, 0), 104);
    EXPECT_EQ(confirmedPeak(*m, 1), 103);
    pushRing(m->nPeakPosRing, m->nPeakPosRingPos, 200);
    EXPECT_EQ(confirmedPeak(*m, 0), 200);
    EXPECT_EQ(confirmedPeak(*m, 1), 104);
}

}  // namespace
