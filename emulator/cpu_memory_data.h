// Platform data for the processor and memory sections, built from the
// board: the memory map data block, the GUID HOBs of the memory reference
// code (processor speed, DIMM map, memory map) and the CPU power block.
#ifndef QOR_EMULATOR_CPU_MEMORY_DATA_H_
#define QOR_EMULATOR_CPU_MEMORY_DATA_H_

#include <cstdint>
#include <vector>

#include "emulator/board.h"

namespace qor::emu {

// The memory map data (QOR_MEMMAP_DATA_SIZE bytes), or nothing when the
// board has no memory map or its HOB points nowhere.
std::vector<uint8_t> BuildMemoryMapBlock(const Board &Board);

// The processor speed, DIMM map and memory map HOBs the board has; the
// memory map HOB's data is the address of MemoryMapBlock.
std::vector<GuidHob> CpuMemoryHobs(const Board &Board, const void *MemoryMapBlock);

// The CPU power protocol's data: the packed block and the per-socket table
// it points to.
struct CpuPowerData {
  std::vector<uint8_t> Block;
  std::vector<uint8_t> Table;
};
// Builds Out in place (the block holds the table's address).
void BuildCpuPowerData(const Board &Board, CpuPowerData *Out);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_CPU_MEMORY_DATA_H_
