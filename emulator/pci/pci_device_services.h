// The firmware that sits on PCI functions besides their PCI I/O: the VPD
// capabilities' handshake, the NVMe controllers' pass-thru and vendor
// protocols, the VMDs' configuration apertures with the VROC device info of
// the drives behind them. Built from the board's function extras once the
// PCI I/O handles exist (docs/board-pci-devices.md).
#ifndef QOR_EMULATOR_PCI_PCI_DEVICE_SERVICES_H_
#define QOR_EMULATOR_PCI_PCI_DEVICE_SERVICES_H_

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "emulator/nvme/nvme_controller.h"
#include "emulator/pci/vpd_capability.h"
#include "emulator/vmd/vmd_domain.h"
#include "emulator/vmd/vroc_device_info.h"

namespace qor::emu {

class Platform;

class PciDeviceServices {
 public:
  // Installs what the board's functions carry; protocols the board leaves
  // out ("nvmePassThru", "vendorNvme", "vroc") are not installed.
  explicit PciDeviceServices(Platform &Plat);
  PciDeviceServices(const PciDeviceServices &) = delete;
  PciDeviceServices &operator=(const PciDeviceServices &) = delete;

  // A physical memory read inside a VMD's aperture; false elsewhere.
  bool ReadMmio(uint64_t Address, uint32_t Width, uint64_t *Value);

  // For tests and reports: nullptr / empty when the function has none.
  VpdCapability *Vpd(const PciLocation &Location);
  const std::vector<std::unique_ptr<NvmeController>> &NvmeControllers() const { return Nvme_; }
  const std::vector<std::unique_ptr<VmdDomain>> &VmdDomains() const { return Vmd_; }
  const std::vector<std::unique_ptr<VrocDeviceInfo>> &VrocInstances() const { return Vroc_; }

 private:
  void AddNvme(Platform &Plat, const EnumeratedFunction &Entry, const NvmeDriveDef &Def);
  void AddVmd(Platform &Plat, const EnumeratedFunction &Entry, const PciFunctionDef &Def);

  std::map<PciLocation, std::unique_ptr<VpdCapability>> Vpd_;
  std::vector<std::unique_ptr<NvmeController>> Nvme_;
  std::vector<std::unique_ptr<VmdDomain>> Vmd_;
  std::vector<std::unique_ptr<VrocDeviceInfo>> Vroc_;
  std::vector<std::vector<uint8_t>> DrivePaths_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_PCI_DEVICE_SERVICES_H_
