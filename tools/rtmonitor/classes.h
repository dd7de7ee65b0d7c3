// The names of the library's class codes, kept in one table each so the tool's table, CSV
// documentation (`replay --help`, README) and report always say the same thing: posture class
// (`nPosture`), heart-signal quality (`nHeartStatus`) and respiration status (`nBreathState`).
#pragma once

#include <string>

namespace rtmtool {

struct CodeName {
    int code;
    const char* name;
};

// Posture names assume the placement of the synthetic recording: first axis along the body
// (head up), third axis out of the chest.
extern const CodeName kPostureNames[10];
extern const CodeName kHeartStatusNames[2];
extern const CodeName kBreathStateNames[3];

// The report's colours, one per code, chosen so that every pair stays apart for normal vision and
// the two common red-green deficiencies (tests/tool/colours_test.cpp checks this).
extern const char* const kPostureColors[10];

// The report's heart-quality band adds states of its own to the library's two codes, so that a
// second without a rate is never drawn as good quality.
constexpr int kShownWarmUp = -1;  // no rate yet since the device's first frame
constexpr int kShownNoRate = -2;  // no rate after one had been given
extern const CodeName kHeartBandNames[4];
extern const char* const kHeartBandColors[4];
extern const CodeName kBreathBandNames[4];
extern const char* const kBreathBandColors[4];
// The tool's own look at the ECG input: clipped at a rail or flat (not a finding of the library).
constexpr int kInputFine = 0, kInputDoubtNoRate = 1, kInputDoubtWithRate = 2;
extern const CodeName kInputBandNames[3];
extern const char* const kInputBandColors[3];

const char* postureName(int code);      // "other" for a code outside 0..9
const char* heartStatusName(int code);  // "other" for a code outside 0..1
const char* breathStateName(int code);  // "other" for a code outside 0..2
const char* postureColor(int code);     // magenta for a code outside the table
const char* heartBandColor(int code);
const char* heartBandName(int code);
const char* breathBandColor(int code);
const char* breathBandName(int code);
const char* inputBandColor(int code);
const char* inputBandName(int code);

// "0 not classified, 1 upright, ..." as the CSV documentation lists the codes.
template <size_t N>
std::string codeList(const CodeName (&table)[N]) {
    std::string s;
    for (const CodeName& c : table) s += (s.empty() ? "" : ", ") + std::to_string(c.code) + " " + c.name;
    return s;
}

}  // namespace rtmtool
