// The platform drivers of an emulated board: everything the driver finds
// besides the core services (HOBs, PCDs, CPU access, the json, quick trans,
// Spi and debug print protocols, the triggers). Built from a Board for one
// boot; records what the driver sent through them.
#ifndef QOR_EMULATOR_PLATFORM_H_
#define QOR_EMULATOR_PLATFORM_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/cpu_csr_access.h"
#include "emulator/cpu_memory_data.h"
#include "emulator/firmware.h"
#include "emulator/io_ports.h"
#include "emulator/pci/firmware_management.h"
#include "emulator/pci/nic_db.h"
#include "emulator/pci/pci_bus.h"
#include "emulator/pci/pci_io.h"
#include "emulator/pci/pci_root_bridge_io.h"
#include "emulator/smbios_protocol.h"
#include "emulator/time_stamp_counter.h"
#include "platform/cpu_access.h"
#include "platform/vendor_protocols.h"

namespace qor::emu {

struct Upload {
  std::string Name;             // as the driver named it
  std::string StoredName;       // unique name in the output folder
  std::vector<uint8_t> Bytes;
  EFI_STATUS Status;            // what SendFile returned
};

struct DebugLine {
  uint64_t Level;
  std::string Text;
};

// One command the driver submitted through the qor ipmi protocol.
struct IpmiRequest {
  uint8_t NetFunction;
  uint8_t Lun;
  uint8_t Command;
  std::vector<uint8_t> Data;
  EFI_STATUS Status;  // what the submission returned
};

class PcdDatabase;
class PciDeviceServices;

class Platform {
 public:
  Platform(Firmware &Fw, const Board &Board);
  ~Platform();
  Platform(const Platform &) = delete;
  Platform &operator=(const Platform &) = delete;

  static Platform *Current();

  // Installs the HOB list and every platform protocol the board keeps.
  void Install();
  // Installs a trigger protocol ("fill", "readyToLock", "late") on a new
  // handle, as the platform driver that owns it would.
  void InstallTrigger(const std::string &Name);

  const Board &GetBoard() const { return Board_; }
  Firmware &Fw() { return Fw_; }
  bool IsMissing(const std::string &Protocol) const;

  // Records.
  const std::vector<Upload> &Uploads() const { return Uploads_; }
  const std::vector<DebugLine> &DebugLines() const { return DebugLines_; }
  std::string DebugLog() const;
  std::vector<std::string> TriggersInstalled() const { return Triggers_; }
  uint64_t CpuAccessCount() const { return CpuAccesses_; }
  // The time-stamp counter the CPU access hooks serve.
  TimeStampCounter &Tsc() { return Tsc_; }
  IoPortSpace &Io() { return Io_; }
  // The machine's PCI bus.
  PciBus &Pci() { return Pci_; }
  // The functions in the order the bus driver found them (and the PCI I/O
  // handles were created).
  const std::vector<EnumeratedFunction> &PciFunctions() const { return Enumerated_; }
  const std::vector<std::unique_ptr<FirmwareManagementInstance>> &FirmwareManagement() const {
    return FirmwareManagement_;
  }
  // The data block behind the system information protocol (empty when the
  // protocol is left out).
  const std::vector<uint8_t> &SystemInformationBlock() const { return SystemInformationBlock_; }
  // VPD, NVMe, VMD and VROC services of the PCI functions (nullptr before Install).
  PciDeviceServices *PciDevices() { return PciDevices_.get(); }
  // The SMBIOS protocol's store (nullptr when the board has no SMBIOS).
  const SmbiosStore *Smbios() const { return Smbios_.get(); }
  // The CPU CSR access protocol (nullptr when not installed).
  const CpuCsrAccess *CpuCsr() const { return CpuCsr_.get(); }

  // Called by the protocol implementations.
  EFI_STATUS RecordUpload(const std::string &Name, const uint8_t *Data, uint32_t Size);
  void RecordDebug(uint64_t Level, const std::string &Text) { DebugLines_.push_back({Level, Text}); }
  void CountCpuAccess() { CpuAccesses_++; }

 private:
  void InstallOnNewHandle(const EFI_GUID &Guid, void *Interface);
  void InstallPciDevices();

