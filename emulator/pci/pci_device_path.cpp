#include "emulator/pci/pci_device_path.h"

#include "emulator/device_path_util.h"
#include "emulator/pci/pci_bus.h"
#include "platform/device_path.h"

namespace qor::emu {

std::vector<uint8_t> RootDevicePath(const PciHostBridge &Bridge) {
  ACPI_HID_DEVICE_PATH Node{};
  Node.Header.Type = ACPI_DEVICE_PATH;
  Node.Header.SubType = ACPI_DP;
  Node.Header.Length[0] = sizeof(Node);
  Node.HID = EISA_PNP_ID(Bridge.PcieRoot ? EISA_PNP_PCIE_ROOT : EISA_PNP_PCI_ROOT);
  Node.UID = Bridge.Uid;
  return AppendDevicePathNode(EndOnlyDevicePath(), &Node, sizeof(Node));
}

std::vector<uint8_t> AppendPciNode(const std::vector<uint8_t> &Path, uint8_t Device, uint8_t Function) {
  PCI_DEVICE_PATH Node{};
  Node.Header.Type = HARDWARE_DEVICE_PATH;
  Node.Header.SubType = HW_PCI_DP;
  Node.Header.Length[0] = sizeof(Node);
  Node.Function = Function;
  Node.Device = Device;
  return AppendDevicePathNode(Path, &Node, sizeof(Node));
}

}  // namespace qor::emu
