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

// Movement classes run light to dark so their order reads at a glance.
const char* const kPostureColors[10] = {"#eeeeee", "#d4990c", "#6890ff", "#ae97a7", "#12aa5b",
                                        "#dbff1e", "#b3bfff", "#872d88", "#0c0034", "#565656"};

const CodeName kHeartBandNames[4] = {
    {kShownWarmUp, "warm-up, no rate yet"}, {kShownNoRate, "no rate"}, {0, "not judged or poor"}, {1, "good quality"}};
const char* const kHeartBandColors[4] = {"#b0b0b0", "#ffffff", "#e69f00", "#12aa5b"};
const CodeName kBreathBandNames[4] = {
    {kShownWarmUp, "warm-up, no rate yet"}, {0, "no judgement"}, {1, "regular breathing"}, {2, "no usable signal"}};
const char* const kBreathBandColors[4] = {"#b0b0b0", "#ffffff", "#6890ff", "#e69f00"};
const CodeName kInputBandNames[3] = {{kInputFine, "not clipped or flat"},
                                     {kInputDoubtNoRate, "clipped or flat, no rate"},
                                     {kInputDoubtWithRate, "rate during clipped or flat signal"}};
const char* const kInputBandColors[3] = {"#ffffff", "#a0a0a0", "#c4122f"};

namespace {

template <size_t N>
const char* lookup(const CodeName (&table)[N], int code) {
    for (const CodeName& c : table)
        if (c.code == code) return c.name;
    return "other";
}

template <size_t N>
const char* colorOf(const CodeName (&table)[N], const char* const (&colors)[N], int code) {
    for (size_t i = 0; i < N; ++i)
        if (table[i].code == code) return colors[i];
    return "#ff00ff";
}

}  // namespace

const char* postureName(int code) { return lookup(kPostureNames, code); }
const char* heartStatusName(int code) { return lookup(kHeartStatusNames, code); }
const char* breathStateName(int code) { return lookup(kBreathStateNames, code); }
const char* postureColor(int code) { return colorOf(kPostureNames, kPostureColors, code); }
const char* heartBandColor(int code) { return colorOf(kHeartBandNames, kHeartBandColors, code); }
const char* heartBandName(int code) { return lookup(kHeartBandNames, code); }
const char* breathBandColor(int code) { return colorOf(kBreathBandNames, kBreathBandColors, code); }
const char* breathBandName(int code) { return lookup(kBreathBandNames, code); }
const char* inputBandColor(int code) { return colorOf(kInputBandNames, kInputBandColors, code); }
const char* inputBandName(int code) { return lookup(kInputBandNames, code); }

}  // namespace rtmtool
