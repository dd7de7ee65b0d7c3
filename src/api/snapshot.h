// Snapshots of one device's analysis state: a 48-byte header (magic, format version, byte-order
// mark, library version, payload size, FNV-1a checksum) followed by the state's bytes. A
// snapshot is checked whole before any of it is applied.
#pragma once

#include <cstddef>

#include "rtmonitor/GeneralRealTime.h"

namespace rtm {

constexpr std::size_t kSnapshotHeaderBytes = 48;

std::size_t snapshotSize();
bool saveSnapshot(const UserDataStruct& record, void* buf, std::size_t len);
// False, with `record` untouched, for anything but a whole, intact snapshot of this version
// whose state passes the range checks of state_checks.h.
bool loadSnapshot(UserDataStruct& record, const void* buf, std::size_t len);

}  // namespace rtm
