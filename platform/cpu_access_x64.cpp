// Firmware build: real instructions and memory-mapped reads.
#include "platform/cpu_access.h"

#ifndef QOR_PCI_EXPRESS_BASE_ADDRESS
// Enhanced configuration window of the target platform (the q35 machine of
// the firmware test rig maps it here).
#define QOR_PCI_EXPRESS_BASE_ADDRESS 0xB0000000ULL
#endif

VOID QorCpuAccessInit(VOID) {}

UINT64 QorReadMsr(UINT32 Index) {
  UINT32 Low;
  UINT32 High;
  __asm__ __volatile__("rdmsr" : "=a"(Low), "=d"(High) : "c"(Index));
  return ((UINT64)High << 32) | Low;
}

UINT8 QorIoRead8(UINT16 Port) {
  UINT8 Value;
  __asm__ __volatile__("inb %w1, %b0" : "=a"(Value) : "Nd"(Port));
  return Value;
}

VOID QorIoWrite8(UINT16 Port, UINT8 Value) { __asm__ __volatile__("outb %b0, %w1" : : "a"(Value), "Nd"(Port)); }

UINT8 QorMmioRead8(UINTN Address) { return *(volatile UINT8 *)Address; }
UINT16 QorMmioRead16(UINTN Address) { return *(volatile UINT16 *)Address; }
UINT32 QorMmioRead32(UINTN Address) { return *(volatile UINT32 *)Address; }

UINT64 QorReadTsc(VOID) {
  UINT32 Low;
  UINT32 High;
  __asm__ __volatile__("rdtsc" : "=a"(Low), "=d"(High));
  return ((UINT64)High << 32) | Low;
}

UINT8 QorPciExpressRead8(UINTN Address) { return *(volatile UINT8 *)(QOR_PCI_EXPRESS_BASE_ADDRESS + Address); }

UINT16 QorPciExpressRead16(UINTN Address) {
  return *(volatile UINT16 *)(QOR_PCI_EXPRESS_BASE_ADDRESS + Address);
}

UINT32 QorPciExpressRead32(UINTN Address) {
  return *(volatile UINT32 *)(QOR_PCI_EXPRESS_BASE_ADDRESS + Address);
}
