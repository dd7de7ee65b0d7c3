// Class-code names (see classes.h).
#include "classes.h"

namespace rtmtool {

const CodeName kPostureNames[10] = {
    {0, "not classified"}, {1, "upright"},        {2, "on the back"},       {3, "face down"},       {4, "right side"},
    {5, "left side"},      {6, "light movement"}, {7, "moderate movement"}, {8, "strong movement"}, {9, "unclassified"},
};

const CodeName kHeartStatusNames[2] = {{0, "not judged or poor"}, {1, "good quality"}};

// Status 1 is the rate estimator's finding that the waveform crosses its mid level exactly twice
// per breath; 0 also covers a waveform where it does not.
const CodeName kBreathStateNames[3] = {{0, "no judgement"}, {1, "regular breathing"}, {2, "no usable signal"}};

namespace {

template <size_t N>
const char* lookup(const CodeName (&table)[N], int code) {
    for (const CodeName& c : table)
        if (c.code == code) return c.name;
    return "other";
}

}  // namespace

const char* postureName(int code) { return lookup(kPostureNames, code); }
const char* heartStatusName(int code) { return lookup(kHeartStatusNames, code); }
const char* breathStateName(int code) { return lookup(kBreathStateNames, code); }

}  // namespace rtmtool
