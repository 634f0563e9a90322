// Host build: MSR, port and physical-memory accesses are served by the
// emulator through its CPU access protocol. Without it reads float high.
#include "platform/cpu_access.h"
#include "platform/guids.h"
#include "platform/uefi_lib.h"

namespace {
QOR_HOST_CPU_ACCESS_PROTOCOL *gCpuAccess = nullptr;

QOR_HOST_CPU_ACCESS_PROTOCOL *CpuAccess() {
  if (gCpuAccess == nullptr && gBS != nullptr) {
    QorLocateProtocol(&gQorHostCpuAccessProtocolGuid, (VOID **)&gCpuAccess);
  }
  return gCpuAccess;
}
}  // namespace

VOID QorCpuAccessInit(VOID) { gCpuAccess = nullptr; }

UINT64 QorReadMsr(UINT32 Index) { return CpuAccess() != nullptr ? CpuAccess()->ReadMsr(Index) : 0; }

UINT8 QorIoRead8(UINT16 Port) { return CpuAccess() != nullptr ? CpuAccess()->IoRead8(Port) : 0xFF; }

VOID QorIoWrite8(UINT16 Port, UINT8 Value) {
  if (CpuAccess() != nullptr) CpuAccess()->IoWrite8(Port, Value);
}

UINT8 QorMmioRead8(UINTN Address) {
  return CpuAccess() != nullptr ? (UINT8)CpuAccess()->MmioRead(Address, 1) : 0xFF;
}

UINT16 QorMmioRead16(UINTN Address) {
  return CpuAccess() != nullptr ? (UINT16)CpuAccess()->MmioRead(Address, 2) : 0xFFFF;
}
UINT32 QorMmioRead32(UINTN Address) {
  return CpuAccess() != nullptr ? (UINT32)CpuAccess()->MmioRead(Address, 4) : 0xFFFFFFFFU;
}
// Without the emulator's counter the time-stamp counter stands still; timed
// waits are bounded by their own iteration count, so they still end.
UINT64 QorReadTsc(VOID) {
  return (CpuAccess() != nullptr && CpuAccess()->ReadTsc != nullptr) ? CpuAccess()->ReadTsc() : 0;
}
UINT8 QorPciExpressRead8(UINTN Address) {
  return CpuAccess() != nullptr ? (UINT8)CpuAccess()->PciExpressRead(Address, 1) : 0xFF;
}

UINT16 QorPciExpressRead16(UINTN Address) {
  return CpuAccess() != nullptr ? (UINT16)CpuAccess()->PciExpressRead(Address, 2) : 0xFFFF;
}

UINT32 QorPciExpressRead32(UINTN Address) {
  return CpuAccess() != nullptr ? CpuAccess()->PciExpressRead(Address, 4) : 0xFFFFFFFFU;
}
