// CEcgDataFilter: the running-sum accumulator hosts link against. Counts in, running sum of
// counts out; 0 for a lead of 12 or more or a negative flag (nothing is accumulated then).
#include "rtmonitor/CEcgDataFilter.h"

#include "common/exact_math.h"

namespace {
constexpr int kDelaySamples = 26;
constexpr int kLeadCount = 12;
}  // namespace

CEcgDataFilter::CEcgDataFilter() {}
CEcgDataFilter::~CEcgDataFilter() {}

int CEcgDataFilter::GetDelayTime() { return kDelaySamples; }

int CEcgDataFilter::InitFilter() {
    nSum = 0;
    nCount = 0;
    return 1;
}

int CEcgDataFilter::BaseFilter(int x, int, int lead, int flag) {
    if (lead >= kLeadCount || flag < 0) return 0;
    nSum = rtm::wrapAdd32(nSum, x);
    nCount = rtm::wrapAdd32(nCount, 1);
    return nSum;
}
