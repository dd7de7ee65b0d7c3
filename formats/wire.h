// What the worker service puts on the wire and in its buckets: subject and stream names, the
// lease and snapshot records, and the byte order of the records it publishes. Shared by the
// worker, the tool's publish/subscribe commands, the alarms and the tests; no NATS client
// needed here.
// Integers on the wire are little-endian, as in frame files.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "rtmonitor.h"

namespace rtmfmt {

// Frames are published on rtm.frames.<device id>; the server's subject mapping moves each onto
// rtm.part.<partition>.<device id>, and the frames stream captures the partition subjects.
constexpr const char* kFramesStream = "RTM_FRAMES";
constexpr const char* kFramesSubjects = "rtm.part.*.*";
constexpr const char* kResultsStream = "RTM_VITALS";
constexpr const char* kResultsSubjects = "rtm.vitals.*";
constexpr const char* kLeaseBucket = "rtm_leases";
constexpr const char* kSnapshotBucket = "rtm_snapshots";
constexpr const char* kPartitionCountKey = "config.partitions";

// Headers on every result, so a reader can place it without decoding the frame.
constexpr const char* kHeaderFrameSeq = "Rtm-Frame-Seq";    // the frame's nFrameSeq
constexpr const char* kHeaderStreamSeq = "Rtm-Stream-Seq";  // the frame's sequence in the frames stream
constexpr const char* kHeaderFrameTime = "Rtm-Frame-Time";  // when the frames stream stored it, ns since 1970
// The payload's layout: absent on the bare 1124-byte record of earlier versions; "2" for the record
// followed by the frame's beats block (see encodeResultPayload).
constexpr const char* kHeaderPayload = "Rtm-Payload";
constexpr const char* kPayloadWithBeats = "2";

constexpr int kMaxPartitions = 1024;

inline std::string frameSubject(int32_t device) { return "rtm.frames." + std::to_string(device); }
inline std::string partitionSubject(int p) { return "rtm.part." + std::to_string(p) + ".*"; }
inline std::string consumerName(int p) { return "part-" + std::to_string(p); }
inline std::string resultSubject(int32_t device) { return "rtm.vitals." + std::to_string(device); }
inline std::string leaseKey(int p) { return "part." + std::to_string(p); }
inline std::string memberKey(const std::string& worker) { return "worker." + worker; }
inline std::string snapshotKey(int32_t device) { return "dev." + std::to_string(device); }

// A frame is identified by its device and the host's frame sequence number, so publishing the
// same recording again inside the duplicate window stores nothing twice.
inline std::string frameMsgId(int32_t device, int32_t frameSeq) {
    return std::to_string(device) + "." + std::to_string(frameSeq);
}
// A result is identified by the stream sequence of its frame: a new owner that analyses a frame
// again publishes the same bytes under the same id, and the results stream drops the copy.
inline std::string resultMsgId(int32_t device, uint64_t streamSeq) {
    return std::to_string(device) + "." + std::to_string(streamSeq);
}

// The last token of a subject as a device id; false when it is not a whole int32.
inline bool deviceFromSubject(const char* subject, int32_t& device) {
    const char* dot = std::strrchr(subject, '.');
    const char* s = dot ? dot + 1 : subject;
    bool neg = false;
    if (*s == '-') {
        neg = true;
        ++s;
    }
    if (*s == '\0') return false;
    int64_t v = 0;
    for (; *s; ++s) {
        if (*s < '0' || *s > '9' || v > 2147483648LL) return false;
        v = v * 10 + (*s - '0');
    }
    if (neg) v = -v;
    if (v < INT32_MIN || v > INT32_MAX) return false;
    device = static_cast<int32_t>(v);
    return true;
}

inline void putU64(unsigned char* p, uint64_t v) {
    for (int i = 0; i < 8; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
inline uint64_t getU64(const unsigned char* p) {
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v |= static_cast<uint64_t>(p[i]) << (8 * i);
    return v;
}

// The output record as 281 little-endian words.
inline void encodeResult(const ParamsOut& out, unsigned char* bytes) {
    int32_t words[sizeof(ParamsOut) / 4];
    std::memcpy(words, &out, sizeof out);
    for (size_t i = 0; i < sizeof(ParamsOut) / 4; ++i) {
        const uint32_t w = static_cast<uint32_t>(words[i]);
        for (int b = 0; b < 4; ++b) bytes[4 * i + b] = static_cast<unsigned char>(w >> (8 * b));
    }
}
// A result message's payload: the output record (281 little-endian words, 1124 bytes), then the
// beats the frame confirmed:
//   uint32 count, then count records of 32 bytes: int64 sample, int32 rr_ms, width_ms, rate,
//   type, stability, reserved (0); all little-endian, fields as in rtm_beat.
// A payload is never exactly 1124 bytes, so a reader of the bare record refuses it rather than
// misreading it, and the Rtm-Payload header says which layout a message holds.
constexpr size_t kResultBytes = sizeof(ParamsOut);
constexpr size_t kBeatRecordBytes = 32;
void encodeResultPayload(const ParamsOut& out, const rtm_beat* beats, size_t count, std::vector<unsigned char>& bytes);
// Either layout: the bare record (no beats) or the record with its beats block. False when the
// length fits neither.
bool decodeResultPayload(const unsigned char* data, size_t len, ParamsOut& out, std::vector<rtm_beat>& beats);

// The output record as one JSON object (the worker's --json results): device, the frame's
// sequence, the rates, states and posture, the waveforms as arrays of counts and the frame's
// beats as objects with the fields of rtm_beat.
std::string resultJson(int32_t device, int32_t frameSeq, const ParamsOut& out, const rtm_beat* beats = nullptr,
                       size_t count = 0);

inline ParamsOut decodeResult(const unsigned char* bytes) {
    int32_t words[sizeof(ParamsOut) / 4];
    for (size_t i = 0; i < sizeof(ParamsOut) / 4; ++i) {
        uint32_t w = 0;
        for (int b = 0; b < 4; ++b) w |= static_cast<uint32_t>(bytes[4 * i + b]) << (8 * b);
        words[i] = static_cast<int32_t>(w);
    }
    ParamsOut out;
    std::memcpy(&out, words, sizeof out);
    return out;
}

// A device snapshot in the snapshot bucket:
//   bytes  0..7   magic "RTMSERV1"
//   bytes  8..15  stream sequence of the last frame the state covers (uint64)
//   bytes 16..    the library's own snapshot (rtm_device_save), which carries its own checks
constexpr size_t kSnapshotHeaderBytes = 16;
constexpr char kSnapshotMagic[8] = {'R', 'T', 'M', 'S', 'E', 'R', 'V', '1'};

inline bool parseSnapshotHeader(const void* data, size_t len, uint64_t& streamSeq) {
    if (len < kSnapshotHeaderBytes || std::memcmp(data, kSnapshotMagic, 8) != 0) return false;
    streamSeq = getU64(static_cast<const unsigned char*>(data) + 8);
    return true;
}

}  // namespace rtmfmt
