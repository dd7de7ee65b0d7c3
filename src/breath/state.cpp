// Respiration analyser placeholder: no analysis yet, outputs are left as the host gave them.
#include "rtmonitor/CBreathPro.h"

CBreathPro::CBreathPro() {}
CBreathPro::~CBreathPro() {}
int CBreathPro::BreathProInit() { return 1; }
int CBreathPro::BreathnoProInit() { return 1; }
void CBreathPro::ProcessingBreath(int, int*, int*, int, int*, int*, int*, int*) {}
