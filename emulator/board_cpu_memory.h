// Board members for processors and memory: SMBIOS records, the processor
// speed, DIMM map and memory map HOBs, and the CPU power data
// (docs/board-cpu-memory.md).
#ifndef QOR_EMULATOR_BOARD_CPU_MEMORY_H_
#define QOR_EMULATOR_BOARD_CPU_MEMORY_H_

#include "emulator/byte_patch.h"
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qor::emu {

class JsonField;
struct Board;

// SMBIOS structures in table order, each complete (formatted area and
// string area with its double NUL), handles assigned.
struct SmbiosDef {
  bool Present = true;
  uint8_t MajorVersion = 3;
  uint8_t MinorVersion = 6;
  std::vector<std::vector<uint8_t>> Records;
};

struct MemoryMapDataDimmDef {
  uint8_t Socket = 0;
  uint8_t Channel = 0;
  uint8_t Dimm = 0;
  bool Present = true;
  uint8_t SizeFlags[2] = {0, 0};  // both non-zero: the size below is the DIMM's size
  uint8_t KeyType = 18;
  uint8_t ModuleType = 1;
  uint32_t Nvdimm = 0;
  uint16_t VendorId = 0;
  uint16_t DeviceId = 0;
  uint32_t SizeGb = 0;
  uint8_t RepairCount = 0;
};

// The platform's memory map data behind the memory map HOB.
struct MemoryMapDataDef {
  bool NullPointer = false;  // the HOB exists but points nowhere
  uint8_t DdrVoltage = 0;
  bool Ecc = true;
  std::vector<bool> SocketsEnabled;
  std::vector<MemoryMapDataDimmDef> Dimms;
  std::vector<BytePatch> Patches;  // raw bytes at block offsets, applied last
};

struct CpuPowerDef {
  bool HasData = true;    // false: the protocol's first member is null
  std::vector<uint32_t> Tdp;  // watts, per socket table entry
};

// Parsers of the members above (board_cpu_memory.cpp).
void ParseSmbios(const JsonField &Smbios, Board *Out);
void ParseCpuPower(const JsonField &CpuPower, Board *Out);
// Members of "hobs": "processorSpeed", "dimmMap", "memoryMap".
void ParseCpuMemoryHobs(const JsonField &Hobs, Board *Out);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_BOARD_CPU_MEMORY_H_
