// The platform's fixed decode ranges: legacy VGA and PAM areas, TSEG, MESEG
// and the MMCFG window from processor registers, and the NoEarlyGo area.
#include "pci_resources/pci_res_info.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"

LEGACY_DECODE_INFO *gQorDecodeList = nullptr;
UINT64 gQorDecodeCount = 0;

namespace {

constexpr UINT32 kCsrTsegBase = 0x110200A8;
constexpr UINT32 kCsrTsegLimit = 0x110200AC;
constexpr UINT32 kCsrMesegBaseLow = 0x03020090;
constexpr UINT32 kCsrMesegBaseHigh = 0x03020094;
constexpr UINT32 kCsrMesegLimitLow = 0x03020098;
constexpr UINT32 kCsrMesegLimitHigh = 0x0302009C;
constexpr UINT32 kCsrMmcfgLow = 0x031200C0;
constexpr UINT32 kCsrMmcfgHigh = 0x031200C4;
constexpr UINTN kMaxRanges = 6;

UINT64 MmcfgSize(UINT32 Rule) {
  switch ((Rule >> 1) & 7) {
    case 0:
      return 0x80000000ULL;
    case 1:
      return 0x40000000ULL;
    case 2:
      return 0x20000000ULL;
    case 4:
      return 0x10000000ULL;
    case 5:
      return 0x08000000ULL;
    case 6:
      return 0x04000000ULL;
    default:
      return 0x10000000ULL;
  }
}

}  // namespace

VOID QorCollectLegacyAndMmCfgDecodeRes(VOID) {
  LEGACY_DECODE_INFO Table[kMaxRanges];
  QorZeroMem(Table, sizeof(Table));
  Table[0] = {0xA0000, 0xBFFFF, QOR_RES_TYPE_LEGACY_DECODE, QOR_RANGE_VGA};
  Table[1] = {0xC0000, 0xFFFFF, QOR_RES_TYPE_LEGACY_DECODE, QOR_RANGE_PAM};
  UINTN Count = 2;
  QOR_CPU_CSR_ACCESS_PROTOCOL *Csr = nullptr;
  if (EFI_ERROR(QorLocateProtocol(&gQorCpuCsrAccessProtocolGuid, (VOID **)&Csr)) || Csr == nullptr) {
    QorDebugPrint(DEBUG_INFO, "QorCollectLegacyAndMmCfgDecodeRes locate CPU CSR Protocol fail!\n");
  } else {
    UINT64 TsegStart = Csr->ReadCpuCsr(0, 0, kCsrTsegBase) & 0xFFF00000U;
    UINT64 TsegEnd = Csr->ReadCpuCsr(0, 0, kCsrTsegLimit) & 0xFFF00000U;
    if (TsegEnd != 0) TsegEnd |= 0xFFFFF;
    Table[Count++] = {TsegStart, TsegEnd, QOR_RES_TYPE_LEGACY_DECODE, QOR_RANGE_TSEG};

    // The shift pairs are those of the shipped decoder.
    UINT64 MesegStart = ((UINT64)(UINT32)(Csr->ReadCpuCsr(0, 0, kCsrMesegBaseHigh) << 13) << 19) |
                        (Csr->ReadCpuCsr(0, 0, kCsrMesegBaseLow) & 0xFFF80000U);
    UINT64 LimitHigh = (UINT64)(Csr->ReadCpuCsr(0, 0, kCsrMesegLimitHigh) & 0xFFF80000U) << 13;
    UINT32 LimitLow = Csr->ReadCpuCsr(0, 0, kCsrMesegLimitLow);
    UINT64 MesegEnd = LimitHigh | (LimitLow & 0xFFF80000U);
    if (LimitHigh != 0 || LimitLow > 0xFFFFF) MesegEnd |= 0xFFFFF;
    Table[Count++] = {MesegStart, MesegEnd, QOR_RES_TYPE_LEGACY_DECODE, QOR_RANGE_MESEG};

    UINT32 MmcfgLow = Csr->ReadCpuCsr(0, 0, kCsrMmcfgLow);
    UINT64 MmcfgStart = ((UINT64)(Csr->ReadCpuCsr(0, 0, kCsrMmcfgHigh) & 0xFFFFF) << 32) | (MmcfgLow & 0xFC000000U);
    Table[Count++] = {MmcfgStart, MmcfgStart + MmcfgSize(MmcfgLow) - 1, QOR_RES_TYPE_MMCFG, QOR_RANGE_MMCFG};
  }
  Table[Count++] = {0xFE000000, 0xFFFFFFFF, QOR_RES_TYPE_LEGACY_DECODE, QOR_RANGE_NO_EARLY_GO};
  LEGACY_DECODE_INFO *List = (LEGACY_DECODE_INFO *)QorAllocateZeroPool(sizeof(LEGACY_DECODE_INFO) * Count);
  if (List == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "QorRasCollectLegacyAndMmCfgDecodeRes allocate pool for legacy decode info fail, return!\n");
    return;
  }
  QorCopyMem(List, Table, sizeof(LEGACY_DECODE_INFO) * Count);
  gQorDecodeList = List;
  gQorDecodeCount = Count;
}
