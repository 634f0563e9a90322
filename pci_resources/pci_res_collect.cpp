// The resource list: every range a PCI function decodes. BARs are sized by
// the all-ones write with decoding switched off; bridge windows are read
// from their base and limit registers.
#include "pci_resources/pci_res_info.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/uefi_lib.h"

PCI_RES_INFO *gQorPciResList = nullptr;
UINT64 gQorPciResCount = 0;

namespace {

constexpr UINT32 kHeaderBytes = 16;
constexpr UINT32 kBridgeBytes = 48;  // 0x10..0x3F
constexpr UINT16 kCommandDecodeBits = 0x0007;

VOID LogLocation(UINTN S, UINTN B, UINTN D, UINTN F, UINT32 Offset) {
  QorDebugPrint(DEBUG_ERROR, "            S: 0x%x   B: 0x%x D: 0x%x F:0x%x  BarOffset: 0x%x \n", (UINT32)S, (UINT32)B,
                (UINT32)D, (UINT32)F, Offset);
}

struct FUNCTION_AT {
  EFI_HANDLE Handle;
  EFI_PCI_IO_PROTOCOL *PciIo;
  UINTN Segment, Bus, Device, Function;
};

VOID Size32(CONST FUNCTION_AT *F, UINT32 Offset, BOOLEAN Io) {
  EFI_PCI_IO_PROTOCOL *PciIo = F->PciIo;
  UINT32 Saved = 0;
  if (EFI_ERROR(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint32, Offset, 1, &Saved)) || (Saved & ~0xFU) == 0) return;
  UINT32 Ones = 0xFFFFFFFF;
  UINT32 Size = 0;
  PciIo->Pci.Write(PciIo, EfiPciIoWidthUint32, Offset, 1, &Ones);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint32, Offset, 1, &Size);
  EFI_STATUS Status = PciIo->Pci.Write(PciIo, EfiPciIoWidthUint32, Offset, 1, &Saved);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "QorCollectPciRes: Write 32bit base addres back fail, status: %r \n", Status);
    LogLocation(F->Segment, F->Bus, F->Device, F->Function, Offset);
    return;
  }
  UINT32 Mask;
  if (Io) {
    Mask = Size & 0xFFFFFFFC;
    if ((Mask & 0xFFFF0000) == 0) Mask |= 0xFFFF0000;  // a 16-bit I/O decoder
  } else {
    Mask = Size & 0xFFFFFFF0;
  }
  // An I/O base loses its whole low nibble as well, by design.
  UINT64 Start = Saved & 0xFFFFFFF0;
  UINT64 End = Start + (UINT32)~Mask;
  QorAddPciResToList(F->Handle, Start, End, 1, Io ? QOR_RES_TYPE_IO : QOR_RES_TYPE_MMIO);
}

VOID Size64(CONST FUNCTION_AT *F, UINT32 Offset) {
  EFI_PCI_IO_PROTOCOL *PciIo = F->PciIo;
  UINT64 Saved = 0;
  if (EFI_ERROR(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint64, Offset, 1, &Saved)) || (Saved & ~0xFULL) == 0) return;
  UINT64 Ones = ~0ULL;
  UINT64 Size = 0;
  PciIo->Pci.Write(PciIo, EfiPciIoWidthUint64, Offset, 1, &Ones);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint64, Offset, 1, &Size);
  EFI_STATUS Status = PciIo->Pci.Write(PciIo, EfiPciIoWidthUint64, Offset, 1, &Saved);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "QorCollectPciRes: Write 64bit base addres back fail, status: %r \n", Status);
    LogLocation(F->Segment, F->Bus, F->Device, F->Function, Offset);
    return;
  }
  UINT64 Start = Saved & ~0xFULL;
  QorAddPciResToList(F->Handle, Start, Start + ~(Size & ~0xFULL), 1, QOR_RES_TYPE_MMIO);
}

VOID CollectBars(CONST FUNCTION_AT *F, UINT32 Limit) {
  UINT32 Offset = 0x10;
  for (UINT32 Handled = 0; Handled < Limit; Handled++) {
    UINT32 Low = 0;
    if (EFI_ERROR(F->PciIo->Pci.Read(F->PciIo, EfiPciIoWidthUint32, Offset, 1, &Low))) return;
    UINT32 Width = 4;
    if ((Low & 1) != 0) {
      Size32(F, Offset, TRUE);
    } else {
      switch (Low & 0xF) {
        case 0x0:
        case 0x2:
        case 0x8:
          Size32(F, Offset, FALSE);
          break;
        case 0x4:
        case 0xC:
          Limit--;  // the upper half takes the next slot
          Width = 8;
          Size64(F, Offset);
          break;
        default:
          // 6, 10 and 14 are not sized; 2 without the prefetch bit is (kept).
          break;
      }
    }
    Offset += Width;
  }
}

