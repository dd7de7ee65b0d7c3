#include "cli.h"
namespace rtmtool { const char* const kEvaluateUsage = ""; int runEvaluate(const std::vector<std::string>&) { return 0; } }
