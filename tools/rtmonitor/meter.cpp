#include "cli.h"
namespace rtmtool { const char* const kMeterUsage = ""; int runMeter(const std::vector<std::string>&) { return 0; } }
