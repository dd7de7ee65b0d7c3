// The frame file's byte layout: 330 little-endian words per record, in the record's order.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

#include "formats/frame_file.h"

namespace {

using namespace rtmfmt;

TEST(FrameFile, WordsAreLittleEndianInRecordOrder) {
    ParamsIn f{};
    f.nDeviceId = 0x01020304;
    f.nFrameSeq = -2;
    f.nHeartData[0] = INT32_MIN;
    f.nAccZ[24] = 0x7FFFFFFF;
    unsigned char bytes[kFrameBytes];
    encodeFrame(f, bytes);
    // Low and high byte of the id, the sequence number, the first ECG sample and the last word.
    EXPECT_EQ((std::vector<int>{bytes[0], bytes[3], bytes[4], bytes[7], bytes[8], bytes[11], bytes[1316], bytes[1319]}),
              (std::vector<int>{0x04, 0x01, 0xFE, 0xFF, 0x00, 0x80, 0xFF, 0x7F}));
    const ParamsIn back = decodeFrame(bytes);
    EXPECT_EQ(std::memcmp(&back, &f, sizeof f), 0);
}

}  // namespace
