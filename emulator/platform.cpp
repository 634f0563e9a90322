#include "emulator/platform.h"

#include <algorithm>

#include "emulator/pcd_database.h"
#include "emulator/pci/pci_bus_from_board.h"
#include "platform/guids.h"

namespace qor::emu {

namespace {
Platform *gPlatform = nullptr;
}

const EFI_GUID *TriggerGuid(const std::string &Name) {
  if (Name == "fill") return &gFillTriggerProtocolGuid;
  if (Name == "late") return &gLateTriggerProtocolGuid;
  if (Name == "readyToLock") return &gEfiDxeSmmReadyToLockProtocolGuid;
  return nullptr;
}

Platform *Platform::Current() { return gPlatform; }

Platform::Platform(Firmware &Fw, const Board &Board)
    : Fw_(Fw), Board_(Board), Io_(Board_.IoPorts, Board_.Iio.IndexedIo) {
  Pcds_ = std::make_unique<PcdDatabase>(Board_);
  BuildPciBus(Board_, &Pci_);
  Enumerated_ = Pci_.Enumerate();
  for (const auto &Name : Board_.Faults.FailVariableGet) Fw_.Variables().FailGet(ToU16(Name));
  for (const auto &Name : Board_.Faults.FailVariableSet) Fw_.Variables().FailSet(ToU16(Name));
  for (uint64_t Ordinal : Board_.Faults.FailAllocations) Fw_.GetPool().FailAllocation(Ordinal);
  gPlatform = this;
}

Platform::~Platform() {
  if (gPlatform == this) gPlatform = nullptr;
}

bool Platform::IsMissing(const std::string &Protocol) const {
  const auto &Missing = Board_.Faults.MissingProtocols;
  return std::find(Missing.begin(), Missing.end(), Protocol) != Missing.end();
}

void Platform::InstallOnNewHandle(const EFI_GUID &Guid, void *Interface) {
  EFI_HANDLE Handle = nullptr;
  Fw_.InstallProtocol(&Handle, Guid, Interface);
}

void Platform::Install() {
  MemoryMapBlock_ = BuildMemoryMapBlock(Board_);
  HobList_ = BuildHobList(Board_, CpuMemoryHobs(Board_, MemoryMapBlock_.empty() ? nullptr : MemoryMapBlock_.data()));
  Fw_.AddConfigurationTable(gEfiHobListGuid, HobList_.data());
  for (const Variable &Value : Board_.Variables) Fw_.Variables().Put(Value);

  InitCpuAccessProtocol(&CpuAccess_);
  InstallOnNewHandle(gQorHostCpuAccessProtocolGuid, &CpuAccess_);
  if (!IsMissing("debugPrint")) {
    InitDebugPrintService(&DebugPrint_, Board_.DebugPrintRevision);
    InstallOnNewHandle(gQorDebugPrintServiceGuid, &DebugPrint_);
  }
  if (!IsMissing("pcd")) InstallOnNewHandle(gPcdProtocolGuid, Pcds_->Protocol());
  if (!IsMissing("piPcd")) InstallOnNewHandle(gEfiPcdProtocolGuid, Pcds_->PiProtocol());
  if (!IsMissing("json")) {
    InitJsonProtocol(&Json_);
    InstallOnNewHandle(gQorJsonProtocolGuid, &Json_);
  }
  if (!IsMissing("quickTrans")) {
    InitQuickTransProtocol(&QuickTrans_);
    InstallOnNewHandle(gQorQuickTransProtocolGuid, &QuickTrans_);
  }
  if (!IsMissing("spi")) {
    InitSpiProtocol(&Spi_);
    InstallOnNewHandle(gQorSpiProtocolGuid, &Spi_);
  }
  if (!IsMissing("systemInformation")) {
    SystemInformationBlock_ = BuildSystemInformationBlock(Board_, Enumerated_);
    SystemInformation_.DataBlock = Board_.SystemInformation.HasDataBlock ? SystemInformationBlock_.data() : nullptr;
    InstallOnNewHandle(gQorSystemInformationProtocolGuid, &SystemInformation_);
  }
  if (!IsMissing("systemTopology")) {
    SystemTopologyBlock_ = BuildSystemTopologyBlock(Board_);
    InstallOnNewHandle(gQorSystemTopologyDataGuid, SystemTopologyBlock_.data());
  }
  // memory map
  {
    std::vector<EFI_MEMORY_DESCRIPTOR> Map;
    for (const Board::MemoryDescriptor &Entry : Board_.MemoryMap.Descriptors) {
      EFI_MEMORY_DESCRIPTOR Descriptor{};
      Descriptor.Type = Entry.Type;
      Descriptor.PhysicalStart = Entry.Start;
      Descriptor.NumberOfPages = Entry.Pages;
      Descriptor.Attribute = Entry.Attribute;
      Map.push_back(Descriptor);
    }
    Fw_.SetMemoryMap(std::move(Map), Board_.MemoryMap.DescriptorSize, Board_.MemoryMap.DescriptorVersion);
  }

  // processors, memory, SMBIOS, IIO
  if (!IsMissing("iioSys")) {
    IioData_ = BuildIioData(Board_);
    IioSys_.IioData = Board_.Iio.HasIioData ? IioData_.data() : nullptr;
    InstallOnNewHandle(gQorIioSysProtocolGuid, &IioSys_);
  }
  if (Board_.Smbios.Present && !IsMissing("smbios")) {
    Smbios_ = std::make_unique<SmbiosStore>(Board_.Smbios);
    InstallOnNewHandle(gEfiSmbiosProtocolGuid, Smbios_->Protocol());
  }
  if (!IsMissing("cpuPower")) {
    BuildCpuPowerData(Board_, &CpuPowerData_);
    CpuPower_.PowerData = Board_.CpuPower.HasData ? CpuPowerData_.Block.data() : nullptr;
    InstallOnNewHandle(gQorCpuPowerProtocolGuid, &CpuPower_);
  }
  if (!IsMissing("pciRootBridgeIo")) {
    for (const PciRootBridgeDef &Def : RootBridgesOf(Board_.Pci)) {
      RootBridges_.push_back(std::make_unique<PciRootBridgeIo>(Def, Pci_));
      InstallOnNewHandle(gEfiPciRootBridgeIoProtocolGuid, RootBridges_.back()->Protocol());
    }
  }
  InstallPciDevices();
  if (Board_.CpuCsr && !IsMissing("cpuCsr")) {
    CpuCsr_ = std::make_unique<CpuCsrAccess>(*Board_.CpuCsr);
    InstallOnNewHandle(gQorCpuCsrAccessProtocolGuid, CpuCsr_->Protocol());
  }

  // TPM, SATA, BMC transport
  if (!IsMissing("custom")) {
    CustomProtocolBlock_ = BuildCustomProtocolBlock(Board_);
    InstallOnNewHandle(gQorCustomProtocolGuid, CustomProtocolBlock_.data());
  }
  if (!IsMissing("ipmi")) {
    InitIpmiProtocol(&Ipmi_);
    InstallOnNewHandle(gQorIpmiProtocolGuid, &Ipmi_);
  }
}

// One handle per function in enumeration order, as the bus driver creates
// them, each with its PCI I/O instance and device path.
void Platform::InstallPciDevices() {
  if (IsMissing("pciIo")) return;
  for (const EnumeratedFunction &Entry : Enumerated_) {
    PciIo_.push_back(std::make_unique<PciIoDevice>(Pci_, Entry));
    EFI_HANDLE Handle = nullptr;
    Fw_.InstallProtocol(&Handle, gEfiDevicePathProtocolGuid, PciIo_.back()->DevicePath());
    Fw_.InstallProtocol(&Handle, gEfiPciIoProtocolGuid, PciIo_.back()->Protocol());
  }
}

void Platform::InstallTrigger(const std::string &Name) {
  const EFI_GUID *Guid = TriggerGuid(Name);
  if (Guid == nullptr) return;
  Triggers_.push_back(Name);
  // Each installation is a new handle, as a second producer would make it.
  InstallOnNewHandle(*Guid, &TriggerInterface_);
}

EFI_STATUS Platform::RecordUpload(const std::string &Name, const uint8_t *Data, uint32_t Size) {
  Upload Entry;
  Entry.Name = Name;
  size_t Earlier = 0;
  for (const Upload &Previous : Uploads_) Earlier += Previous.Name == Name ? 1 : 0;
  Entry.StoredName = Name;
  if (Earlier > 0) {
    // A repeated send is kept beside the first: name.2.json, name.3.json, ...
    size_t Dot = Name.rfind('.');
    std::string Stem = Dot == std::string::npos ? Name : Name.substr(0, Dot);
    std::string Extension = Dot == std::string::npos ? "" : Name.substr(Dot);
    Entry.StoredName = Stem + "." + std::to_string(Earlier + 1) + Extension;
  }
  if (Size != 0) Entry.Bytes.assign(Data, Data + Size);
  Entry.Status = Board_.Faults.SendFileStatus.value_or(EFI_SUCCESS);
  Uploads_.push_back(Entry);
  return Entry.Status;
}

std::string Platform::DebugLog() const {
  std::string Log;
  for (const DebugLine &Line : DebugLines_) Log += Line.Text;
  return Log;
}

}  // namespace qor::emu
