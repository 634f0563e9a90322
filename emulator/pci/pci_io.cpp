#include "emulator/pci/pci_io.h"

#include <cstring>

#include "emulator/firmware.h"

namespace qor::emu {

namespace {

void CountCall(const char *Member) {
  if (Firmware::Current() != nullptr) Firmware::Current()->Count(Member);
}

EFI_STATUS EFIAPI PciRead(EFI_PCI_IO_PROTOCOL *This, EFI_PCI_IO_PROTOCOL_WIDTH Width, UINT32 Offset, UINTN Count,
                          VOID *Buffer) {
  CountCall("PciIo.Pci.Read");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return PciIoDevice::From(This)->ConfigAccess(false, Width, Offset, Count, Buffer);
}

EFI_STATUS EFIAPI PciWrite(EFI_PCI_IO_PROTOCOL *This, EFI_PCI_IO_PROTOCOL_WIDTH Width, UINT32 Offset, UINTN Count,
                           VOID *Buffer) {
  CountCall("PciIo.Pci.Write");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return PciIoDevice::From(This)->ConfigAccess(true, Width, Offset, Count, Buffer);
}

EFI_STATUS EFIAPI GetLocation(EFI_PCI_IO_PROTOCOL *This, UINTN *Segment, UINTN *Bus, UINTN *Device,
                              UINTN *Function) {
  CountCall("PciIo.GetLocation");
  if (This == nullptr || Segment == nullptr || Bus == nullptr || Device == nullptr || Function == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  const PciLocation &Location = PciIoDevice::From(This)->Function().Location();
  *Segment = Location.Segment;
  *Bus = Location.Bus;
  *Device = Location.Device;
  *Function = Location.Function;
  return EFI_SUCCESS;
}

// Memory and I/O space, DMA and attributes are not modelled.
EFI_STATUS EFIAPI PollUnsupported(EFI_PCI_IO_PROTOCOL *, EFI_PCI_IO_PROTOCOL_WIDTH, UINT8, UINT64, UINT64, UINT64,
                                  UINT64, UINT64 *) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI SpaceUnsupported(EFI_PCI_IO_PROTOCOL *, EFI_PCI_IO_PROTOCOL_WIDTH, UINT8, UINT64, UINTN, VOID *) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI CopyMemUnsupported(EFI_PCI_IO_PROTOCOL *, EFI_PCI_IO_PROTOCOL_WIDTH, UINT8, UINT64, UINT8, UINT64,
                                     UINTN) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI MapUnsupported(EFI_PCI_IO_PROTOCOL *, EFI_PCI_IO_PROTOCOL_OPERATION, VOID *, UINTN *,
                                 EFI_PHYSICAL_ADDRESS *, VOID **) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI UnmapUnsupported(EFI_PCI_IO_PROTOCOL *, VOID *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI AllocateUnsupported(EFI_PCI_IO_PROTOCOL *, EFI_ALLOCATE_TYPE, EFI_MEMORY_TYPE, UINTN, VOID **,
                                      UINT64) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI FreeUnsupported(EFI_PCI_IO_PROTOCOL *, UINTN, VOID *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI FlushUnsupported(EFI_PCI_IO_PROTOCOL *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI AttributesUnsupported(EFI_PCI_IO_PROTOCOL *, EFI_PCI_IO_PROTOCOL_ATTRIBUTE_OPERATION, UINT64,
                                        UINT64 *) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI GetBarAttributesUnsupported(EFI_PCI_IO_PROTOCOL *, UINT8, UINT64 *, VOID **) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI SetBarAttributesUnsupported(EFI_PCI_IO_PROTOCOL *, UINT64, UINT8, UINT64 *, UINT64 *) {
  return EFI_UNSUPPORTED;
}

}  // namespace

PciIoDevice::PciIoDevice(PciBus &, const EnumeratedFunction &Entry)
    : Function_(Entry.Function), Path_(Entry.DevicePath) {
  Interface_.Owner = this;
  EFI_PCI_IO_PROTOCOL &P = Interface_.Protocol;
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
  P.Flush = FlushUnsupported;
  P.GetLocation = qor::emu::GetLocation;
  P.Attributes = AttributesUnsupported;
  P.GetBarAttributes = GetBarAttributesUnsupported;
  P.SetBarAttributes = SetBarAttributesUnsupported;
  P.RomSize = 0;
  P.RomImage = nullptr;
}

PciIoDevice *PciIoDevice::From(EFI_PCI_IO_PROTOCOL *This) { return reinterpret_cast<Interface *>(This)->Owner; }

EFI_STATUS PciIoDevice::ConfigAccess(bool Write, EFI_PCI_IO_PROTOCOL_WIDTH Width, UINT32 Offset, UINTN Count,
                                     void *Buffer) {
  if (static_cast<uint32_t>(Width) >= EfiPciIoWidthMaximum || Buffer == nullptr) return EFI_INVALID_PARAMETER;
  uint32_t Size = 1U << (Width & 3);
  uint64_t Space = Function_->ConfigSize();
  // Offset + Count x Size - 1 must lie inside the space; Count 0 wraps and fails.
  if (Count > Space || uint64_t{Offset} + uint64_t{Count} * Size - 1 >= Space) return EFI_UNSUPPORTED;
  if (Space == kPciConventionalConfigSize && (Offset & (Size - 1)) != 0) return EFI_UNSUPPORTED;
  bool StepAddress = Width < EfiPciIoWidthFifoUint8 || Width >= EfiPciIoWidthFillUint8;
  bool StepBuffer = Width < EfiPciIoWidthFillUint8;
  PciAccessCounts &Counts = Function_->Counts();
  (Write ? Counts.Writes : Counts.Reads)++;
  auto *Bytes = static_cast<uint8_t *>(Buffer);
  uint64_t First = 0;
  std::memcpy(&First, Bytes, Size);
  EFI_STATUS Status = Write ? WriteFault(Offset, Count, Size, StepAddress) : EFI_SUCCESS;
  for (UINTN I = 0; I < Count && !EFI_ERROR(Status); I++) {
    uint32_t At = Offset + (StepAddress ? static_cast<uint32_t>(I) * Size : 0);
    uint8_t *Slot = Bytes + (StepBuffer ? I * Size : 0);
    uint64_t Value = 0;
    if (Write) {
      std::memcpy(&Value, Slot, Size);
      Function_->Write(At, Size, Value);
      continue;
    }
    Status = Function_->Read(At, Size, &Value);
    if (!EFI_ERROR(Status)) std::memcpy(Slot, &Value, Size);
    if (I == 0) First = Value;
  }
  if (Function_->Tracing()) Function_->Trace().push_back({Write, Size, Offset, Count, First, Status});
  return Status;
}

// A board fault on a write: the status when the access covers a failing
// offset (the write then changes nothing), else EFI_SUCCESS.
EFI_STATUS PciIoDevice::WriteFault(uint32_t Offset, UINTN Count, uint32_t Size, bool StepAddress) const {
  uint64_t End = uint64_t{Offset} + (StepAddress ? uint64_t{Count} * Size : Size);
  for (uint32_t At : Function_->Faults().FailWritesAt) {
    if (At >= Offset && At < End) return Function_->Faults().WriteStatus;
  }
  return EFI_SUCCESS;
}

}  // namespace qor::emu
