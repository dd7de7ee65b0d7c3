// Snapshots: a device saved at any point and loaded into another handle continues word for
// word as the uninterrupted device; anything but an intact snapshot of this build is refused
// whole, with the handle left byte for byte as it was. That covers changed header bytes,
// truncated or overlong buffers, random bytes, and a forged state sealed with a valid checksum
// whose positions or flags lie outside what the analysers can produce.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "api/snapshot.h"
#include "support/streams.h"

namespace {

using rtm_test::Handle;
using rtm_test::makeHandle;
using Bytes = std::vector<unsigned char>;

Bytes save(const rtm_device* dev) {
    Bytes b(rtm_device_state_size());
    EXPECT_EQ(rtm_device_save(dev, b.data(), b.size()), 1);
    return b;
}

// A handle some way into a varied recording, and its snapshot.
struct Running {
    Handle dev = makeHandle();
    Bytes snapshot;
    Running() {
        for (const ParamsIn& f : rtm_test::disturbedStream(1, 44, 130)) {
            ParamsOut o;
            rtm_device_process(dev.get(), &f, &o);
        }
        snapshot = save(dev.get());
    }
};

// The load must fail and leave the handle exactly as it was.
void expectRefused(rtm_device* dev, const void* buf, std::size_t len, const std::string& what) {
    const Bytes before = save(dev);
    EXPECT_EQ(rtm_device_load(dev, buf, len), 0) << what;
    EXPECT_EQ(save(dev), before) << what << ": the refused load changed the handle";
}

TEST(Snapshots, SavedAnywhereAndContinuedEqualsTheUninterruptedRun) {
    const std::vector<ParamsIn> frames = rtm_test::disturbedStream(5, 71, 330);
    Handle whole = makeHandle();
    std::vector<ParamsOut> expected(frames.size());  // zeroed
    std::vector<Bytes> saved;
    std::vector<std::size_t> savedAt;
    for (std::size_t k = 0; k < frames.size(); ++k) {
        if (k % 23 == 0 || k == 69 || k == 70) {  // 69/70: around a heart restart
            saved.push_back(save(whole.get()));
            savedAt.push_back(k);
        }
        rtm_device_process(whole.get(), &frames[k], &expected[k]);
    }
    // Loaded into a handle with a history of its own, which the load must replace whole.
    Handle resumed = makeHandle();
    for (std::size_t s = 0; s < saved.size(); ++s) {
        ASSERT_EQ(rtm_device_load(resumed.get(), saved[s].data(), saved[s].size()), 1);
        const std::size_t end = s + 1 == saved.size() ? frames.size() : savedAt[s] + 40;
        for (std::size_t k = savedAt[s]; k < end && k < frames.size(); ++k) {
            ParamsOut o{};  // as the reference's: a restart frame leaves the heart wave alone
            rtm_device_process(resumed.get(), &frames[k], &o);
            ASSERT_TRUE(rtm_test::sameOutput(o, expected[k]))
                << "saved at frame " << savedAt[s] << ", differs at frame " << k << " word "
                << rtm_test::firstDifferentWord(o, expected[k]);
        }
    }
}

// The range checks must never refuse a state the analysers produced: every state of the shared
// recordings and of a disturbed synthetic stream loads.
TEST(Snapshots, EveryStateTheAnalysersProduceLoads) {
    std::vector<std::vector<ParamsIn>> streams = {rtm_test::disturbedStream(2, 13, 400)};
    for (const char* name : {"100", "03700181", "v102s"}) streams.push_back(rtm_test::recording(name));
    Handle target = makeHandle();
    Bytes b(rtm_device_state_size());
    for (const std::vector<ParamsIn>& frames : streams) {
        Handle dev = makeHandle();
        for (std::size_t k = 0; k < frames.size(); ++k) {
            ParamsOut o;
            rtm_device_process(dev.get(), &frames[k], &o);
            ASSERT_EQ(rtm_device_save(dev.get(), b.data(), b.size()), 1);
            ASSERT_EQ(rtm_device_load(target.get(), b.data(), b.size()), 1) << "refused after frame " << k;
        }
    }
}

TEST(Snapshots, AFreshHandleSavesAtTheStartOfAnyLargeEnoughBuffer) {
    Handle a = makeHandle();
    const Bytes fresh = save(a.get());
    EXPECT_EQ(std::memcmp(fresh.data(), "RTMSTATE", 8), 0);
    EXPECT_EQ(fresh.size(), rtm::kSnapshotHeaderBytes + sizeof(UserDataStruct) + sizeof(rtm::BeatLog));
    Bytes big(fresh.size() + 16, 0xEE);
    ASSERT_EQ(rtm_device_save(a.get(), big.data(), big.size()), 1);
    EXPECT_TRUE(std::equal(fresh.begin(), fresh.end(), big.begin()));
}

// A running device's snapshot, and another handle to load changed copies into.
struct CorruptSnapshots : ::testing::Test {
    Running r;
    Handle dev = makeHandle();
};

TEST_F(CorruptSnapshots, EverySingleHeaderByteChangeIsRefused) {
    for (std::size_t i = 0; i < rtm::kSnapshotHeaderBytes; ++i) {
        for (unsigned char flip : {0x01, 0x80, 0xFF}) {
            Bytes b = r.snapshot;
            b[i] ^= flip;
            expectRefused(dev.get(), b.data(), b.size(), "header byte " + std::to_string(i));
        }
    }
}

TEST_F(CorruptSnapshots, ChangedPayloadBytesAreRefused) {
    std::mt19937 rng(7);
    for (int n = 0; n < 200; ++n) {
        Bytes b = r.snapshot;
        const std::size_t at = rtm::kSnapshotHeaderBytes + rng() % (b.size() - rtm::kSnapshotHeaderBytes);
        b[at] ^= static_cast<unsigned char>(1u << (rng() % 8));
        expectRefused(dev.get(), b.data(), b.size(), "payload byte " + std::to_string(at));
    }
}

TEST_F(CorruptSnapshots, TruncatedAndOverlongBuffersAreRefused) {
    const std::size_t size = r.snapshot.size();
    Bytes longer = r.snapshot;
    longer.push_back(0);
    expectRefused(dev.get(), longer.data(), longer.size(), "one byte too long");
    std::vector<std::size_t> lengths = {0, 1, 7, 8, 47, 48, 49, size / 2, size - 8, size - 1};
    for (std::size_t len = 3; len < size; len += 997) lengths.push_back(len);
    for (std::size_t len : lengths) expectRefused(dev.get(), r.snapshot.data(), len, "length " + std::to_string(len));
}

TEST_F(CorruptSnapshots, RandomBuffersAreRefused) {
    std::mt19937 rng(11);
    Bytes b(rtm_device_state_size());
    for (int n = 0; n < 20; ++n) {
        for (unsigned char& c : b) c = static_cast<unsigned char>(rng());
        // Half of them with a correct magic, so the check does not stop at the first bytes.
        if (n % 2 == 1) std::memcpy(b.data(), "RTMSTATE", 8);
        expectRefused(dev.get(), b.data(), b.size(), "random buffer " + std::to_string(n));
    }
}

// A forged state sealed with this build's header and checksum: what the analysers could never
// produce is refused, whatever they could is accepted.
class ForgedState : public CorruptSnapshots {
protected:
    std::unique_ptr<rtm::HandleState> full{new rtm::HandleState()};
    UserDataStruct* state = &full->record;

