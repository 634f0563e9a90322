// Processor, port and physical-memory access. Real instructions in the
// firmware image; on the host they go to the emulator's CPU access hooks.
#ifndef QOR_PLATFORM_CPU_ACCESS_H_
#define QOR_PLATFORM_CPU_ACCESS_H_

#include "platform/uefi_base.h"

#define QOR_MSR_IA32_BIOS_SIGN_ID 0x8B
// Bits 15:8: maximum non-turbo ratio; the time-stamp counter ticks at that
// ratio times 100 MHz.
#define QOR_MSR_PLATFORM_INFO 0xCE

// Forgets located hooks; called by the library constructors.
VOID QorCpuAccessInit(VOID);

UINT64 QorReadMsr(UINT32 Index);
UINT8 QorIoRead8(UINT16 Port);
VOID QorIoWrite8(UINT16 Port, UINT8 Value);
UINT8 QorMmioRead8(UINTN Address);
UINT16 QorMmioRead16(UINTN Address);
UINT32 QorMmioRead32(UINTN Address);
// The time-stamp counter.
UINT64 QorReadTsc(VOID);
// Silicon register access in PCI Express layout:
// bus << 20 | device << 15 | function << 12 | register.
UINT8 QorPciExpressRead8(UINTN Address);
UINT16 QorPciExpressRead16(UINTN Address);
UINT32 QorPciExpressRead32(UINTN Address);

#define QOR_PCI_EXPRESS_ADDRESS(Bus, Device, Function, Register) \
  ((((UINTN)(Bus)) << 20) | (((UINTN)(Device)) << 15) | (((UINTN)(Function)) << 12) | ((UINTN)(Register)))

// Host build: the table the emulator installs for these accesses.
typedef struct {
  UINT64(EFIAPI *ReadMsr)(UINT32 Index);
  UINT8(EFIAPI *IoRead8)(UINT16 Port);
  VOID(EFIAPI *IoWrite8)(UINT16 Port, UINT8 Value);
  UINT64(EFIAPI *MmioRead)(UINT64 Address, UINT32 Width);
  UINT32(EFIAPI *PciExpressRead)(UINT64 Address, UINT32 Width);
  UINT64(EFIAPI *ReadTsc)(VOID);
} QOR_HOST_CPU_ACCESS_PROTOCOL;

#endif  // QOR_PLATFORM_CPU_ACCESS_H_
