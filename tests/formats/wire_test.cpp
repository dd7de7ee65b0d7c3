// The results wire: device ids through subjects, records through bytes, the JSON rendering and
// the worker's snapshot header.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "formats/wire.h"

namespace {

TEST(Wire, DeviceIdsRoundTripThroughSubjectsAndRecordsThroughBytes) {
    int32_t id = 0;
    for (int32_t d : {0, 7, -7, INT32_MAX, INT32_MIN}) {
        ASSERT_TRUE(rtmfmt::deviceFromSubject(rtmfmt::resultSubject(d).c_str(), id)) << d;
        EXPECT_EQ(id, d);
    }
    for (const char* bad : {"rtm.vitals.", "rtm.vitals.-", "rtm.vitals.2147483648", "rtm.vitals.-2147483649",
                            "rtm.vitals.12a", "rtm.vitals.+1"})
        EXPECT_FALSE(rtmfmt::deviceFromSubject(bad, id)) << bad;

    ParamsOut out;
    for (size_t i = 0; i < sizeof out / 4; ++i)
        reinterpret_cast<int32_t*>(&out)[i] = static_cast<int32_t>(i * 2654435761u);
    unsigned char bytes[sizeof(ParamsOut)];
    rtmfmt::encodeResult(out, bytes);
    EXPECT_EQ(bytes[0], 0);  // word 0 is 0; word 1's low byte comes first
    EXPECT_EQ(bytes[4], static_cast<unsigned char>(2654435761u & 0xFF));
    const ParamsOut back = rtmfmt::decodeResult(bytes);
    EXPECT_EQ(std::memcmp(&back, &out, sizeof out), 0);

    unsigned char snap[rtmfmt::kSnapshotHeaderBytes] = {'R', 'T', 'M', 'S', 'E', 'R', 'V', '1', 5, 4, 3, 2, 1, 0, 0, 0};
    uint64_t seq = 0;
    ASSERT_TRUE(rtmfmt::parseSnapshotHeader(snap, sizeof snap, seq));
    EXPECT_EQ(seq, 0x0102030405u);
    snap[7] = '2';
    EXPECT_FALSE(rtmfmt::parseSnapshotHeader(snap, sizeof snap, seq));
    EXPECT_FALSE(rtmfmt::parseSnapshotHeader(snap, 8, seq));
}

TEST(Wire, JsonNamesEveryValueAndKeepsTheWaveformsInOrder) {
    ParamsOut out;
    std::memset(&out, 0, sizeof out);
    out.nHeartRate = 72;
    out.nBreathState = 1;
    out.nPosture = 2;
    out.nHeartWave[0] = 512;
    out.nHeartWave[199] = -3;
    out.nMovement[24] = 9;
    const std::string json = rtmfmt::resultJson(-5, 17, out);
    EXPECT_EQ(json.rfind("{\"device\":-5,\"seq\":17,\"heart_rate\":72,\"heart_status\":0,\"breath_rate\":0,"
                         "\"breath_state\":1,\"posture\":2,\"movement\":[0,",
                         0),
              0u)
        << json;
    EXPECT_NE(json.find(",9],\"heart_wave\":[512,0,"), std::string::npos);
    EXPECT_NE(json.find(",-3],\"breath_display1\":["), std::string::npos);
    EXPECT_EQ(json.back(), '}');
}

TEST(Wire, ResultPayloadCarriesTheBeatsAndRefusesLengthsThatFitNoLayout) {
    ParamsOut out;
    for (size_t i = 0; i < sizeof out / 4; ++i) reinterpret_cast<int32_t*>(&out)[i] = static_cast<int32_t>(i * 7919u);
    const rtm_beat beats[2] = {{(int64_t{1} << 33) + 5, 812, 96, 73, 4, 0, 0}, {-1, 200, 40, 300, 1, 2, 0}};
    std::vector<unsigned char> bytes;
    rtmfmt::encodeResultPayload(out, beats, 2, bytes);
    ASSERT_EQ(bytes.size(), sizeof(ParamsOut) + 4 + 2 * rtmfmt::kBeatRecordBytes);
    EXPECT_EQ(bytes[sizeof(ParamsOut)], 2);
    EXPECT_EQ(bytes[sizeof(ParamsOut) + 4 + 4], 2);  // bit 33 of the first sample, little-endian
    ParamsOut back;
    std::vector<rtm_beat> got;
    ASSERT_TRUE(rtmfmt::decodeResultPayload(bytes.data(), bytes.size(), back, got));
    EXPECT_EQ(std::memcmp(&back, &out, sizeof out), 0);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].sample, beats[0].sample);
    EXPECT_EQ(got[1].sample, -1);
    EXPECT_EQ(got[1].stability, 2);
    EXPECT_EQ(got[0].rr_ms, 812);
    // No beats still carries the count, so a payload is never the bare record's length.
    rtmfmt::encodeResultPayload(out, nullptr, 0, bytes);
    EXPECT_EQ(bytes.size(), sizeof(ParamsOut) + 4);
    ASSERT_TRUE(rtmfmt::decodeResultPayload(bytes.data(), sizeof(ParamsOut), back, got));  // the bare record
    EXPECT_TRUE(got.empty());
    rtmfmt::encodeResultPayload(out, beats, 2, bytes);
    std::vector<unsigned char> roomy = bytes;
    roomy.resize(bytes.size() + rtmfmt::kBeatRecordBytes);
    for (size_t len : {sizeof(ParamsOut) - 1, sizeof(ParamsOut) + 2, bytes.size() - 1, roomy.size()})
        EXPECT_FALSE(rtmfmt::decodeResultPayload(roomy.data(), len, back, got)) << len;
    const std::string json = rtmfmt::resultJson(3, 9, out, beats, 2);
    EXPECT_NE(json.find(",\"beats\":[{\"sample\":8589934597,\"rr_ms\":812,\"width_ms\":96,\"rate\":73,\"type\":4,"
                        "\"stability\":0},{\"sample\":-1,"),
              std::string::npos)
        << json;
}

}  // namespace
