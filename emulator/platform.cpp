#include "emulator/platform.h"

#include <algorithm>
#include <map>

#include "emulator/pcd_database.h"
#include "emulator/pci/pci_device_services.h"
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
    : Fw_(Fw), Board_(Board), Tsc_(TscTicksPerMicrosecond(Board_), Board_.TscTicksPerRead),
      Io_(Board_.IoPorts, Board_.Iio.IndexedIo) {
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
    Fw_.GrowMemoryMapWhenSized(Board_.Faults.MemoryMapGrowth);
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
  PciDevices_ = std::make_unique<PciDeviceServices>(*this);
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
// them, each with its PCI I/O instance and device path; then the
// firmware-management instances of their drivers, function by function; the
// nic db.
void Platform::InstallPciDevices() {
  std::map<PciLocation, const PciFunctionDef *> Defs;
  for (const PciFunctionDef &F : Board_.Pci.Functions) Defs[F.Location()] = &F;
  std::vector<EFI_HANDLE> Handles;
  for (const EnumeratedFunction &Entry : Enumerated_) {
    EFI_HANDLE Handle = nullptr;
    if (!IsMissing("pciIo")) {
      PciIo_.push_back(std::make_unique<PciIoDevice>(Pci_, Entry));
      Fw_.InstallProtocol(&Handle, gEfiDevicePathProtocolGuid, PciIo_.back()->DevicePath());
      Fw_.InstallProtocol(&Handle, gEfiPciIoProtocolGuid, PciIo_.back()->Protocol());
    }
    Handles.push_back(Handle);
  }
  if (!IsMissing("firmwareManagement")) {
    for (size_t I = 0; I < Enumerated_.size(); I++) {
      auto It = Defs.find(Enumerated_[I].Function->Location());
      if (It == Defs.end()) continue;
      const auto &Config = Enumerated_[I].Function->Bytes();
      uint16_t Class = static_cast<uint16_t>(Config[0x0B] << 8 | Config[0x0A]);
      for (size_t K = 0; K < It->second->FirmwareImages.size(); K++) {
        FirmwareManagement_.push_back(std::make_unique<FirmwareManagementInstance>(
            It->second->FirmwareImages[K], Enumerated_[I].DevicePath, Class, K));
        FirmwareManagementInstance &Instance = *FirmwareManagement_.back();
        EFI_HANDLE Handle = Instance.OnFunctionHandle() ? Handles[I] : nullptr;
        if (Handle == nullptr) Fw_.InstallProtocol(&Handle, gEfiDevicePathProtocolGuid, Instance.DevicePath());
        Fw_.InstallProtocol(&Handle, gEfiFirmwareManagementProtocolGuid, Instance.Protocol());
      }
    }
  }
  if (!IsMissing("nicDb")) {
    NicDb_ = std::make_unique<NicDb>(Board_.Pci, Enumerated_);
    InstallOnNewHandle(gQorNicDbProtocolGuid, NicDb_->Protocol());
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
