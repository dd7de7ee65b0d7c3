// One set of class names: the tool guide's CSV documentation, `replay --help` and the report all
// list the codes from the tool's tables, word for word.
#include <string>

#include "classes.h"
#include "tool_runner.h"

namespace tooltest {
namespace {

using ClassNamesTest = ToolTest;

TEST_F(ClassNamesTest, GuideHelpAndReportUseTheTables) {
    const std::string readme = readFile(std::string(RTM_SOURCE_DIR) + "/docs/tool.md");
    ASSERT_FALSE(readme.empty());
    const RunResult help = run("replay --help");
    ASSERT_EQ(help.status, 0);
    for (const std::string& list :
         {rtmtool::codeList(rtmtool::kPostureNames), rtmtool::codeList(rtmtool::kHeartStatusNames),
          rtmtool::codeList(rtmtool::kBreathStateNames)}) {
        EXPECT_NE(readme.find(list), std::string::npos) << "docs/tool.md lacks: " << list;
        EXPECT_NE(help.out.find(list), std::string::npos) << "replay --help lacks: " << list;
    }
    // The report's posture legend and summary table use the same names.
    ASSERT_EQ(run("demo --minutes 4 --report " + path("d.html")).status, 0);
    const std::string html = readFile(path("d.html"));
    for (int c : {1, 2, 4, 5, 7})
        EXPECT_NE(html.find(std::to_string(c) + " " + rtmtool::postureName(c) + "</text>"), std::string::npos) << c;
    EXPECT_NE(html.find(std::string(rtmtool::postureName(7)) + " 0:"), std::string::npos);
}

}  // namespace
}  // namespace tooltest
