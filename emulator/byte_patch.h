// Raw bytes a board writes at an offset of a platform data block, applied
// after the block's readable members.
#ifndef QOR_EMULATOR_BYTE_PATCH_H_
#define QOR_EMULATOR_BYTE_PATCH_H_

#include <cstdint>
#include <vector>

namespace qor::emu {

struct BytePatch {
  uint64_t Offset;
  std::vector<uint8_t> Bytes;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_BYTE_PATCH_H_
