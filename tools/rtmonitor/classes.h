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

const char* postureName(int code);      // "other" for a code outside 0..9
const char* heartStatusName(int code);  // "other" for a code outside 0..1
const char* breathStateName(int code);  // "other" for a code outside 0..2

// "0 not classified, 1 upright, ..." as the CSV documentation lists the codes.
template <size_t N>
std::string codeList(const CodeName (&table)[N]) {
    std::string s;
    for (const CodeName& c : table) s += (s.empty() ? "" : ", ") + std::to_string(c.code) + " " + c.name;
    return s;
}

}  // namespace rtmtool
