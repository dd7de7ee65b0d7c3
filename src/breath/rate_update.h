// Once-per-second breathing-rate estimate of the respiration analyser (internal to the library).
#pragma once

#include "rtmonitor/CBreathPro.h"

namespace rtm {
namespace breath {

// Spectral estimate, peak counting, acceptance of the counted rate and its plausibility against
// the reported rate, on the last 40 s of conditioned channel 1. Updates the analyser's decision
// state and returns the whole number of breaths per minute (as a float) that enters the
// reported history.
float estimateBreathRate(CBreathPro& a);

}  // namespace breath
}  // namespace rtm
