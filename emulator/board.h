// A board description: everything the emulated platform hands the driver.
// Loaded from JSON (docs/board-format.md); every member has a default, so a
// small file describes a small variation of the built-in board.
#ifndef QOR_EMULATOR_BOARD_H_
#define QOR_EMULATOR_BOARD_H_

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "emulator/board_cpu_memory.h"
#include "emulator/variable_store.h"
#include "platform/uefi_base.h"

namespace qor::emu {

// A board that cannot be used; the message names the field and what was
// expected there.
class BoardError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct PcdValue {
  bool IsText = false;
  uint64_t Number = 0;
  std::string Text;
};

struct PcdExKey {
  EFI_GUID TokenSpace;
  uint64_t Token;
  bool operator<(const PcdExKey &Other) const;
};

struct GuidHob {
  EFI_GUID Name;
  std::vector<uint8_t> Data;
};

// Trigger protocols the platform installs, by their short names:
// "fill", "readyToLock", "late".
struct TriggerPlan {
  std::vector<std::string> BeforeEntry;
  std::vector<std::string> Order{"fill", "readyToLock", "late"};
};

struct FaultPlan {
  std::vector<uint64_t> FailAllocations;        // 1-based ordinals of AllocatePool calls
  std::vector<std::string> MissingProtocols;    // short names, see kProtocolNames
  std::vector<std::string> FailVariableGet;
  std::vector<std::string> FailVariableSet;
  std::optional<EFI_STATUS> SendFileStatus;     // status the quick trans send returns
  std::optional<EFI_STATUS> JsonStatus;         // status Validate/PrettyPrint return
};

struct BytePatch {
  uint64_t Offset;
  std::vector<uint8_t> Bytes;
};

// The data block behind the system information protocol.
struct SystemInformationDef {
  bool HasDataBlock = true;        // false: the protocol's member is null
  uint32_t CpuBitMap = 0;
  std::string Stepping;            // stored as UCS-2
  std::vector<BytePatch> Patches;  // raw bytes at block offsets, applied last
};

struct TopologySocket {
  bool Valid = false;
  uint8_t ChopType = 0;
};

struct SystemTopologyDef {
  std::vector<TopologySocket> Sockets;  // at most 4
};

constexpr size_t kSystemInformationBlockSize = 0x20000;

struct Board {
  std::string Name = "unnamed board";

  // Platform PCD database (EDK2 PCD protocol) by token number, and the
  // dynamic-ex values of EFI_PCD_PROTOCOL by token space and token.
  std::map<uint64_t, PcdValue> Pcds;
  std::map<PcdExKey, uint64_t> PcdsEx;

  std::map<uint32_t, uint64_t> Msrs;
  std::map<uint64_t, uint8_t> MmioBytes;      // physical address -> byte (others read 0xFF)
  std::map<uint16_t, uint8_t> IoPorts;

  uint16_t PchDeviceId = 0x1B81;
  uint8_t PchRevisionId = 0x10;

  // The MRC data HOB (absent when nullopt).
  std::optional<std::vector<uint8_t>> MrcData;
  std::vector<GuidHob> GuidHobs;              // further GUID HOBs, in list order

  std::vector<Variable> Variables;
  std::vector<uint8_t> FlashId{0xEF, 0x40, 0x19, 0x00};
  uint64_t DebugPrintRevision = 0x10001;

  SystemInformationDef SystemInformation;
  SystemTopologyDef SystemTopology;

  TriggerPlan Triggers;
  FaultPlan Faults;

  // ---- memory map served by GetMemoryMap

  // ---- processors, memory, SMBIOS, IIO
  SmbiosDef Smbios;
  PciDef Pci;
  std::optional<std::vector<uint8_t>> ProcessorSpeedHob;  // maximum core ratio per socket
  std::optional<std::vector<uint8_t>> DimmMapHob;         // 9-byte entries with the end entry
  std::optional<MemoryMapDef> MemoryMap;
  CpuPowerDef CpuPower;

  // ---- TPM, SATA, BMC transport
};

// Short names of the platform protocols a board may leave out.
extern const std::vector<std::string> kProtocolNames;

// Parses and validates a board; throws BoardError.
Board ParseBoard(const std::string &JsonText);
Board LoadBoardFile(const std::string &Path);
// The board compiled into the tools.
const char *BuiltInBoardJson();
Board BuiltInBoard();

}  // namespace qor::emu

#endif  // QOR_EMULATOR_BOARD_H_
