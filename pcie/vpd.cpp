// Vital product data through the PCI VPD capability: the dword read with
// its address/flag handshake, and the keyword search of the TAIHANG DPU.
#include "pcie/special_devices.h"
#include "platform/base_lib.h"
#include "platform/cpu_access.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/uefi_lib.h"

namespace {

constexpr UINT8 kVpdCapabilityId = 0x03;
constexpr UINT16 kVpdFlag = 0x8000;
constexpr UINT32 kVpdPolls = 5;
constexpr UINT32 kMaxCapabilities = (0x100 - 0x40) / 4;
constexpr UINT8 kTagEnd = 0x78;
constexpr UINT8 kTagIdentifier = 0x82;
constexpr UINT8 kTagReadOnly = 0x90;
constexpr UINT8 kTagReadWrite = 0x91;
// VPD addresses are 15 bits; a search that runs past them found no end tag.
constexpr UINT32 kVpdAddressLimit = 0x8000;

CONST PCIE_DEVICE_IDS kTaihangDpus[] = {
    {0x1AF4, 0x1000, 0x1D22, 0x0001},
    {0x1AF4, 0x1001, 0x1D22, 0x0002},
    {0x1AF4, 0x1041, 0x1D22, 0x1100},
    {0x1AF4, 0x1042, 0x1D22, 0x1100},
};
CONST CHAR8 *CONST kKeywords[VPD_KEYWORD_COUNT] = {"SN", "V0", "V1", "V2", "V3", "V4"};

// The VPD capability: the list from 0x34, ending at a pointer not above 0x34.
UINT8 FindVpdCapability(EFI_PCI_IO_PROTOCOL *PciIo) {
  UINT8 Offset = 0;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, PCI_CAPABILITY_POINTER_OFFSET, 1, &Offset);
  for (UINT32 I = 0; I < kMaxCapabilities && Offset > PCI_CAPABILITY_POINTER_OFFSET; I++) {
    UINT16 Header = 0;
    PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, Offset, 1, &Header);
    if ((Header & 0xFF) == kVpdCapabilityId) return Offset;
    Offset = (UINT8)(Header >> 8);
  }
  return 0;
}

// Waits about one microsecond on the time-stamp counter. The spin count
// bounds the wait where the counter does not move.
VOID MicroSecondDelay(VOID) {
  UINT64 Ticks = ((QorReadMsr(QOR_MSR_PLATFORM_INFO) >> 8) & 0xFF) * 100;
  UINT64 Start = QorReadTsc();
  for (UINT64 Spins = 0; Spins < Ticks && QorReadTsc() - Start < Ticks; Spins++) {
  }
}

EFI_STATUS ReadAlignedDword(EFI_PCI_IO_PROTOCOL *PciIo, UINT8 Cap, UINT32 Address, UINT32 *Value) {
  UINT16 AddressRegister = (UINT16)(Address & 0x7FFF);
  EFI_STATUS Status = PciIo->Pci.Write(PciIo, EfiPciIoWidthUint16, Cap + 2, 1, &AddressRegister);
  if (EFI_ERROR(Status)) return Status;
  for (UINT32 Poll = 0; Poll < kVpdPolls; Poll++) {
    UINT16 Flag = 0;
    Status = PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, Cap + 2, 1, &Flag);
    if (EFI_ERROR(Status)) return Status;
    if ((Flag & kVpdFlag) != 0) return PciIo->Pci.Read(PciIo, EfiPciIoWidthUint32, Cap + 4, 1, Value);
    MicroSecondDelay();
  }
  QorDebugPrint(DEBUG_INFO, "Get VPD Data in Address:%x timed out\n", Address);
  return EFI_TIMEOUT;
}

}  // namespace

