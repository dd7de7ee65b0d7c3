// Cardiac analyser placeholder: no analysis yet, outputs are left as the host gave them.
#include "rtmonitor/CBeatMeasure.h"

CBeatMeasure::CBeatMeasure() {}
CBeatMeasure::~CBeatMeasure() {}
int CBeatMeasure::HeartProInit() { return 1; }
int CBeatMeasure::Init(SettingParameter) { return 1; }
int CBeatMeasure::Init_NOBeat(SettingParameter) { return 1; }
void CBeatMeasure::ProcessingHeart(int, int, int, int*, int, int*, int*, int*, int*) {}
