#include "emulator/pci/pci_device_services.h"

#include "emulator/platform.h"
#include "platform/guids.h"

namespace qor::emu {

namespace {

uint16_t Word(const std::vector<uint8_t> &Config, size_t Offset) {
  return static_cast<uint16_t>(Config[Offset] | Config[Offset + 1] << 8);
}

bool IsNvmeDrive(const PciFunction &Function) {
  const std::vector<uint8_t> &C = Function.Bytes();
  return Function.HeaderLayout() == 0 && C[0x0B] == 0x01 && C[0x0A] == 0x08;
}

// The handle whose device path is exactly Path (nullptr without one).
EFI_HANDLE HandleWithPath(Firmware &Fw, const std::vector<uint8_t> &Path) {
  auto *Remaining = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(const_cast<uint8_t *>(Path.data()));
  EFI_HANDLE Handle = nullptr;
  if (Fw.LocateDevicePath(&gEfiDevicePathProtocolGuid, &Remaining, &Handle) != EFI_SUCCESS) return nullptr;
  return Remaining->Type == END_DEVICE_PATH_TYPE ? Handle : nullptr;
}

}  // namespace

PciDeviceServices::PciDeviceServices(Platform &Plat) {
  std::map<PciLocation, const PciFunctionDef *> Defs;
  for (const PciFunctionDef &F : Plat.GetBoard().Pci.Functions) Defs[F.Location()] = &F;
  for (const EnumeratedFunction &Entry : Plat.PciFunctions()) {
    PciFunction &Function = *Entry.Function;
    auto It = Defs.find(Function.Location());
    if (It == Defs.end()) continue;
    const PciDeviceExtras &Extras = It->second->Extras;
    if (Extras.Vpd) {
      auto Vpd = std::make_unique<VpdCapability>(*Extras.Vpd, Extras.Vpd->CapabilityOffset, Plat.Tsc());
      Function.SetRegisterHandler(Vpd.get());
      Vpd_[Function.Location()] = std::move(Vpd);
    }
    if (Extras.Nvme) AddNvme(Plat, Entry, *Extras.Nvme);
    if (Extras.Vmd) AddVmd(Plat, Entry, *It->second);
  }
}

void PciDeviceServices::AddNvme(Platform &Plat, const EnumeratedFunction &Entry, const NvmeDriveDef &Def) {
  EFI_HANDLE Handle = HandleWithPath(Plat.Fw(), Entry.DevicePath);
  if (Handle == nullptr) return;
  const std::vector<uint8_t> &Config = Entry.Function->Bytes();
  Nvme_.push_back(std::make_unique<NvmeController>(Def, Word(Config, 0x00), Word(Config, 0x2C), Plat.Tsc(),
                                                   Entry.Function->Location().Text()));
  NvmeController &Controller = *Nvme_.back();
  if (Def.PassThru && !Plat.IsMissing("nvmePassThru")) {
    Plat.Fw().InstallProtocol(&Handle, gEfiNvmExpressPassThruProtocolGuid, Controller.PassThru());
  }
  if (Def.VendorProtocol && !Plat.IsMissing("vendorNvme")) {
    Plat.Fw().InstallProtocol(&Handle, gQorVendorNvmeControllerProtocolGuid, Controller.VendorProtocol());
  }
}

// The VMD's domain; each NVMe drive in it gets a handle with its device path
// (the VMD's path continued below it) carrying its VROC device info.
void PciDeviceServices::AddVmd(Platform &Plat, const EnumeratedFunction &Entry, const PciFunctionDef &Def) {
  Vmd_.push_back(std::make_unique<VmdDomain>(*Entry.Function, Def.Bars.Size[0], *Def.Extras.Vmd, Entry.DevicePath));
  const VmdDomain &Domain = *Vmd_.back();
  if (Plat.IsMissing("vroc")) return;
  for (size_t I = 0; I < Domain.Functions().size(); I++) {
    const HiddenFunction &Drive = Domain.Functions()[I];
    if (!IsNvmeDrive(*Drive.Function) || Drive.Def == nullptr) continue;
    if (Drive.Def->Extras.Vroc && !Drive.Def->Extras.Vroc->Present) continue;
    DrivePaths_.push_back(Drive.DevicePath);
    EFI_HANDLE Handle = nullptr;
    Plat.Fw().InstallProtocol(&Handle, gEfiDevicePathProtocolGuid, DrivePaths_.back().data());
    Vroc_.push_back(std::make_unique<VrocDeviceInfo>(Domain, I, Handle));
    Plat.Fw().InstallProtocol(&Handle, gQorVrocDeviceInfoProtocolGuid, Vroc_.back()->Interface());
  }
}

bool PciDeviceServices::ReadMmio(uint64_t Address, uint32_t Width, uint64_t *Value) {
  for (auto &Domain : Vmd_) {
    if (Domain->Read(Address, Width, Value)) return true;
  }
  return false;
}

VpdCapability *PciDeviceServices::Vpd(const PciLocation &Location) {
  auto It = Vpd_.find(Location);
  return It == Vpd_.end() ? nullptr : It->second.get();
}

}  // namespace qor::emu
