// Platform data blocks behind the system information protocol and the
// system topology data, built from the board.
#include <cstring>

#include "emulator/platform.h"
#include "platform/system_information.h"
#include "platform/system_topology.h"

namespace qor::emu {

std::vector<uint8_t> BuildSystemInformationBlock(const Board &Board) {
  const SystemInformationDef &Info = Board.SystemInformation;
  std::vector<uint8_t> Block(kSystemInformationBlockSize, 0);
  std::memcpy(Block.data() + QOR_SYSINFO_CPU_BIT_MAP_OFFSET, &Info.CpuBitMap, sizeof(uint32_t));
  std::u16string Stepping(Info.Stepping.begin(), Info.Stepping.end());
  if (Stepping.size() >= QOR_SYSINFO_STEPPING_TEXT_MAX_CHARS) Stepping.resize(QOR_SYSINFO_STEPPING_TEXT_MAX_CHARS - 1);
  std::memcpy(Block.data() + QOR_SYSINFO_STEPPING_TEXT_OFFSET, Stepping.data(), Stepping.size() * sizeof(char16_t));
  for (const BytePatch &Patch : Info.Patches) {
    std::memcpy(Block.data() + Patch.Offset, Patch.Bytes.data(), Patch.Bytes.size());
  }
  return Block;
}

std::vector<uint8_t> BuildSystemTopologyBlock(const Board &Board) {
  std::vector<uint8_t> Block(QOR_TOPOLOGY_DATA_SIZE, 0);
  const auto &Sockets = Board.SystemTopology.Sockets;
  for (size_t S = 0; S < Sockets.size() && S < QOR_TOPOLOGY_MAX_SOCKETS; S++) {
    Block[QOR_TOPOLOGY_SOCKET_VALID_OFFSET + QOR_TOPOLOGY_SOCKET_STRIDE * S] = Sockets[S].Valid ? 1 : 0;
    Block[QOR_TOPOLOGY_SOCKET_CHOP_TYPE_OFFSET + QOR_TOPOLOGY_SOCKET_STRIDE * S] = Sockets[S].ChopType;
  }
  return Block;
}

}  // namespace qor::emu
