// Device registry: ordering, re-initialisation, auto-creation and removal semantics that hosts
// rely on (the last match wins, unknown ids are created on demand).
#include <gtest/gtest.h>

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

TEST(Registry, LookupCreatesUnknownIdsAtTheEnd) {
    GeneralTimeTime reg;
    EXPECT_EQ(reg.GetDataStructIndex(7), 0);
    EXPECT_EQ(reg.GetDataStructIndex(-1), 1);  // -1 is a valid id, not "not found"
    EXPECT_EQ(reg.GetDataStructIndex(7), 0);
    EXPECT_EQ(ids(reg), (std::vector<int>{7, -1}));
}

TEST(Registry, LastOfDuplicateIdsWins) {
    GeneralTimeTime reg;
    reg.InitRealTime(4);
    reg.InitRealTime(8);
    reg.InitRealTime(9);
    reg.m_vecUserData[2]->nDeviceId = 4;
    EXPECT_EQ(reg.GetDataStructIndex(4), 2);
    EXPECT_TRUE(reg.ClearRealTimeSingle(4));
    EXPECT_EQ(ids(reg), (std::vector<int>{4, 8}));
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
