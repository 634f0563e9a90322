// Capability finders of the PCI tree: the standard list from 0x34 and the
// extended list from 0x100. Both walks are bounded by the number of
// capabilities their space can hold, so a looping list ends.
#include "pci_resources/pci_tree.h"
#include "pcie/pcie_device_info.h"

namespace {
constexpr UINT32 kMaxCapabilities = (0x100 - 0x38) / 4;
constexpr UINT32 kMaxExtCapabilities = (0x1000 - 0x100) / 4;
constexpr UINT16 kExtendedStart = 0x100;
}  // namespace

UINT8 QorPciFindCapability(EFI_PCI_IO_PROTOCOL *PciIo, UINT8 CapId) {
  UINT8 Offset = 0;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, PCI_CAPABILITY_POINTER_OFFSET, 1, &Offset);
  for (UINT32 I = 0; I < kMaxCapabilities && Offset > PCI_CAPABILITY_POINTER_OFFSET; I++) {
    UINT8 Header[2] = {0, 0};
    PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, Offset, 2, Header);
    if (Header[0] == CapId) return Offset;
    Offset = Header[1];
  }
  return 0;
}

UINT16 QorPciFindExtCapability(EFI_PCI_IO_PROTOCOL *PciIo, UINT16 CapId) {
  if (QorPciFindCapability(PciIo, PCI_CAPABILITY_ID_PCI_EXPRESS) == 0) return 0;
  // A function whose extended space only mirrors its first 256 bytes shows
  // its own ids at 0x100; such a space holds no capabilities.
  UINT32 Ids = 0;
  UINT32 Header = 0;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint32, 0, 1, &Ids);
  if (EFI_ERROR(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint32, kExtendedStart, 1, &Header)) || Header == Ids) return 0;
  UINT16 Offset = kExtendedStart;
  for (UINT32 I = 0; I < kMaxExtCapabilities; I++) {
    Header = 0;
    if (EFI_ERROR(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint32, Offset, 1, &Header))) return 0;
    if ((Header & 0xFFFF) == CapId) return Offset;
    UINT16 Next = (UINT16)(Header >> 20);
    if (Next < kExtendedStart) return 0;
    Offset = Next;
  }
  return 0;
}
