// EFI_PCI_IO_PROTOCOL instances, one per enumerated function, each with the
// function's device path. Pci.Read, Pci.Write and GetLocation work; every
// other member returns EFI_UNSUPPORTED.
//
// Configuration access follows the checks of common firmware: a width
// outside the enumeration or a null buffer is EFI_INVALID_PARAMETER; an
// access that does not fit the function's space (Offset + Count x size,
// also for FIFO and fill widths, so Count 0 is refused too) is
// EFI_UNSUPPORTED, and so is an offset that is not a multiple of the size on
// a conventional function. A PCI Express function takes any offset: its
// register number travels in the extended-register field of the root
// bridge address, whose low bits the root bridge's alignment check sees as
// zero (so a 64-bit BAR at 0x14 is read as one qword). A read that a board fault
// fails returns the fault's status, the buffer filled up to that element; a
// write a fault fails returns its status and writes nothing. Accesses that
// pass these checks are counted and, when the function traces, recorded.
#ifndef QOR_EMULATOR_PCI_PCI_IO_H_
#define QOR_EMULATOR_PCI_PCI_IO_H_

#include <cstdint>
#include <vector>

#include "emulator/pci/pci_bus.h"
#include "platform/pci_io.h"

namespace qor::emu {

class PciIoDevice {
 public:
  PciIoDevice(PciBus &Bus, const EnumeratedFunction &Entry);
  PciIoDevice(const PciIoDevice &) = delete;
  PciIoDevice &operator=(const PciIoDevice &) = delete;

  EFI_PCI_IO_PROTOCOL *Protocol() { return &Interface_.Protocol; }
  EFI_DEVICE_PATH_PROTOCOL *DevicePath() { return reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(Path_.data()); }
  const std::vector<uint8_t> &DevicePathBytes() const { return Path_; }
  PciFunction &Function() { return *Function_; }

  EFI_STATUS ConfigAccess(bool Write, EFI_PCI_IO_PROTOCOL_WIDTH Width, UINT32 Offset, UINTN Count, void *Buffer);
  static PciIoDevice *From(EFI_PCI_IO_PROTOCOL *This);

 private:
  EFI_STATUS WriteFault(uint32_t Offset, UINTN Count, uint32_t Size, bool StepAddress) const;

  struct Interface {
    EFI_PCI_IO_PROTOCOL Protocol;
    PciIoDevice *Owner;
  };
  Interface Interface_{};
  PciFunction *Function_;
  std::vector<uint8_t> Path_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_PCI_IO_H_
