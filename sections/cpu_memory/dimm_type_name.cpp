// The DIMM type text reported for a DIMM, from its memory map data: NVDIMM
// and persistent memory modules first, then the module type of DRAM DIMMs.
#include "platform/base_lib.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {

// Module types of standard DRAM DIMMs (index = module type byte).
CONST CHAR8 *CONST kModuleTypeNames[] = {
    "N/A",          "RDIMM",        "UDIMM",        "SODIMM", "LRDIMM-DDR4", "MINI-RDIMM", "MINI-UDIMM",
    "MINI-CDIMM",   "ECC-SO-UDIMM", "ECC-SO-RDIMM", "ECC-SO-CDIMM", "LRDIMM", "N/A",        "NVDIMM",
    "N/A",          "N/A",          "N/A",          "N/A",    "ECC-UDIMM",
};

template <typename T>
T ReadField(CONST UINT8 *Data, UINTN Offset) {
  T Value;
  QorCopyMem(&Value, Data + Offset, sizeof(Value));
  return Value;
}

CONST CHAR8 *PersistentMemoryName(UINT16 DeviceId) {
  switch (DeviceId) {
    case 0x0979: return "AEP-DIMM";
    case 0x097B: return "BPS-DIMM";
    case 0x097C: return "CPS-DIMM";
    default: return "DCPMM-DIMM";
  }
}

}  // namespace

CONST CHAR8 *QorGetDimmTypeName(CONST UINT8 *MemoryMapData, UINT32 Socket, UINT32 Channel, UINT32 Dimm) {
  CONST UINT8 *Data = MemoryMapData + QOR_MEMMAP_DIMM_BASE(Socket, Channel, Dimm);
  if (ReadField<UINT32>(Data, QOR_MEMMAP_DIMM_NVDIMM_FLAG) != 0) return "ISNVDIMM";
  UINT8 KeyType = Data[QOR_MEMMAP_DIMM_KEY_TYPE];
  if (KeyType == QOR_DRAM_KEY_TYPE_PMEM) return PersistentMemoryName(ReadField<UINT16>(Data, QOR_MEMMAP_DIMM_PMEM_DEVICE_ID));
  if (KeyType != QOR_DRAM_KEY_TYPE_DDR4 && KeyType != QOR_DRAM_KEY_TYPE_DDR5) return "RDIMM";
  UINT8 ModuleType = Data[QOR_MEMMAP_DIMM_MODULE_TYPE];
  if (ModuleType >= sizeof(kModuleTypeNames) / sizeof(kModuleTypeNames[0])) return "N/A";
  return kModuleTypeNames[ModuleType];
}
