// The one reference-CSV reader: columns chosen by name in any order, the shared files' br_agree
// honoured, devices kept apart, and a file without a known column refused naming what it has.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "formats/reference.h"

namespace {

using namespace rtmfmt;

std::string writeTemp(const std::string& text) {
    char name[] = "/tmp/rtm_reference_test_XXXXXX";
    const int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    close(fd);
    std::ofstream(name) << text;
    return name;
}

bool read(const std::string& text, std::map<int64_t, RateReference>& out, std::string& error,
          ReferenceColumns* columns = nullptr) {
    const std::string path = writeTemp(text);
    const bool ok = readReference(path, out, error, columns);
    std::remove(path.c_str());
    return ok;
}

TEST(Reference, ColumnsAreChosenByName) {
    std::map<int64_t, RateReference> r;
    std::string error;
    ReferenceColumns c;
    ASSERT_TRUE(read("heart_rate,note,second\n72,x,0.5\n,y,1\n75,z,2\n", r, error, &c)) << error;
    ASSERT_EQ(r.count(kEveryDevice), 1u);
    const RateReference& all = r[kEveryDevice];
    EXPECT_EQ(c.heart, "heart_rate");
    EXPECT_EQ(c.time, "second");
    EXPECT_TRUE(c.breath.empty());
    ASSERT_EQ(all.heart.size(), 3u);
    EXPECT_DOUBLE_EQ(all.heart[0], 72);
    EXPECT_TRUE(std::isnan(all.heart[1]));
    EXPECT_DOUBLE_EQ(all.heart[2], 75);
    EXPECT_TRUE(all.breath.empty());

    // The shared files: breathing counts only where the estimators agree; devices apart.
    ASSERT_TRUE(read("frame,device,hr_ref_bpm,br_ref_bpm,br_agree\n0,7,60,12,1\n1,7,61,30,0\n0,9,90,,\n", r, error, &c))
        << error;
    EXPECT_TRUE(c.agreement);
    EXPECT_DOUBLE_EQ(r[7].breath[0], 12);
    EXPECT_TRUE(r[7].breath.size() < 2 || std::isnan(r[7].breath[1]));
    EXPECT_DOUBLE_EQ(r[7].heart[1], 61);
    EXPECT_DOUBLE_EQ(r[9].heart[0], 90);
}

TEST(Reference, UnknownColumnsAndBadCellsAreRefusedSayingWhat) {
    std::map<int64_t, RateReference> r;
    std::string error;
    EXPECT_FALSE(read("t,rate\n1,12\n", r, error));
    EXPECT_NE(error.find("the header names the columns 't', 'rate'"), std::string::npos) << error;
    EXPECT_FALSE(read("time_s,br\n1,12\n2,-3\n", r, error));
    EXPECT_NE(error.find("line 3: rate '-3'"), std::string::npos) << error;
    EXPECT_FALSE(read("", r, error));
    EXPECT_NE(error.find("empty file"), std::string::npos) << error;
}

}  // namespace