    void SetUp() override {
        const unsigned char* payload = r.snapshot.data() + rtm::kSnapshotHeaderBytes;
        std::memcpy(static_cast<void*>(&full->record), payload, sizeof(UserDataStruct));
        std::memcpy(&full->beats, payload + sizeof(UserDataStruct), sizeof(rtm::BeatLog));
    }
    Bytes sealed() {
        Bytes b(rtm_device_state_size());
        EXPECT_TRUE(rtm::saveSnapshot(*full, b.data(), b.size()));
        return b;
    }
    template <class F>
    void expectForgeryRefused(F edit, const char* what) {
        SetUp();
        edit(*state);
        const Bytes b = sealed();
        expectRefused(dev.get(), b.data(), b.size(), what);
    }
};

TEST_F(ForgedState, PositionsOutsideTheirRingsAreRefused) {
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.nProFilterPos = 115; }, "nProFilterPos 115");
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.nProFilterPos = -1; }, "nProFilterPos -1");
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.nHighFilterPos = 325; }, "nHighFilterPos 325");
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.nEnergyRingPos = 50; }, "nEnergyRingPos 50");
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.nProSmoothPos[1] = 3; }, "nProSmoothPos 3");
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.nDisplaySmoothPos[0] = -2; }, "nDisplaySmoothPos -2");
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.nDisplayLowPos[1] = 33; }, "nDisplayLowPos 33");
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.nZoomRingPos[0] = 70; }, "nZoomRingPos 70");
    expectForgeryRefused([](UserDataStruct& s) { s.cPedometerPro.nBaseIndex[2] = 100; }, "nBaseIndex 100");
    expectForgeryRefused([](UserDataStruct& s) { s.cPedometerPro.nLPIndex[0] = 12; }, "nLPIndex 12");
    expectForgeryRefused([](UserDataStruct& s) { s.cPedometerPro.nBaseCount[1] = -1; }, "nBaseCount -1");
    expectForgeryRefused([](UserDataStruct& s) { s.cPedometerPro.nBaseCount[1] = 101; }, "nBaseCount 101");
}

