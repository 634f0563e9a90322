#include "emulator/cpu_memory_data.h"
#include "emulator/board_json.h"

#include <cstring>

#include "platform/cpu_power.h"
#include "platform/guids.h"
#include "platform/memory_map_data.h"

namespace qor::emu {

namespace {
template <typename T>
void Put(std::vector<uint8_t> &Bytes, size_t Offset, T Value) {
  std::memcpy(Bytes.data() + Offset, &Value, sizeof(Value));
}
}  // namespace

std::vector<uint8_t> BuildMemoryMapBlock(const Board &Board) {
  if (!Board.MemoryMapData || Board.MemoryMapData->NullPointer) return {};
  const MemoryMapDataDef &Map = *Board.MemoryMapData;
  std::vector<uint8_t> Block(QOR_MEMMAP_DATA_SIZE, 0);
  Block[QOR_MEMMAP_DDR_VOLTAGE_OFFSET] = Map.DdrVoltage;
  Block[QOR_MEMMAP_ECC_ENABLED_OFFSET] = Map.Ecc ? 1 : 0;
  for (size_t S = 0; S < Map.SocketsEnabled.size(); S++) {
    Block[QOR_MEMMAP_SOCKET_BASE(S) + QOR_MEMMAP_SOCKET_ENABLED] = Map.SocketsEnabled[S] ? 1 : 0;
  }
  for (const MemoryMapDataDimmDef &D : Map.Dimms) {
    // A channel with a DIMM in it is flagged as populated.
    Block[QOR_MEMMAP_CHANNEL_BASE(D.Socket, D.Channel) + QOR_MEMMAP_CHANNEL_FLAG] = 1;
    size_t Base = QOR_MEMMAP_DIMM_BASE(D.Socket, D.Channel, D.Dimm);
    Block[Base + QOR_MEMMAP_DIMM_PRESENT] = D.Present ? 1 : 0;
    Block[Base + QOR_MEMMAP_DIMM_SIZE_FLAG_A] = D.SizeFlags[0];
    Block[Base + QOR_MEMMAP_DIMM_SIZE_FLAG_B] = D.SizeFlags[1];
    Block[Base + QOR_MEMMAP_DIMM_KEY_TYPE] = D.KeyType;
    Block[Base + QOR_MEMMAP_DIMM_MODULE_TYPE] = D.ModuleType;
    Put<uint32_t>(Block, Base + QOR_MEMMAP_DIMM_NVDIMM_FLAG, D.Nvdimm);
    Put<uint16_t>(Block, Base + QOR_MEMMAP_DIMM_VENDOR_ID, D.VendorId);
    Put<uint16_t>(Block, Base + QOR_MEMMAP_DIMM_PMEM_DEVICE_ID, D.DeviceId);
    Put<uint32_t>(Block, Base + QOR_MEMMAP_DIMM_SIZE, D.SizeGb);
    Block[Base + QOR_MEMMAP_DIMM_REPAIR_COUNT] = D.RepairCount;
  }
  ApplyBytePatches(&Block, Map.Patches);
  return Block;
}

std::vector<GuidHob> CpuMemoryHobs(const Board &Board, const void *MemoryMapBlock) {
  std::vector<GuidHob> Hobs;
  if (Board.ProcessorSpeedHob) Hobs.push_back({gQorProcessorSpeedHobGuid, *Board.ProcessorSpeedHob});
  if (Board.DimmMapHob) Hobs.push_back({gQorDimmMapHobGuid, *Board.DimmMapHob});
  if (Board.MemoryMapData) {
    std::vector<uint8_t> Pointer(sizeof(uint64_t), 0);
    Put<uint64_t>(Pointer, 0, reinterpret_cast<uint64_t>(MemoryMapBlock));
    Hobs.push_back({gQorMemoryMapHobGuid, Pointer});
  }
  return Hobs;
}

void BuildCpuPowerData(const Board &Board, CpuPowerData *Out) {
  Out->Table.assign(QOR_CPU_POWER_TABLE_SIZE, 0);
  for (size_t I = 0; I < Board.CpuPower.Tdp.size() && I < QOR_CPU_POWER_MAX_SOCKETS; I++) {
    Put<uint32_t>(Out->Table, QOR_CPU_POWER_TDP_OFFSET + 4 * I, Board.CpuPower.Tdp[I]);
  }
  Out->Block.assign(sizeof(QOR_CPU_POWER_BLOCK), 0);
  Put<uint64_t>(Out->Block, offsetof(QOR_CPU_POWER_BLOCK, SocketTable), reinterpret_cast<uint64_t>(Out->Table.data()));
}

}  // namespace qor::emu
