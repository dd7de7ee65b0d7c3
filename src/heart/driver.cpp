// Heart driver placeholder: the per-packet analysis is not wired yet; outputs are left as the
// host gave them.
#include "rtmonitor/CBeatMeasure.h"

void CBeatMeasure::ProcessingHeart(int, int, int, int*, int, int*, int*, int*, int*) {}