TEST_F(ForgedState, CountersFlagsAndConstantsOutsideTheirRangesAreRefused) {
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.lSampleCount = INT64_MAX; }, "lSampleCount max");
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.lSampleCount = -25; }, "lSampleCount -25");
    expectForgeryRefused([](UserDataStruct& s) { s.cPedometerPro.nBaseSum[0] = INT64_MAX; }, "nBaseSum max");
    expectForgeryRefused([](UserDataStruct& s) { s.cBreathPro.nProBaseCount = 26; }, "nProBaseCount 26");
    expectForgeryRefused([](UserDataStruct& s) { s.cBeatMeasure.nBaseCount = 201; }, "heart nBaseCount 201");
    expectForgeryRefused([](UserDataStruct& s) { s.cBeatMeasure.nSampleRate = 0; }, "nSampleRate 0");
    expectForgeryRefused([](UserDataStruct& s) { s.cBeatMeasure.fSignalGain = 0.0f; }, "fSignalGain 0");
    expectForgeryRefused(
        [](UserDataStruct& s) {
            const unsigned char two = 2;
            std::memcpy(&s.cBreathPro.bRateOut, &two, 1);
        },
        "bRateOut byte 2");
}

TEST_F(ForgedState, BeatLogCountsOutsideTheirArraysAreRefused) {
    rtm::BeatLog& log = full->beats;
    const auto refusedWith = [&](auto edit, const char* what) {
        SetUp();
        edit();
        const Bytes b = sealed();
        expectRefused(dev.get(), b.data(), b.size(), what);
    };
    refusedWith([&] { log.count = RTM_BEATS_MAX + 1; }, "beat count 21");
    refusedWith([&] { log.count = -1; }, "beat count -1");
    refusedWith([&] { log.writes = rtm::kWriteHistory + 1; }, "writes 21");
    refusedWith([&] { log.writePos = rtm::kWriteHistory; }, "writePos 20");
    refusedWith([&] { log.frames = -1; }, "frames -1");
    refusedWith([&] { log.frames = INT64_MAX; }, "frames max");
    refusedWith([&] { log.writeFrame[3] = INT64_MAX / 100; }, "a write frame whose samples overflow");
}

// Format 1 (library 0.2.0) held no beat log: such a snapshot is refused, even sealed with a
// valid checksum, whatever the length and library version it names.
TEST_F(CorruptSnapshots, SnapshotsOfTheFormerFormatAreRefused) {
    for (std::size_t payload : {sizeof(UserDataStruct), sizeof(UserDataStruct) + sizeof(rtm::BeatLog)}) {
        for (const char* version : {"0.2.0", RTMONITOR_VERSION_STRING}) {
            Bytes old(rtm::kSnapshotHeaderBytes + payload);
            std::memcpy(old.data(), r.snapshot.data(), std::min(old.size(), r.snapshot.size()));
            const uint32_t format = 1;
            std::memcpy(old.data() + 8, &format, 4);
            std::memset(old.data() + 16, 0, 16);
            std::memcpy(old.data() + 16, version, std::strlen(version));
            const uint64_t size = payload;
            std::memcpy(old.data() + 32, &size, 8);
            std::memset(old.data() + 40, 0, 8);
            uint64_t sum = 14695981039346656037ull;  // FNV-1a over everything, checksum field zero
            for (unsigned char c : old) sum = (sum ^ c) * 1099511628211ull;
            std::memcpy(old.data() + 40, &sum, 8);
            expectRefused(dev.get(), old.data(), old.size(),
                          std::string("format 1 of ") + version + ", " + std::to_string(payload) + " payload bytes");
        }
    }
}

TEST_F(ForgedState, TheUnchangedStateAndInRangeEditsLoad) {
    EXPECT_EQ(sealed(), r.snapshot);
    state->cBreathPro.nZoomRingPos[1] = 69;
    state->cPedometerPro.nLPIndex[2] = 0;
    state->cBeatMeasure.nRingPos = 3999;
    full->beats.count = RTM_BEATS_MAX;
    full->beats.writes = 0;
    const Bytes b = sealed();
    ASSERT_EQ(rtm_device_load(dev.get(), b.data(), b.size()), 1);
    EXPECT_EQ(save(dev.get()), b);
}

}  // namespace
