#include "emulator/pci/pci_root_bridge_io.h"

#include <cstring>

#include "emulator/firmware.h"

namespace qor::emu {

namespace {

PciRootBridgeIo *Bridge(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This) { return PciRootBridgeIo::From(This); }

void CountCall(const char *Member) {
  if (Firmware::Current() != nullptr) Firmware::Current()->Count(Member);
}

EFI_STATUS EFIAPI PciRead(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH Width,
                          UINT64 Address, UINTN Count, VOID *Buffer) {
  CountCall("PciRootBridgeIo.Pci.Read");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return Bridge(This)->PciAccess(false, Width, Address, Count, Buffer);
}

EFI_STATUS EFIAPI PciWrite(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH Width,
                           UINT64 Address, UINTN Count, VOID *Buffer) {
  CountCall("PciRootBridgeIo.Pci.Write");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return Bridge(This)->PciAccess(true, Width, Address, Count, Buffer);
}

EFI_STATUS EFIAPI Configuration(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This, VOID **Resources) {
  CountCall("PciRootBridgeIo.Configuration");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return Bridge(This)->Configuration(Resources);
}

// Memory and I/O space, DMA and attributes are not modelled.
EFI_STATUS EFIAPI PollUnsupported(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH, UINT64,
                                  UINT64, UINT64, UINT64, UINT64 *) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI SpaceUnsupported(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH, UINT64,
                                   UINTN, VOID *) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI CopyMemUnsupported(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH, UINT64,
                                     UINT64, UINTN) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI MapUnsupported(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_OPERATION, VOID *,
                                 UINTN *, EFI_PHYSICAL_ADDRESS *, VOID **) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI UnmapUnsupported(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *, VOID *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI AllocateUnsupported(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *, EFI_ALLOCATE_TYPE, EFI_MEMORY_TYPE, UINTN,
                                      VOID **, UINT64) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI FreeUnsupported(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *, UINTN, VOID *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI Flush(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *) { return EFI_SUCCESS; }
EFI_STATUS EFIAPI GetAttributes(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *, UINT64 *Supports, UINT64 *Attributes) {
  if (Supports == nullptr && Attributes == nullptr) return EFI_INVALID_PARAMETER;
  if (Supports != nullptr) *Supports = 0;
  if (Attributes != nullptr) *Attributes = 0;
  return EFI_SUCCESS;
}
EFI_STATUS EFIAPI SetAttributesUnsupported(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *, UINT64, UINT64 *, UINT64 *) {
  return EFI_UNSUPPORTED;
}

}  // namespace

PciRootBridgeIo::PciRootBridgeIo(const PciRootBridgeDef &Def, PciBus &Bus) : Def_(Def), Bus_(Bus) {
  Interface_.Owner = this;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL &P = Interface_.Protocol;
  P.ParentHandle = nullptr;
  P.PollMem = PollUnsupported;
  P.PollIo = PollUnsupported;
  P.Mem = {SpaceUnsupported, SpaceUnsupported};
  P.Io = {SpaceUnsupported, SpaceUnsupported};
  P.Pci = {PciRead, PciWrite};
  P.CopyMem = CopyMemUnsupported;
  P.Map = MapUnsupported;
  P.Unmap = UnmapUnsupported;
  P.AllocateBuffer = AllocateUnsupported;
  P.FreeBuffer = FreeUnsupported;
  P.Flush = Flush;
  P.GetAttributes = GetAttributes;
  P.SetAttributes = SetAttributesUnsupported;
  P.Configuration = qor::emu::Configuration;
  P.SegmentNumber = Def.Segment;

  for (const auto &[First, Last] : Def_.BusRanges) {
    EFI_ACPI_ADDRESS_SPACE_DESCRIPTOR Bus{};
    Bus.Desc = ACPI_ADDRESS_SPACE_DESCRIPTOR;
    Bus.Len = ACPI_ADDRESS_SPACE_DESCRIPTOR_LENGTH;
    Bus.ResType = ACPI_ADDRESS_SPACE_TYPE_BUS;
    Bus.AddrRangeMin = First;
    Bus.AddrRangeMax = Last;
    Bus.AddrLen = uint64_t{Last} - First + 1;
    const uint8_t *Bytes = reinterpret_cast<const uint8_t *>(&Bus);
    Descriptors_.insert(Descriptors_.end(), Bytes, Bytes + sizeof(Bus));
  }
  Descriptors_.push_back(ACPI_END_TAG_DESCRIPTOR);
  Descriptors_.push_back(0);
}

PciRootBridgeIo *PciRootBridgeIo::From(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This) {
  return reinterpret_cast<Interface *>(This)->Owner;
}

bool PciRootBridgeIo::Decodes(uint32_t Bus) const {
  if (Def_.ConfigurationUnsupported) return true;
  for (const auto &[First, Last] : Def_.BusRanges) {
    if (Bus >= First && Bus <= Last) return true;
  }
  return false;
}

EFI_STATUS PciRootBridgeIo::PciAccess(bool Write, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH Width, uint64_t Address,
                                      UINTN Count, void *Buffer) {
  if (Buffer == nullptr || Width < EfiPciWidthUint8 || Width >= EfiPciWidthMaximum) return EFI_INVALID_PARAMETER;
  uint32_t Size = 1U << (Width & 3);
  bool StepAddress = Width < EfiPciWidthFifoUint8 || Width >= EfiPciWidthFillUint8;
  bool StepBuffer = Width < EfiPciWidthFillUint8;
  uint32_t Register = static_cast<uint32_t>(Address & 0xFF);
  uint32_t Extended = static_cast<uint32_t>(Address >> 32);
  if (Register == 0 && Extended != 0) Register = Extended;
  PciLocation Location{Def_.Segment, static_cast<uint8_t>(Address >> 24), static_cast<uint8_t>(Address >> 16),
                       static_cast<uint8_t>(Address >> 8)};
  if (((Address >> 16) & 0xFF) > 31 || ((Address >> 8) & 0xFF) > 7 || !Decodes(Location.Bus)) {
    return EFI_INVALID_PARAMETER;
  }
  if (uint64_t{Register} + uint64_t{Size} * (StepAddress ? Count : 1) > kPciExpressConfigSize) {
    return EFI_INVALID_PARAMETER;
  }
  uint8_t *Bytes = static_cast<uint8_t *>(Buffer);
  for (UINTN I = 0; I < Count; I++) {
    uint32_t At = Register + (StepAddress ? static_cast<uint32_t>(I) * Size : 0);
    uint8_t *Slot = Bytes + (StepBuffer ? I * Size : 0);
    // One call counts as one access of the function, whatever its count.
    uint64_t Value = 0;
    if (Write) {
      std::memcpy(&Value, Slot, Size);
      Bus_.Write(Location, At, Size, Value, I == 0);
    } else {
      EFI_STATUS Status = Bus_.Read(Location, At, Size, &Value, I == 0);
      if (EFI_ERROR(Status)) return Status;
      std::memcpy(Slot, &Value, Size);
    }
  }
  return EFI_SUCCESS;
}

EFI_STATUS PciRootBridgeIo::Configuration(void **Resources) {
  if (Resources == nullptr) return EFI_INVALID_PARAMETER;
  if (Def_.ConfigurationUnsupported) return EFI_UNSUPPORTED;
  *Resources = Descriptors_.data();
  return EFI_SUCCESS;
}

}  // namespace qor::emu
