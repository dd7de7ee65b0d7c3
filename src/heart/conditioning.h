// The heart channel's per-sample conditioning chain, as the detection pass drives it: one raw ECG
// count (200 samples/s) in; out come the display value (counts on an offset of 512) and, at the
// next position of the 4000-sample detection rings, the filtered, absolute, convex and
// short-time energy values (scaled filtered counts). conditioning.cpp holds the whole chain.
#pragma once

#include <cstdint>

#include "rtmonitor/CBeatMeasure.h"

namespace rtm {
namespace heart {

// The convex value of ring position p needs the filtered value three samples later, so it is
// written three positions behind the newest sample.
constexpr int kConvexDelay = 3;

// What the chain carries from one sample of a packet to the next. A fresh one per packet.
struct PacketConditioning {
    // The packet's first sample checks the kept sorted median window against the ring and sums
    // the energy window afresh; later samples update both incrementally.
    bool firstSample = true;
    uint32_t energyWindowSum = 0;  // sum of the energy window's terms, modulo 2^32
};

// One sample through the whole chain: advances nRingPos and writes nFilteredRing and nAbsRing
// there, nConvexRing kConvexDelay positions behind, and the energy window and ring. `display`
// (may be null) receives the display value. True when the short-time energy crossed half the
// energy threshold.
bool conditionDetectionSample(CBeatMeasure& m, int sample, int* display, PacketConditioning& packet);

}  // namespace heart
}  // namespace rtm
