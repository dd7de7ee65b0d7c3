// The tool's view of the shared synthetic-recording generator (tools/synth/recording.h): one
// device's frames with the truth they were built from, plus the names the tool prints.
// Sensor placement assumed throughout: first axis along the body (head up), second axis towards
// the wearer's left, third axis out of the chest.
#pragma once

#include "synth/recording.h"

namespace rtmtool {

using rtm_synth::Activity;
using rtm_synth::kPostureNotScored;
using rtm_synth::Recording;
using rtm_synth::SecondTruth;
using rtm_synth::synthesize;
using rtm_synth::SynthOptions;

const char* activityName(Activity a);

// True when a reported posture class counts as agreeing with the expected one: any of the
// moving classes 6..8 agrees with walking.
bool postureAgrees(int expected, int reported);

}  // namespace rtmtool
