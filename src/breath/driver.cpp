// Respiration driver: per 25-sample block, display values and the once-per-second rate update.
// (Interim: produces nothing until the rate analysis lands.)
#include "rtmonitor/CBreathPro.h"

void CBreathPro::ProcessingBreath(int, int*, int*, int, int*, int*, int*, int*) {}
