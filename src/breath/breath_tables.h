// Coefficient tables of the respiration analyser (32-bit taps, every filter divides by 10000;
// the envelope table is 64-bit). Defined beside the filters in display_filters.cpp; declared
// here so their sums and symmetry can be checked.
#pragma once

#include <cstdint>

constexpr int kBreathProTaps = 115;
constexpr int kBreathHighTaps = 325;
constexpr int kBaoLuoTaps = 9;

extern const int32_t nCoef_breath_pro[kBreathProTaps];
extern const int32_t nCoef_breath_high[kBreathHighTaps];
extern const int64_t BaoLuo_Coef[kBaoLuoTaps];
