// Device paths as byte strings: building them node by node and measuring the
// ones the driver hands in (which may be malformed).
#ifndef QOR_EMULATOR_DEVICE_PATH_UTIL_H_
#define QOR_EMULATOR_DEVICE_PATH_UTIL_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/uefi_tables.h"

namespace qor::emu {

// A path of one End node.
std::vector<uint8_t> EndOnlyDevicePath();
// Path with Node (a whole node, header included) put before its End node.
std::vector<uint8_t> AppendDevicePathNode(const std::vector<uint8_t> &Path, const void *Node, size_t Size);

// Bytes before the End-entire node, or -1 when the path is malformed: a node
// shorter than its header, or no End node within MaxBytes. Paths of this
// emulator are a few dozen bytes; MaxBytes bounds the walk over the driver's.
constexpr size_t kMaxDevicePathBytes = 4096;
long DevicePathPrefixBytes(const EFI_DEVICE_PATH_PROTOCOL *Path, size_t MaxBytes = kMaxDevicePathBytes);
// Bytes of a path's first instance: before the first End node of either
// kind (-1 when malformed).
long DevicePathFirstInstanceBytes(const EFI_DEVICE_PATH_PROTOCOL *Path);
// Nodes before the End-entire node (-1 when malformed).
int DevicePathNodeCount(const EFI_DEVICE_PATH_PROTOCOL *Path);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_DEVICE_PATH_UTIL_H_
