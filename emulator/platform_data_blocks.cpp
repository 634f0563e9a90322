// Platform data blocks behind the system information protocol, the system
// topology data and the qor custom protocol, built from the board.
#include <algorithm>
#include <cstring>

#include "emulator/board_json.h"
#include "emulator/pci/iio_stack_table.h"
#include "emulator/pci/iio_topology.h"
#include "emulator/platform.h"
#include "platform/custom_protocol.h"
#include "platform/system_information.h"
#include "platform/system_topology.h"

namespace qor::emu {

namespace {
// Copies Text into a field of N bytes, always leaving it terminated.
template <size_t N>
void PutText(char (&Field)[N], const std::string &Text) {
  std::memset(Field, 0, N);
  std::memcpy(Field, Text.data(), std::min(Text.size(), N - 1));
}

QOR_SATA_DRIVE_ENTRY SataDriveEntry(const SataDriveDef &Drive) {
  QOR_SATA_DRIVE_ENTRY Entry;
  std::memset(&Entry, 0, sizeof(Entry));
  Entry.Present = Drive.Present;
  Entry.PortIndex = Drive.PortIndex;
  PutText(Entry.Model, Drive.Model);
  PutText(Entry.FwVersion, Drive.Firmware);
  PutText(Entry.Capacity, Drive.Capacity);
  Entry.SpeedIndex = Drive.SpeedIndex;
  Entry.MediaType = Drive.MediaType;
  Entry.FormFactor = Drive.FormFactor;
  PutText(Entry.SerialNumber, Drive.Serial);
  return Entry;
}
}  // namespace

std::vector<uint8_t> BuildSystemInformationBlock(const Board &Board, const std::vector<EnumeratedFunction> &Pci) {
  const SystemInformationDef &Info = Board.SystemInformation;
  std::vector<uint8_t> Block(kSystemInformationBlockSize, 0);
  std::memcpy(Block.data() + QOR_SYSINFO_CPU_BIT_MAP_OFFSET, &Info.CpuBitMap, sizeof(uint32_t));
  std::u16string Stepping(Info.Stepping.begin(), Info.Stepping.end());
  if (Stepping.size() >= QOR_SYSINFO_STEPPING_TEXT_MAX_CHARS) Stepping.resize(QOR_SYSINFO_STEPPING_TEXT_MAX_CHARS - 1);
  std::memcpy(Block.data() + QOR_SYSINFO_STEPPING_TEXT_OFFSET, Stepping.data(), Stepping.size() * sizeof(char16_t));
  static_assert(QOR_SYSINFO_SATA_DRIVES_END <= kSystemInformationBlockSize, "SATA entries inside the block");
  for (size_t I = 0; I < Info.SataDrives.size() && I < QOR_SYSINFO_SATA_DRIVES_MAX; I++) {
    QOR_SATA_DRIVE_ENTRY Entry = SataDriveEntry(Info.SataDrives[I]);
    std::memcpy(Block.data() + QOR_SYSINFO_SATA_DRIVES_OFFSET + I * sizeof(Entry), &Entry, sizeof(Entry));
  }
  WriteIioStackTable(Board, Pci, &Block);
  WriteIioTopologyTable(Board, Pci, &Block);
  ApplyBytePatches(&Block, Info.Patches);
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

// The board description behind the qor custom protocol: the SATA port list,
// with the records the board does not give marked unused, and the M.2
// socket names.
std::vector<uint8_t> BuildCustomProtocolBlock(const Board &Board) {
  static_assert(QOR_CUSTOM_SATA_PORT_LIST_END <= kCustomProtocolBlockSize, "port list inside the block");
  std::vector<uint8_t> Block(kCustomProtocolBlockSize, 0);
  const auto &Ports = Board.CustomProtocol.SataPorts;
  for (size_t I = 0; I < QOR_CUSTOM_SATA_PORT_COUNT; I++) {
    QOR_SATA_PORT_INFO Record;
    std::memset(&Record, 0, sizeof(Record));
    Record.PortIndex = QOR_SATA_PORT_NONE;
    if (I < Ports.size()) {
      Record.PortIndex = Ports[I].PortIndex;
      PutText(Record.SlotName, Ports[I].Slot);
    }
    std::memcpy(Block.data() + QOR_CUSTOM_SATA_PORT_LIST_OFFSET + I * sizeof(Record), &Record, sizeof(Record));
  }
  static_assert(QOR_CUSTOM_M2_NAMES_OFFSET + 3 * QOR_CUSTOM_M2_NAME_SIZE <= kCustomProtocolBlockSize, "M.2 names inside");
  const auto &Names = Board.CustomProtocol.M2Names;
  for (size_t I = 0; I < Names.size() && I < 3; I++) {
    std::memcpy(Block.data() + QOR_CUSTOM_M2_NAMES_OFFSET + I * QOR_CUSTOM_M2_NAME_SIZE, Names[I].data(),
                std::min<size_t>(Names[I].size(), QOR_CUSTOM_M2_NAME_SIZE - 1));
  }
  return Block;
}

}  // namespace qor::emu