UINT16 Read16At(CONST UINT8 *Bytes, UINT32 At) { return (UINT16)(Bytes[At] | (Bytes[At + 1] << 8)); }
UINT32 Read32At(CONST UINT8 *Bytes, UINT32 At) {
  return (UINT32)Bytes[At] | ((UINT32)Bytes[At + 1] << 8) | ((UINT32)Bytes[At + 2] << 16) | ((UINT32)Bytes[At + 3] << 24);
}

VOID CollectWindows(CONST FUNCTION_AT *F) {
  UINT8 Bytes[kBridgeBytes];
  EFI_STATUS Status = F->PciIo->Pci.Read(F->PciIo, EfiPciIoWidthUint8, 0x10, kBridgeBytes, Bytes);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "QorCollectPciRes: Get Pci Bridge data status: %r  ,continue\n", Status);
    return;
  }
  // Offsets below are configuration offsets less 0x10.
  UINT8 IoBase = Bytes[0x1C - 0x10];
  UINT8 IoLimit = Bytes[0x1D - 0x10];
  if (IoBase != 0 && (IoBase & 0xF0) <= (IoLimit & 0xF0)) {
    UINT64 Start = (UINT64)(IoBase & 0xF0) << 8;
    UINT64 End = ((UINT64)(IoLimit & 0xF0) << 8) | 0xFFF;
    if ((IoBase & 0x0F) == 1) {
      Start |= (UINT64)Read16At(Bytes, 0x30 - 0x10) << 16;
      End |= (UINT64)Read16At(Bytes, 0x32 - 0x10) << 16;
    }
    QorAddPciResToList(F->Handle, Start, End, 0, QOR_RES_TYPE_IO);
  }
  UINT16 MemBase = Read16At(Bytes, 0x20 - 0x10);
  UINT16 MemLimit = Read16At(Bytes, 0x22 - 0x10);
  if (MemBase != 0 && (MemBase & 0xFFF0) <= (MemLimit & 0xFFF0)) {
    QorAddPciResToList(F->Handle, (UINT64)(MemBase & 0xFFF0) << 16, ((UINT64)(MemLimit & 0xFFF0) << 16) | 0xFFFFF, 0,
                       QOR_RES_TYPE_MMIO);
  }
  UINT16 PrefBase = Read16At(Bytes, 0x24 - 0x10);
  UINT16 PrefLimit = Read16At(Bytes, 0x26 - 0x10);
  if (PrefBase != 0 && (PrefBase & 0xFFF0) <= (PrefLimit & 0xFFF0)) {
    UINT64 Start = (UINT64)(PrefBase & 0xFFF0) << 16;
    UINT64 End = ((UINT64)(PrefLimit & 0xFFF0) << 16) | 0xFFFFF;
    if ((PrefBase & 0x0F) == 1) {
      Start |= (UINT64)Read32At(Bytes, 0x28 - 0x10) << 32;
      End |= (UINT64)Read32At(Bytes, 0x2C - 0x10) << 32;
    }
    QorAddPciResToList(F->Handle, Start, End, 0, QOR_RES_TYPE_MMIO);
  }
}

}  // namespace

VOID QorResetPciResLists(VOID) {
  gQorPciResList = nullptr;
  gQorPciResCount = 0;
  gQorDecodeList = nullptr;
  gQorDecodeCount = 0;
}

EFI_STATUS QorPciIoMemDecodeEnable(EFI_PCI_IO_PROTOCOL *PciIo, UINT16 OriginPciCMD, BOOLEAN Enable) {
  QorDebugPrint(DEBUG_VERBOSE, "QorPciIoMemDecodeEnable    entering   Enable: %d   OriginPciCMD: %x\n", Enable,
                OriginPciCMD);
  UINT16 Command = OriginPciCMD;
  if (Command == 0xFFFF) PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, 0x04, 1, &Command);
  // Enabling sets I/O, memory and bus master whatever was set before.
  Command = Enable ? (UINT16)(Command | kCommandDecodeBits) : (UINT16)(Command & ~kCommandDecodeBits);
  return PciIo->Pci.Write(PciIo, EfiPciIoWidthUint16, 0x04, 1, &Command);
}

