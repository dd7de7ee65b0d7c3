// The option parser every program shares: both spellings of a valued option, flags that take no
// value, `--` ending the options, and the positional counts of an option table.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formats/options.h"

namespace {

using namespace rtmfmt;

TEST(Options, ValuesFlagsAndPositionalsInEitherSpelling) {
    const OptionTable table{{"--rate", "--server"}, {"--quiet"}, 1, 2, "no input given", nullptr};
    ParsedArgs p;
    std::string error;
    ASSERT_EQ(parseCommandLine(table, {"a", "--rate=max", "--server", "x=y", "--quiet", "--", "--b"}, p, error),
              ParseOutcome::Run)
        << error;
    EXPECT_EQ(p.value("--rate"), "max");
    EXPECT_EQ(p.value("--server"), "x=y");
    EXPECT_TRUE(p.has("--quiet"));
    EXPECT_EQ(p.positional, (std::vector<std::string>{"a", "--b"}));
    EXPECT_EQ(p.value("--missing", "fallback"), "fallback");
}

TEST(Options, UsageErrorsNameTheProblem) {
    const OptionTable table{{"--rate"}, {"--quiet"}, 1, 1, "no input given", "more than one input given"};
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"a", "--rate"}, "option --rate needs a value"}, {{"a", "--quiet=1"}, "unknown option --quiet=1"},
        {{"a", "--bogus"}, "unknown option --bogus"},     {{}, "no input given"},
        {{"a", "b"}, "more than one input given"},
    };
    for (const auto& c : cases) {
        ParsedArgs p;
        std::string error;
        EXPECT_EQ(parseCommandLine(table, c.first, p, error), ParseOutcome::UsageError) << c.second;
        EXPECT_EQ(error, c.second);
    }
    ParsedArgs p;
    std::string error;
    EXPECT_EQ(parseCommandLine({{}, {}, 0, 0}, {"x"}, p, error), ParseOutcome::UsageError);
    EXPECT_EQ(error, "unexpected argument 'x'");
    ParsedArgs r;
    EXPECT_EQ(parseCommandLine({{"--out"}, {}, 0, 0, "", nullptr, {{"--out", "--out FILE is required"}}}, {}, r, error),
              ParseOutcome::UsageError);
    EXPECT_EQ(error, "--out FILE is required");
    ParsedArgs h;
    EXPECT_EQ(parseCommandLine(table, {"--bogus-later", "-h"}, h, error), ParseOutcome::UsageError);
    EXPECT_EQ(parseCommandLine(table, {"-h"}, h, error), ParseOutcome::Help);
}

TEST(Options, NumbersAreWholeAndWithinTheirRange) {
    long long i = 0;
    EXPECT_TRUE(parseInteger("100000", 1, 100000, i));
    EXPECT_EQ(i, 100000);
    for (const char* bad : {"", "-1", "+1", " 1", "1 ", "100001", "99999999999999999999"})
        EXPECT_FALSE(parseInteger(bad, 1, 100000, i)) << bad;
    double d = 0;
    EXPECT_TRUE(parseNumber("0.05", 0.05, 10, d));
    EXPECT_DOUBLE_EQ(d, 0.05);
    for (const char* bad : {"", "nan", "1x", "0.01", "11", "inf"}) EXPECT_FALSE(parseNumber(bad, 0.05, 10, d)) << bad;
}

}  // namespace
