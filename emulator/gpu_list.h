// The GPU list the driver leaves in the system information data block
// (platform/system_information.h), read back after a boot.
#ifndef QOR_EMULATOR_GPU_LIST_H_
#define QOR_EMULATOR_GPU_LIST_H_

#include <cstdint>
#include <vector>

#include "platform/system_information.h"

namespace qor::emu {

struct GpuList {
  uint8_t Count = 0;                   // the count byte as stored
  std::vector<QOR_GPU_ENTRY> Entries;  // the first Count entries (at most the room the block keeps)
};

// The list in Block (empty when the block is too short to hold it).
GpuList ReadGpuList(const std::vector<uint8_t> &Block);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_GPU_LIST_H_
