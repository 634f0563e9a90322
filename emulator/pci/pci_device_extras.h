// What a board may add to a PCI function beyond its configuration space: a
// VPD capability, an NVMe drive behind the controller, the buses a VMD hides,
// and the VROC device info of a drive behind a VMD (docs/board-pci-devices.md).
#ifndef QOR_EMULATOR_PCI_PCI_DEVICE_EXTRAS_H_
#define QOR_EMULATOR_PCI_PCI_DEVICE_EXTRAS_H_

#include <cstdint>
#include <memory>
#include <optional>

#include "emulator/nvme/nvme_drive.h"
#include "emulator/pci/vpd_capability.h"

namespace qor::emu {

class JsonField;
struct PciFunctionDef;
struct VmdDomainDef;

// The VROC device info of an NVMe drive behind a VMD.
struct VrocDriveDef {
  bool Present = true;              // false: no instance for this drive
  bool RaidMember = false;
  std::optional<uint32_t> Slot;     // none: the slot of the port above the drive
  uint8_t Socket = 0;
};

struct PciDeviceExtras {
  std::optional<VpdDef> Vpd;
  std::optional<NvmeDriveDef> Nvme;
  std::optional<VrocDriveDef> Vroc;
  std::shared_ptr<const VmdDomainDef> Vmd;  // this function is a VMD with these hidden buses
};

// Parses the members "vpd", "nvme", "vroc" and "vmd" of a function entry
// whose configuration space is built (F->Config, F->Bars); a VPD capability
// is added to that space.
void ParseDeviceExtras(const JsonField &Entry, PciFunctionDef *F);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_PCI_DEVICE_EXTRAS_H_
