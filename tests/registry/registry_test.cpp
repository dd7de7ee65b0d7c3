// Device registry: ordering, re-initialisation, auto-creation and removal semantics that hosts
// rely on (the last match wins, unknown ids are created on demand).
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "rtmonitor/GeneralRealTime.h"

namespace {

std::vector<int> ids(const GeneralTimeTime& reg) {
    std::vector<int> out;
    for (const UserDataStruct* r : reg.m_vecUserData) out.push_back(r->nDeviceId);
    return out;
}

TEST(Registry, ReinitialisingMovesTheDeviceToTheEndWithAFreshState) {
    GeneralTimeTime reg;
    reg.InitRealTime(1);
    reg.InitRealTime(2);
    reg.InitRealTime(3);
    UserDataStruct* before = reg.m_vecUserData[0];
    before->cPedometerPro.nBaseCount[0] = 42;

    EXPECT_TRUE(reg.InitRealTime(1));
    EXPECT_EQ(ids(reg), (std::vector<int>{2, 3, 1}));
    EXPECT_NE(reg.m_vecUserData[2], before);
    EXPECT_EQ(reg.m_vecUserData[2]->cPedometerPro.nBaseCount[0], 0);
    EXPECT_EQ(reg.m_vecUserData[2]->nSpare, 0);

    reg.InitRealTime(5);
    reg.InitRealTime(5);
    EXPECT_EQ(ids(reg), (std::vector<int>{2, 3, 1, 5}));
}

// Duplicates only arise from a host editing the public list; the registry must notice the edit
// and still let the last entry win, for lookup and removal alike.
TEST(Registry, LastOfDuplicateIdsWins) {
    GeneralTimeTime reg;
    reg.InitRealTime(4);
    reg.InitRealTime(8);
    reg.InitRealTime(9);
    EXPECT_EQ(reg.GetDataStructIndex(4), 0);
    UserDataStruct extra{};
    extra.nDeviceId = 4;
    reg.m_vecUserData.push_back(&extra);
    EXPECT_EQ(reg.GetDataStructIndex(4), 3);
    EXPECT_TRUE(reg.ClearRealTimeSingle(4));
    EXPECT_EQ(ids(reg), (std::vector<int>{4, 8, 9}));
    EXPECT_EQ(reg.GetDataStructIndex(4), 0);
    EXPECT_TRUE(reg.ClearRealTimeSingle(4));
    EXPECT_EQ(ids(reg), (std::vector<int>{8, 9}));
}

// An id rewritten in place is seen as soon as a lookup meets the changed entry.
TEST(Registry, IdsRewrittenInPlaceAreFollowed) {
    GeneralTimeTime reg;
    reg.InitRealTime(1);
    reg.InitRealTime(2);
    reg.InitRealTime(3);
    reg.m_vecUserData[1]->nDeviceId = 7;
    EXPECT_EQ(reg.GetDataStructIndex(2), 3);  // 2 is gone from the list: created at the end
    EXPECT_EQ(reg.GetDataStructIndex(7), 1);
    EXPECT_EQ(ids(reg), (std::vector<int>{1, 7, 3, 2}));
    // A host that drops an entry itself owns the record from then on.
    std::unique_ptr<UserDataStruct> dropped(reg.m_vecUserData.front());
    reg.m_vecUserData.erase(reg.m_vecUserData.begin());
    EXPECT_EQ(reg.GetDataStructIndex(3), 1);
    EXPECT_EQ(reg.GetDataStructIndex(1), 3);
}

// Positions stay right through a long mix of removals, restarts and creations: every lookup
// agrees with a scan of the list, and an unknown id (-1 among them) is created at the end.
TEST(Registry, LookupAgreesWithAScanThroughChurn) {
    GeneralTimeTime reg;
    uint32_t x = 12345;
    auto next = [&x] {
        x = x * 1103515245u + 12345u;
        return static_cast<int>((x >> 16) % 64) - 8;
    };
    for (int step = 0; step < 3000; ++step) {
        const int id = next();
        switch (step % 5) {
            case 0: reg.InitRealTime(id); break;
            case 1: reg.ClearRealTimeSingle(id); break;
            default: {
                int scan = -1;
                for (std::size_t i = 0; i < reg.m_vecUserData.size(); ++i)
                    if (reg.m_vecUserData[i]->nDeviceId == id) scan = static_cast<int>(i);
                const int found = reg.GetDataStructIndex(id);
                if (scan != -1) ASSERT_EQ(found, scan) << "step " << step;
                else ASSERT_EQ(found, static_cast<int>(reg.m_vecUserData.size()) - 1) << "step " << step;
            }
        }
    }
}

TEST(Registry, ClearingAnUnknownIdLeavesTheListAsItWas) {
    GeneralTimeTime reg;
    reg.InitRealTime(1);
    reg.InitRealTime(2);
    EXPECT_TRUE(reg.ClearRealTimeSingle(9));
    EXPECT_EQ(ids(reg), (std::vector<int>{1, 2}));
    UserDataStruct* dropped = reg.m_vecUserData[0];
    EXPECT_TRUE(reg.ClearRealTimeSingle(1));
    EXPECT_EQ(ids(reg), (std::vector<int>{2}));
    // Dropped records are never released: a host that kept a pointer may still read it.
    EXPECT_EQ(dropped->nDeviceId, 1);
    EXPECT_TRUE(reg.ClearRealTimeAll());
    EXPECT_TRUE(reg.m_vecUserData.empty());
}

}  // namespace
