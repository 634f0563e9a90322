// The CPU CSR access protocol, answering the decode registers the driver
// reads with what the q35 host bridge of the emulated machine decodes: the
// MMCFG window from PCIEXBAR and TSEG from ESMRAMC and TOLUD. The machine
// has no ME, so MESEG reads 0; any other register reads 0 as well.
#include "platform/cpu_access.h"
#include "platform/guids.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"
#include "uefi/rig/rig.h"

namespace {

// Register addresses of the processor family the driver targets.
constexpr UINT32 kTsegBase = 0x110200A8;
constexpr UINT32 kTsegLimit = 0x110200AC;
constexpr UINT32 kMmcfgBaseLow = 0x031200C0;
constexpr UINT32 kMmcfgBaseHigh = 0x031200C4;

// q35 host bridge (bus 0, device 0, function 0) registers.
constexpr UINT32 kPciExBar = 0x60;
constexpr UINT32 kEsmramc = 0x9E;
constexpr UINT32 kExtendedTsegMbytes = 0x50;
constexpr UINT32 kTolud = 0xB0;

UINT32 HostBridge32(UINT32 Register) { return QorPciExpressRead32(QOR_PCI_EXPRESS_ADDRESS(0, 0, 0, Register)); }

// MMCFG size codes of the CSR layout (bits 3:1 of the base register).
UINT32 MmcfgSizeCode(UINT32 PciExBarLow) {
  switch ((PciExBarLow >> 1) & 0x3) {
    case 0: return 4;   // 256 MiB
    case 1: return 5;   // 128 MiB
    default: return 6;  // 64 MiB
  }
}

// TSEG: the top of low memory below TOLUD when the host bridge enables it.
BOOLEAN Tseg(UINT32 *Base, UINT32 *LastMegabyte) {
  UINT8 Esmramc = (UINT8)(HostBridge32(kEsmramc & ~3U) >> (8 * (kEsmramc & 3)));
  if ((Esmramc & 1) == 0) return FALSE;
  UINT32 Megabytes;
  switch ((Esmramc >> 1) & 3) {
    case 0: Megabytes = 1; break;
    case 1: Megabytes = 2; break;
    case 2: Megabytes = 8; break;
    default: Megabytes = HostBridge32(kExtendedTsegMbytes) & 0xFFFF; break;
  }
  UINT32 Tolud = (HostBridge32(kTolud) & 0xFFF0) << 16;
  if (Megabytes == 0 || Tolud < (Megabytes << 20)) return FALSE;
  *Base = Tolud - (Megabytes << 20);
  *LastMegabyte = Tolud - (1U << 20);
  return TRUE;
}

UINT32 EFIAPI ReadCpuCsr(UINT8 Socket, UINT8 BoxInstance, UINT32 RegisterAddress) {
  UINT32 PciExBarLow = HostBridge32(kPciExBar);
  UINT32 Base = 0, Last = 0;
  switch (RegisterAddress) {
    case kMmcfgBaseLow:
      if ((PciExBarLow & 1) == 0) return 0;
      return (PciExBarLow & 0xFC000000U) | MmcfgSizeCode(PciExBarLow) << 1 | 1;
    case kMmcfgBaseHigh:
      return (PciExBarLow & 1) != 0 ? HostBridge32(kPciExBar + 4) & 0xFFFFF : 0;
    case kTsegBase:
      return Tseg(&Base, &Last) ? Base : 0;
    case kTsegLimit:
      return Tseg(&Base, &Last) ? Last : 0;
    default:
      return 0;
  }
}

QOR_CPU_CSR_ACCESS_PROTOCOL gCpuCsrAccess;

}  // namespace

EFI_STATUS QorRigInstallCpuCsrAccess(VOID) {
  gCpuCsrAccess.ReadCpuCsr = ReadCpuCsr;
  return QorRigInstallOnNewHandle(&gQorCpuCsrAccessProtocolGuid, &gCpuCsrAccess);
}
