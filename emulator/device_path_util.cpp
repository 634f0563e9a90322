#include "emulator/device_path_util.h"

#include <cstring>

#include "platform/device_path.h"

namespace qor::emu {

namespace {
constexpr size_t kHeaderSize = sizeof(EFI_DEVICE_PATH_PROTOCOL);

size_t NodeLength(const uint8_t *Node) { return Node[2] | (size_t{Node[3]} << 8); }

bool IsEndEntire(const uint8_t *Node) {
  return Node[0] == END_DEVICE_PATH_TYPE && Node[1] == END_ENTIRE_DEVICE_PATH_SUBTYPE;
}
}  // namespace

std::vector<uint8_t> EndOnlyDevicePath() {
  return {END_DEVICE_PATH_TYPE, END_ENTIRE_DEVICE_PATH_SUBTYPE, kHeaderSize, 0};
}

std::vector<uint8_t> AppendDevicePathNode(const std::vector<uint8_t> &Path, const void *Node, size_t Size) {
  std::vector<uint8_t> Out(Path.begin(), Path.end() - kHeaderSize);
  const auto *Bytes = static_cast<const uint8_t *>(Node);
  Out.insert(Out.end(), Bytes, Bytes + Size);
  std::vector<uint8_t> End = EndOnlyDevicePath();
  Out.insert(Out.end(), End.begin(), End.end());
  return Out;
}

namespace {
long BytesBeforeEnd(const EFI_DEVICE_PATH_PROTOCOL *Path, size_t MaxBytes, bool AnyEnd) {
  const auto *Bytes = reinterpret_cast<const uint8_t *>(Path);
  size_t At = 0;
  while (At + kHeaderSize <= MaxBytes) {
    if (IsEndEntire(Bytes + At) || (AnyEnd && Bytes[At] == END_DEVICE_PATH_TYPE)) return static_cast<long>(At);
    size_t Length = NodeLength(Bytes + At);
    if (Length < kHeaderSize) return -1;
    At += Length;
  }
  return -1;
}
}  // namespace

long DevicePathPrefixBytes(const EFI_DEVICE_PATH_PROTOCOL *Path, size_t MaxBytes) {
  return BytesBeforeEnd(Path, MaxBytes, false);
}

long DevicePathFirstInstanceBytes(const EFI_DEVICE_PATH_PROTOCOL *Path) {
  return BytesBeforeEnd(Path, kMaxDevicePathBytes, true);
}

int DevicePathNodeCount(const EFI_DEVICE_PATH_PROTOCOL *Path) {
  const auto *Bytes = reinterpret_cast<const uint8_t *>(Path);
  size_t At = 0;
  int Count = 0;
  while (At + kHeaderSize <= kMaxDevicePathBytes) {
    if (IsEndEntire(Bytes + At)) return Count;
    size_t Length = NodeLength(Bytes + At);
    if (Length < kHeaderSize) return -1;
    At += Length;
    Count++;
  }
  return -1;
}

}  // namespace qor::emu