EFI_STATUS QorReadVpdDword(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Address, UINT32 *Value) {
  UINT8 Cap = FindVpdCapability(PciIo);
  if (Cap == 0) return EFI_NOT_FOUND;
  if ((Address & 3) == 0) return ReadAlignedDword(PciIo, Cap, Address, Value);
  UINT32 Low = 0, High = 0;
  EFI_STATUS Status = ReadAlignedDword(PciIo, Cap, Address & ~3U, &Low);
  if (EFI_ERROR(Status)) return Status;
  Status = ReadAlignedDword(PciIo, Cap, (Address & ~3U) + 4, &High);
  if (EFI_ERROR(Status)) return Status;
  UINT64 Both = ((UINT64)High << 32) | Low;
  *Value = (UINT32)(Both >> (8 * (Address & 3)));
  return EFI_SUCCESS;
}

EFI_STATUS QorFindTaihangDpu(PCIE_DEVICE_INFO *Record) {
  BOOLEAN Match = FALSE;
  for (CONST PCIE_DEVICE_IDS &Row : kTaihangDpus) Match = Match || QorPcieIdsEqual(&Row, Record);
  if (!Match) {
    QorDebugPrint(DEBUG_INFO, "Not Find TAIHANG DPU Device\n");
    return EFI_NOT_FOUND;
  }
  QorDebugPrint(DEBUG_INFO, "Find TAIHANG DPU Device\n");
  EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
  EFI_STATUS Status = gBS->HandleProtocol(Record->Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_INFO, "The handle does not support the EfiPciIoProtocol!, Status:%r\n", Status);
    return Status;
  }
  // One length for the whole call: a keyword that is not found reuses the
  // length found last, read from address 3 (kept on purpose).
  UINT32 Length = 0;
  for (UINT32 K = 0; K < VPD_KEYWORD_COUNT; K++) {
    UINT32 Address = 0;
    UINT32 DataAddress = 3;
    for (;;) {
      if (Address >= kVpdAddressLimit) {
        QorDebugPrint(DEBUG_INFO, "Not Found %a\n", kKeywords[K]);
        break;
      }
      UINT32 Item = 0;
      Status = QorReadVpdDword(PciIo, Address, &Item);
      if (EFI_ERROR(Status)) {
        QorDebugPrint(DEBUG_ERROR, "Failed to Read VPD DWord data in address:%x!, status:%r\n", Address, Status);
        QorDebugPrint(DEBUG_INFO, "Not Found %a\n", kKeywords[K]);
        break;
      }
      UINT8 Tag = (UINT8)Item;
      if (Tag == kTagEnd) {
        QorDebugPrint(DEBUG_INFO, "Not Found %a\n", kKeywords[K]);
        break;
      }
      if (Tag == kTagIdentifier) {
        Address += 3 + ((Item >> 8) & 0xFFFF);
      } else if (Tag == kTagReadOnly || Tag == kTagReadWrite) {
        Address += 3;
      } else if ((CHAR8)(Item & 0xFF) == kKeywords[K][0] && (CHAR8)((Item >> 8) & 0xFF) == kKeywords[K][1]) {
        Length = (Item >> 16) & 0xFF;
        DataAddress = Address + 3;
        break;
      } else {
        Address += 3 + ((Item >> 16) & 0xFF);
      }
    }
    if (Length >= VPD_VALUE_SIZE) {
      QorDebugPrint(DEBUG_ERROR, "The Length of VPD Keyword is too large!\n");
      continue;
    }
    CHAR8 *Value = Record->VPDInfo[K];
    for (UINT32 Done = 0; Done < Length; Done += 4) {
      UINT32 Data = 0;
      Status = QorReadVpdDword(PciIo, DataAddress + Done, &Data);
      if (EFI_ERROR(Status)) {
        QorDebugPrint(DEBUG_ERROR, "Failed to Read VPD DWord data in address:%x!, status:%r\n", DataAddress + Done,
                      Status);
        QorDebugPrint(DEBUG_ERROR, "Failed to obtain MAC address data from VPD!, Status:%r\n", Status);
        Value[Done] = 0;
        return Status;
      }
      for (UINT32 B = 0; B < 4 && Done + B < Length; B++) Value[Done + B] = (CHAR8)(Data >> (8 * B));
    }
    Value[Length] = 0;
    QorDebugPrint(DEBUG_INFO, "Get VPDInfo[%d]: %a\n", K, Value);
  }
  return EFI_SUCCESS;
}
