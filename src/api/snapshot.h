// Snapshots of one handle's state: a 48-byte header (magic, format version, byte-order mark,
// library version, payload size, FNV-1a checksum) followed by the state's bytes, the device
// record first and the beat log after it. A snapshot is checked whole before any of it is applied.
#pragma once

#include <cstddef>
#include <cstdint>

#include "api/handle_state.h"

namespace rtm {

constexpr std::size_t kSnapshotHeaderBytes = 48;
// Format 1 (library 0.2.0) held the device record only.
constexpr uint32_t kSnapshotFormatVersion = 2;

std::size_t snapshotSize();
bool saveSnapshot(const HandleState& state, void* buf, std::size_t len);
// False, with `state` untouched, for anything but a whole, intact snapshot of this version
// whose state passes the range checks of state_checks.h and beat_log.h.
bool loadSnapshot(HandleState& state, const void* buf, std::size_t len);

}  // namespace rtm
