// Snapshot encoding. The payload is the device record's own bytes followed by the beat log's:
// every analyser keeps its whole state in fixed arrays and scalars inside the record (no
// pointers), and so does the log, so a byte copy is the complete state. The checksum covers the
// header too, so any changed byte is refused.
#include "api/snapshot.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include "api/state_checks.h"
#include "rtmonitor.h"

namespace rtm {
namespace {

// The analysers declare (empty) destructors, so the record is not formally trivially copyable;
// what a byte copy needs is that it holds no pointers and no virtual dispatch: scalars and
// arrays of scalars only, laid out in one standard-layout block.
static_assert(std::is_standard_layout<UserDataStruct>::value && !std::is_polymorphic<CBeatMeasure>::value &&
                  !std::is_polymorphic<CBreathPro>::value,
              "a snapshot copies the device record byte for byte");
static_assert(std::is_trivially_copyable<BeatLog>::value, "a snapshot copies the beat log byte for byte");

constexpr char kMagic[8] = {'R', 'T', 'M', 'S', 'T', 'A', 'T', 'E'};
constexpr uint32_t kByteOrderMark = 0x01020304u;
constexpr std::size_t kVersionBytes = 16;
constexpr std::size_t kChecksumOffset = 40;

constexpr std::size_t kRecordBytes = sizeof(UserDataStruct);
constexpr std::size_t kPayloadBytes = kRecordBytes + sizeof(BeatLog);

void fnv1a(uint64_t& h, const unsigned char* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        h ^= p[i];
        h *= 1099511628211ull;
    }
}

uint64_t checksum(const unsigned char* header, const unsigned char* payload) {
    uint64_t h = 14695981039346656037ull;
    fnv1a(h, header, kChecksumOffset);
    const unsigned char zeros[8] = {};
    fnv1a(h, zeros, sizeof zeros);
    fnv1a(h, payload, kPayloadBytes);
    return h;
}

// The header this build writes, checksum field zero.
void expectedHeader(unsigned char* header) {
    std::memset(header, 0, kSnapshotHeaderBytes);
    std::memcpy(header, kMagic, sizeof kMagic);
    std::memcpy(header + 8, &kSnapshotFormatVersion, 4);
    std::memcpy(header + 12, &kByteOrderMark, 4);
    static_assert(sizeof RTMONITOR_VERSION_STRING <= kVersionBytes, "version fits its field");
    std::memcpy(header + 16, RTMONITOR_VERSION_STRING, sizeof RTMONITOR_VERSION_STRING - 1);
    const uint64_t payload = kPayloadBytes;
    std::memcpy(header + 32, &payload, 8);
}

}  // namespace

std::size_t snapshotSize() { return kSnapshotHeaderBytes + kPayloadBytes; }

bool saveSnapshot(const HandleState& state, void* buf, std::size_t len) {
    if (len < snapshotSize()) return false;
    auto* out = static_cast<unsigned char*>(buf);
    unsigned char header[kSnapshotHeaderBytes];
    expectedHeader(header);
    std::memcpy(out + kSnapshotHeaderBytes, &state.record, kRecordBytes);
    std::memcpy(out + kSnapshotHeaderBytes + kRecordBytes, &state.beats, sizeof(BeatLog));
    const uint64_t sum = checksum(header, out + kSnapshotHeaderBytes);
    std::memcpy(header + kChecksumOffset, &sum, 8);
    std::memcpy(out, header, kSnapshotHeaderBytes);
    return true;
}

bool loadSnapshot(HandleState& state, const void* buf, std::size_t len) {
    if (len != snapshotSize()) return false;
    const auto* in = static_cast<const unsigned char*>(buf);
    unsigned char header[kSnapshotHeaderBytes];
    expectedHeader(header);
    // Everything but the checksum must be exactly what this build writes.
    if (std::memcmp(in, header, kChecksumOffset) != 0) return false;
    uint64_t stored = 0;
    std::memcpy(&stored, in + kChecksumOffset, 8);
    if (stored != checksum(header, in + kSnapshotHeaderBytes)) return false;
    // The checksum proves the bytes arrived as written, not that the analysers wrote them: the
    // state is range-checked in a scratch record before it replaces the device's.
    std::unique_ptr<HandleState> candidate(new (std::nothrow) HandleState());
    if (candidate == nullptr) return false;
    std::memcpy(static_cast<void*>(&candidate->record), in + kSnapshotHeaderBytes, kRecordBytes);
    std::memcpy(&candidate->beats, in + kSnapshotHeaderBytes + kRecordBytes, sizeof(BeatLog));
    if (!stateWithinBounds(candidate->record) || !beatLogWithinBounds(candidate->beats)) return false;
    std::memcpy(static_cast<void*>(&state.record), &candidate->record, kRecordBytes);
    state.beats = candidate->beats;
    return true;
}

}  // namespace rtm
