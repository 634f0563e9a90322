// Device paths of PCI functions as firmware builds them: an ACPI node for the
// host bridge (PciRoot or PcieRoot with the bridge's UID), one PCI node
// (device, function) per level below it, the End node.
#ifndef QOR_EMULATOR_PCI_PCI_DEVICE_PATH_H_
#define QOR_EMULATOR_PCI_PCI_DEVICE_PATH_H_

#include <cstdint>
#include <vector>

namespace qor::emu {

struct PciHostBridge;

std::vector<uint8_t> RootDevicePath(const PciHostBridge &Bridge);
std::vector<uint8_t> AppendPciNode(const std::vector<uint8_t> &Path, uint8_t Device, uint8_t Function);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_PCI_DEVICE_PATH_H_
