// Stand-alone ECG accumulator kept in the library's interface for hosts that link against it;
// the frame pipeline does not use it. BaseFilter keeps a running sum of raw counts for leads
// 0..11; its delay is reported as 26 samples.
#pragma once

class CEcgDataFilter {
public:
    // Both do nothing: call InitFilter before the first BaseFilter, which sets the sum and
    // the count (they are indeterminate until then).
    CEcgDataFilter();
    ~CEcgDataFilter();

    int GetDelayTime();
    int InitFilter();
    int BaseFilter(int x, int nUnused, int lead, int flag);

    int nSum;    // running sum of the inputs since InitFilter (wraps at 32 bits)
    int nCount;  // inputs summed since InitFilter
};
