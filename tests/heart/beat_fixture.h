// Test helper: a cardiac analyser in zeroed storage, as a host's value-initialised device record
// provides it (a few words are written by no routine and must start at 0), reset for analysis.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "rtmonitor/CBeatMeasure.h"

namespace heart_test {

struct BeatHolder {
    CBeatMeasure beat;
};

// Value-initialising the holder zero-fills the analyser before its constructor runs.
inline std::unique_ptr<BeatHolder> makeAnalyser() {
    auto holder = std::make_unique<BeatHolder>();
    holder->beat.EcgAnalysisInit(0);
    return holder;
}

// One freshly initialised analyser per test, reachable as `b`.
class BeatTest : public ::testing::Test {
protected:
    std::unique_ptr<BeatHolder> h = makeAnalyser();
    CBeatMeasure& b = h->beat;
};

}  // namespace heart_test
