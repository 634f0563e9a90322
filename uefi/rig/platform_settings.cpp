// Settings a real platform carries that the emulated one lacks: the setup
// configuration's "Setup" variable (its TPM bytes) and, on request, the
// identity of the JD customer's network card, which no QEMU device has.
#include "platform/base_lib.h"
#include "platform/guids.h"
#include "platform/pci_io.h"
#include "platform/tpm_setup.h"
#include "platform/uefi_lib.h"
#include "uefi/rig/rig.h"
#include "uefi/rig/rig_platform_values.h"
#include "uefi/rig/serial_channel.h"

namespace {

// ---- JD network card: QEMU's modern virtio-net function has the card's
// vendor and device id (1AF4:1041) but its own subsystem ids, which are
// read-only. The firmware's PCI I/O instance of that one function is given
// a configuration read that shows the card's subsystem ids instead; every
// other function and every other register reads as the hardware answers.
constexpr UINT16 kJdVendorId = 0x1AF4;
constexpr UINT16 kJdDeviceId = 0x1041;
constexpr UINT8 kJdSubsystemIds[4] = {0x72, 0x11, 0x01, 0x00};  // 1172:0001, little-endian at 0x2C
constexpr UINT32 kSubsystemOffset = 0x2C;

EFI_PCI_IO_PROTOCOL *gJdNic = nullptr;
EFI_PCI_IO_PROTOCOL_CONFIG gHardwareConfigRead = nullptr;

UINTN WidthBytes(EFI_PCI_IO_PROTOCOL_WIDTH Width) {
  switch (Width) {
    case EfiPciIoWidthUint8: return 1;
    case EfiPciIoWidthUint16: return 2;
    case EfiPciIoWidthUint32: return 4;
    case EfiPciIoWidthUint64: return 8;
    default: return 0;  // FIFO and fill accesses are left as read
  }
}

EFI_STATUS EFIAPI JdNicConfigRead(EFI_PCI_IO_PROTOCOL *This, EFI_PCI_IO_PROTOCOL_WIDTH Width, UINT32 Offset,
                                  UINTN Count, VOID *Buffer) {
  EFI_STATUS Status = gHardwareConfigRead(This, Width, Offset, Count, Buffer);
  if (EFI_ERROR(Status) || This != gJdNic || Buffer == nullptr) return Status;
  UINT64 End = (UINT64)Offset + (UINT64)WidthBytes(Width) * Count;
  for (UINT32 I = 0; I < sizeof(kJdSubsystemIds); I++) {
    UINT64 Register = kSubsystemOffset + I;
    if (Register >= Offset && Register < End) ((UINT8 *)Buffer)[Register - Offset] = kJdSubsystemIds[I];
  }
  return Status;
}

}  // namespace

EFI_STATUS QorRigSetSetupVariable(VOID) {
  UINT8 Setup[QOR_SETUP_VARIABLE_READ_SIZE];
  QorZeroMem(Setup, sizeof(Setup));
  Setup[QOR_SETUP_TPM_SUPPORT] = QOR_RIG_SETUP_TPM_SUPPORT;
  Setup[QOR_SETUP_TPM_ENABLE] = QOR_RIG_SETUP_TPM_ENABLE;
  Setup[QOR_SETUP_TPM20_DEVICE] = QOR_RIG_SETUP_TPM20_DEVICE;
  Setup[QOR_SETUP_PCR_BANK_FIRST + 1] = QOR_RIG_SETUP_PCR_SHA256 << 1;
  return gRT->SetVariable((CHAR16 *)u"Setup", (EFI_GUID *)&gQorSetupVariableGuid,
                          EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS,
                          sizeof(Setup), Setup);
}

EFI_STATUS QorRigPresentJdNic(CONST QOR_RIG_MACHINE *Machine) {
  for (UINTN I = 0; I < Machine->PciCount; I++) {
    CONST QOR_RIG_PCI_FUNCTION *F = &Machine->Pci[I];
    if (F->VendorId != kJdVendorId || F->DeviceId != kJdDeviceId || F->Function != 0) continue;
    EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
    EFI_STATUS Status = gBS->HandleProtocol(F->Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo);
    if (EFI_ERROR(Status)) return Status;
    gJdNic = PciIo;
    gHardwareConfigRead = PciIo->Pci.Read;
    PciIo->Pci.Read = JdNicConfigRead;
    QorRigReport("jdNic", "%02x:%02x.%x", F->Bus, F->Device, F->Function);
    return EFI_SUCCESS;
  }
  QorRigWarn("jd-nic requested but the machine has no 1AF4:1041 function");
  return EFI_NOT_FOUND;
}
