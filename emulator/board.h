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

#include "emulator/board_iio_training.h"
#include "emulator/board_cpu_memory.h"
#include "emulator/byte_patch.h"
#include "emulator/cpu_csr_access.h"
#include "emulator/pci/board_pci.h"
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
  uint32_t MemoryMapGrowth = 0;                 // descriptors GetMemoryMap gains after each "too small"
};

// TPM, SATA, BMC transport.
// One SATA drive entry of the system information block.
struct SataDriveDef {
  uint8_t Present = 1;             // 0: an empty entry the driver skips
  uint8_t PortIndex = 0;
  std::string Model;
  std::string Firmware;
  std::string Capacity;            // capacity as text, e.g. "480GB"
  uint8_t SpeedIndex = 3;          // 0 unknown, 1 1.5Gbps, 2 3.0Gbps, 3 6.0Gbps
  uint16_t MediaType = 1;          // 1 SSD, anything else HDD
  uint16_t FormFactor = 0;
  std::string Serial;
};

// One port record of the qor custom protocol's board description.
struct SataPortDef {
  uint8_t PortIndex = 0xFF;
  std::string Slot;
};

// The qor custom protocol's data block.
struct CustomProtocolDef {
  std::vector<SataPortDef> SataPorts;  // at most QOR_CUSTOM_SATA_PORT_COUNT
  std::vector<std::string> M2Names;    // slot 251, slot 252 first and second choice
};

// The qor ipmi protocol: what the BMC answers to every request.
struct IpmiDef {
  std::vector<uint8_t> Response{0x00};  // completion code first
  EFI_STATUS Status = EFI_SUCCESS;      // what the submission returns
};

constexpr size_t kCustomProtocolBlockSize = 0x8000;

// One entry of the IIO stack table.
struct IioStackDef {
  uint8_t Valid = 1;
  uint16_t Segment = 0;
  PciLocation RootPort;
  uint8_t BusBase = 0;
  uint8_t BusLimit = 0;
};

// The data block behind the system information protocol.
struct SystemInformationDef {
  bool HasDataBlock = true;        // false: the protocol's member is null
  uint32_t CpuBitMap = 0;
  std::string Stepping;            // stored as UCS-2
  std::vector<SataDriveDef> SataDrives;
  // The IIO stack table as given; none: derived from the PCI root ports.
  std::optional<std::vector<IioStackDef>> Stacks;
  // The IIO topology table as given; none: derived from the PCI root ports.
  std::optional<std::vector<QOR_IIO_TOPOLOGY_ENTRY>> IioTopology;
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
  // Where the board's relative paths (a PCI import) resolve; empty: the
  // current directory.
  std::string Directory;

  // Platform PCD database (EDK2 PCD protocol) by token number, and the
  // dynamic-ex values of EFI_PCD_PROTOCOL by token space and token.
  std::map<uint64_t, PcdValue> Pcds;
  std::map<PcdExKey, uint64_t> PcdsEx;

  std::map<uint32_t, uint64_t> Msrs;
  uint64_t TscTicksPerRead = 100;             // how far each time-stamp counter read moves it
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
  // Served as written: order, gaps and overlaps are the board's; the pool's
  // own allocations do not appear in it, so documents stay reproducible.
  struct MemoryDescriptor {
    uint32_t Type = 0;        // EFI_MEMORY_TYPE, or any OEM/OS value
    uint64_t Start = 0;       // PhysicalStart, 4 KiB aligned
    uint64_t Pages = 0;       // NumberOfPages, at least 1
    uint64_t Attribute = 0;
  };
  struct MemoryMapDef {
    uint64_t DescriptorSize = 48;   // what GetMemoryMap reports; >= 40, a multiple of 8
    uint32_t DescriptorVersion = 1;
    std::vector<MemoryDescriptor> Descriptors;
  };
  MemoryMapDef MemoryMap;

  // ---- processors, memory, SMBIOS, IIO
  IioDef Iio;  // iio sys protocol data, IIO port HOB, indexed I/O
  SmbiosDef Smbios;
  PciDef Pci;
  std::optional<std::vector<uint8_t>> ProcessorSpeedHob;  // maximum core ratio per socket
  std::optional<std::vector<uint8_t>> DimmMapHob;         // 9-byte entries with the end entry
  std::optional<MemoryMapDataDef> MemoryMapData;  // behind the memory map HOB
  CpuPowerDef CpuPower;
  std::optional<CpuCsrDef> CpuCsr;  // none: no CPU CSR access protocol

  // ---- TPM, SATA, BMC transport
  // The "tpm" member is applied while parsing: it sets the probe byte in
  // MmioBytes and the "Setup" variable in Variables.
  CustomProtocolDef CustomProtocol;
  IpmiDef Ipmi;

  // ---- cards changed between boots
  // The board of boot 1, 2, ... ("boots": overlays laid over this board),
  // each holding for PerBootRepeat[i] boots in a row; the last one holds for
  // every later boot. Empty: every boot is this board.
  std::vector<Board> PerBoot;
  std::vector<uint64_t> PerBootRepeat;
};

// Short names of the platform protocols a board may leave out.
extern const std::vector<std::string> kProtocolNames;

// Parses and validates a board; throws BoardError.
// Directory: where relative paths in the board resolve (LoadBoardFile
// passes the file's folder).
Board ParseBoard(const std::string &JsonText, const std::string &Directory = "");
Board LoadBoardFile(const std::string &Path);
// The board compiled into the tools.
const char *BuiltInBoardJson();
Board BuiltInBoard();
// The board of a boot (1-based) of a run of several.
const Board &BoardForBoot(const Board &Board, int Boot);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_BOARD_H_