  Firmware &Fw_;
  Board Board_;
  std::vector<uint64_t> HobList_;  // 8-byte aligned storage of the HOB list
  std::unique_ptr<PcdDatabase> Pcds_;
  QOR_DEBUG_PRINT_SERVICE DebugPrint_{};
  QOR_JSON_PROTOCOL Json_{};
  QOR_QUICK_TRANS_PROTOCOL QuickTrans_{};
  QOR_SPI_PROTOCOL Spi_{};
  QOR_HOST_CPU_ACCESS_PROTOCOL CpuAccess_{};
  TimeStampCounter Tsc_;
  uint8_t TriggerInterface_ = 0;
  std::vector<uint8_t> SystemInformationBlock_;
  QOR_SYSTEM_INFORMATION_PROTOCOL SystemInformation_{};
  std::vector<uint8_t> SystemTopologyBlock_;
  // ---- memory map

  // ---- processors, memory, SMBIOS, IIO
  IoPortSpace Io_;
  std::vector<uint8_t> IioData_;
  QOR_IIO_SYS_PROTOCOL IioSys_{};
  std::vector<uint8_t> MemoryMapBlock_;  // the memory map HOB points here
  PciBus Pci_;
  std::vector<std::unique_ptr<PciRootBridgeIo>> RootBridges_;
  std::vector<std::unique_ptr<PciIoDevice>> PciIo_;
  std::vector<EnumeratedFunction> Enumerated_;
  std::vector<std::unique_ptr<FirmwareManagementInstance>> FirmwareManagement_;
  std::unique_ptr<NicDb> NicDb_;
  std::unique_ptr<PciDeviceServices> PciDevices_;
  std::unique_ptr<SmbiosStore> Smbios_;
  std::unique_ptr<CpuCsrAccess> CpuCsr_;
  CpuPowerData CpuPowerData_;
  QOR_CPU_POWER_PROTOCOL CpuPower_{};

  // ---- TPM, SATA, BMC transport
 public:
  const std::vector<IpmiRequest> &IpmiRequests() const { return IpmiRequests_; }
  // Records a request and answers it with the board's response: as many
  // bytes as fit *ResponseSize, EFI_BUFFER_TOO_SMALL when not all do.
  EFI_STATUS SubmitIpmiRequest(uint8_t NetFunction, uint8_t Lun, uint8_t Command, const uint8_t *Data,
                               uint8_t DataSize, uint8_t *Response, uint8_t *ResponseSize);

 private:
  std::vector<uint8_t> CustomProtocolBlock_;
  QOR_IPMI_PROTOCOL Ipmi_{};
  std::vector<IpmiRequest> IpmiRequests_;

  std::vector<Upload> Uploads_;
  std::vector<DebugLine> DebugLines_;
  std::vector<std::string> Triggers_;
  uint64_t CpuAccesses_ = 0;
};

// Builders of the individual services (one file each).
// PlatformHobs: GUID HOBs the platform builds itself, placed after the MRC
// data HOB and before the board's own "guidHobs".
std::vector<uint64_t> BuildHobList(const Board &Board, const std::vector<GuidHob> &PlatformHobs);
void InitDebugPrintService(QOR_DEBUG_PRINT_SERVICE *Service, uint64_t Revision);
void InitJsonProtocol(QOR_JSON_PROTOCOL *Protocol);
void InitQuickTransProtocol(QOR_QUICK_TRANS_PROTOCOL *Protocol);
void InitSpiProtocol(QOR_SPI_PROTOCOL *Protocol);
void InitCpuAccessProtocol(QOR_HOST_CPU_ACCESS_PROTOCOL *Protocol);
// The counter's rate: MSR 0xCE bits 15:8 (maximum non-turbo ratio) x 100.
uint64_t TscTicksPerMicrosecond(const Board &Board);
std::vector<uint8_t> BuildSystemInformationBlock(const Board &Board, const std::vector<EnumeratedFunction> &Pci);
std::vector<uint8_t> BuildSystemTopologyBlock(const Board &Board);
void InitIpmiProtocol(QOR_IPMI_PROTOCOL *Protocol);
std::vector<uint8_t> BuildCustomProtocolBlock(const Board &Board);

// The json protocol's work, usable on its own: EFI_SUCCESS when Text is
// exactly one JSON value; PrettyPrint writes the reformatted text (member
// order and duplicate keys kept) and fails when it does not fit OutputSize.
EFI_STATUS JsonValidateText(const char *Text);
EFI_STATUS JsonPrettyPrintText(const char *Text, size_t OutputSize, char *Output);

// Trigger protocol GUIDs by short name (nullptr for an unknown name).
const EFI_GUID *TriggerGuid(const std::string &Name);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PLATFORM_H_
