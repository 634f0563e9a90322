// EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL instances of the emulated host bridges.
// Each decodes the buses of its ranges (or every bus of its segment when its
// Configuration() is unsupported) and reaches configuration space through
// the machine's PciBus.
#ifndef QOR_EMULATOR_PCI_PCI_ROOT_BRIDGE_IO_H_
#define QOR_EMULATOR_PCI_PCI_ROOT_BRIDGE_IO_H_

#include <cstdint>
#include <vector>

#include "emulator/pci/board_pci.h"
#include "emulator/pci/pci_bus.h"
#include "platform/pci_root_bridge_io.h"

namespace qor::emu {

class PciRootBridgeIo {
 public:
  PciRootBridgeIo(const PciRootBridgeDef &Def, PciBus &Bus);
  PciRootBridgeIo(const PciRootBridgeIo &) = delete;
  PciRootBridgeIo &operator=(const PciRootBridgeIo &) = delete;

  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *Protocol() { return &Interface_.Protocol; }
  bool Decodes(uint32_t Bus) const;

  // Member implementations (reached from the protocol through its This).
  EFI_STATUS PciAccess(bool Write, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH Width, uint64_t Address, UINTN Count,
                       void *Buffer);
  EFI_STATUS Configuration(void **Resources);
  static PciRootBridgeIo *From(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This);

 private:
  // The interface handed out, followed by the way back to its instance.
  struct Interface {
    EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL Protocol;
    PciRootBridgeIo *Owner;
  };
  Interface Interface_{};
  PciRootBridgeDef Def_;
  PciBus &Bus_;
  std::vector<uint8_t> Descriptors_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_PCI_ROOT_BRIDGE_IO_H_