VOID QorCollectPCIRes(VOID) {
  QorDebugPrint(DEBUG_INFO, "QorCollectPCIRes Entering\n");
  gQorPciResList = nullptr;
  gQorPciResCount = 0;
  UINTN HandleCount = 0;
  EFI_HANDLE *Handles = nullptr;
  gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)&gEfiPciIoProtocolGuid, nullptr, &HandleCount, &Handles);
  if (Handles == nullptr) return;
  QorDebugPrint(DEBUG_INFO, "QorCollectPCIRes HandleCnt: %d\n", (UINT32)HandleCount);
  for (UINTN I = 0; I < HandleCount; I++) {
    FUNCTION_AT F = {Handles[I], nullptr, 0, 0, 0, 0};
    if (EFI_ERROR(gBS->HandleProtocol(F.Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&F.PciIo)) ||
        F.PciIo == nullptr) {
      continue;
    }
    if (EFI_ERROR(F.PciIo->GetLocation(F.PciIo, &F.Segment, &F.Bus, &F.Device, &F.Function))) continue;
    UINT16 VendorId = 0xFFFF;
    if (EFI_ERROR(F.PciIo->Pci.Read(F.PciIo, EfiPciIoWidthUint16, 0, 1, &VendorId)) || VendorId == 0xFFFF) continue;
    UINT8 Header[kHeaderBytes];
    if (EFI_ERROR(F.PciIo->Pci.Read(F.PciIo, EfiPciIoWidthUint8, 0, kHeaderBytes, Header))) continue;
    UINT8 HeaderType = Header[0x0E] & 0x7F;
    if (HeaderType > 1) continue;
    UINT16 Command = Read16At(Header, 0x04);
    if (EFI_ERROR(QorPciIoMemDecodeEnable(F.PciIo, Command, FALSE))) continue;
    CollectBars(&F, HeaderType == 0 ? 6 : 2);
    if (HeaderType == 1) CollectWindows(&F);
    QorPciIoMemDecodeEnable(F.PciIo, Command, TRUE);
  }
  QorFreePool(Handles);
}

VOID QorAddPciResToList(EFI_HANDLE Handle, UINT64 StartAddress, UINT64 EndAddress, UINT8 ConsumedBySelf,
                        UINT8 ResourceType) {
  EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo)) || PciIo == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "QorAddPciResToList: Failed to locate Pci io protocol of handle: 0x%x .\n", Handle);
    return;
  }
  PCI_RES_INFO *Grown = (PCI_RES_INFO *)QorAllocateZeroPool(sizeof(PCI_RES_INFO) * (gQorPciResCount + 1));
  if (Grown == nullptr) {
    QorDebugPrint(DEBUG_INFO, "QorAddPciResToList: Failed to allocate memory for new Pci res info.\n");
    return;
  }
  UINTN Segment = 0, Bus = 0, Device = 0, Function = 0;
  EFI_STATUS Status = PciIo->GetLocation(PciIo, &Segment, &Bus, &Device, &Function);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_INFO, "QorAddPciResToList: Get location fail!  %r\n", Status);
    QorFreePool(Grown);
    return;
  }
  UINT8 Header[kHeaderBytes];
  Status = PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, 0, kHeaderBytes, Header);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_INFO, "QorAddPciResToList: Get Pci header fail!  %r\n", Status);
    QorFreePool(Grown);
    return;
  }
  PCI_RES_INFO *Record = &Grown[gQorPciResCount];
  Record->Segment = Segment;
  Record->Bus = Bus;
  Record->Device = Device;
  Record->Function = Function;
  Record->StartAddress = StartAddress;
  Record->EndAddress = EndAddress;
  Record->VendorID = Read16At(Header, 0x00);
  Record->DeviceID = Read16At(Header, 0x02);
  Record->HeaderType = Header[0x0E] & 0x7F;
  Record->ConsumedBySelf = ConsumedBySelf;
  Record->ResourceType = ResourceType;
  Record->ClassCode = ((UINT32)Header[0x0B] << 16) | ((UINT32)Header[0x0A] << 8) | Header[0x09];
  Record->SlotDesc = Record->HeaderType == 1 ? QOR_SLOT_DESC_BRIDGE_NOT_USP : QOR_SLOT_DESC_INTERNAL_DEVICE;
  Record->SubDevSlotDesc = Record->HeaderType == 1 ? QOR_SLOT_DESC_SLOT_NOT_IMPLEMENTED : QOR_SLOT_DESC_ENDPOINT;
  // A function's slot is evaluated once; its later ranges copy it.
  BOOLEAN Copied = FALSE;
  for (UINT64 I = gQorPciResCount; I-- > 0;) {
    CONST PCI_RES_INFO *Seen = &gQorPciResList[I];
    if (Seen->Segment == Segment && Seen->Bus == Bus && Seen->Device == Device && Seen->Function == Function) {
      Record->SlotDesc = Seen->SlotDesc;
      Record->SubDevSlotDesc = Seen->SubDevSlotDesc;
      Copied = TRUE;
      break;
    }
  }
  if (!Copied) QorUpdateSlotDesc(Handle, Record);
  QorDebugPrint(DEBUG_VERBOSE,
                "QorAddPciResToList: Add new res to list:  S: 0x%x  B: 0x%x  D: 0x%x  F: 0x%x  VID: 0x%lx  DID: 0x%x   "
                "StartAddr: 0x%llx  EndAddr: 0x%llx\n",
                (UINT32)Segment, (UINT32)Bus, (UINT32)Device, (UINT32)Function, (UINT64)Record->VendorID,
                (UINT32)Record->DeviceID, StartAddress, EndAddress);
  if (gQorPciResList != nullptr) {
    QorCopyMem(Grown, gQorPciResList, sizeof(PCI_RES_INFO) * gQorPciResCount);
    QorFreePool(gQorPciResList);
  }
  gQorPciResList = Grown;
  gQorPciResCount++;
}
