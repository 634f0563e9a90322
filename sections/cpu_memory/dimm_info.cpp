// DimmInfo section: the number of DIMM slots the DIMM map declares present
// and one entry per installed DIMM. SMBIOS type 17 records are paired in
// order with the present slots of the DIMM map; a slot's socket, channel and
// DIMM select its data in the memory map HOB.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/hob_lib.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {

// The next slot position (socket*16 + channel*2 + DIMM) to pair with a
// type 17 record. It only moves forward and is never reset: the section is
// filled once per boot.
UINT8 gDimmCursor = 0;
constexpr UINT8 kLastSlotPosition = 254;

template <typename T>
T ReadField(CONST UINT8 *Data, UINTN Offset) {
  T Value;
  QorCopyMem(&Value, Data + Offset, sizeof(Value));
  return Value;
}

// Advances the cursor to the next position the map declares present.
BOOLEAN NextPresentSlot(CONST QOR_DIMM_MAP_ENTRY *DimmMap, QOR_DIMM_MAP_ENTRY *Slot) {
  while (gDimmCursor <= kLastSlotPosition) {
    UINT8 Position = gDimmCursor++;
    UINT32 Socket = Position / 16;
    // A map entry holds sockets 0 to 7 only.
    if (Socket > 7) continue;
    QOR_DIMM_MAP_ENTRY Candidate;
    QorZeroMem(&Candidate, sizeof(Candidate));
    Candidate.Location = QOR_DIMM_MAP_LOCATION(Socket, (Position % 16) / 2, Position % 2);
    if (!EFI_ERROR(QorFindDimmMapEntry(DimmMap, &Candidate)) && (Candidate.Slot & QOR_DIMM_MAP_SLOT_PRESENT) != 0) {
      QorCopyMem(Slot, &Candidate, sizeof(Candidate));
      return TRUE;
    }
  }
  return FALSE;
}

UINT32 DimmSize(CONST EFI_SMBIOS_TABLE_HEADER *Record, CONST UINT8 *Dimm) {
  UINT32 Size = QorSmbiosRead16(Record, SMBIOS_TYPE17_SIZE);
  if (Size == SMBIOS_TYPE17_SIZE_USE_EXTENDED) Size = QorSmbiosRead32(Record, SMBIOS_TYPE17_EXTENDED_SIZE);
  if (Dimm[QOR_MEMMAP_DIMM_SIZE_FLAG_A] != 0 && Dimm[QOR_MEMMAP_DIMM_SIZE_FLAG_B] != 0) {
    Size = ReadField<UINT32>(Dimm, QOR_MEMMAP_DIMM_SIZE) << 10;
  }
  return Size;
}

VOID CopyTrimmedString(CHAR8 *Field, UINTN FieldSize, CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Offset) {
  CONST CHAR8 *Text = QorGetSmbiosString(Record, QorSmbiosRead8(Record, Offset));
  if (Text == nullptr) return;
  QorAsciiStrCopy(Field, FieldSize, Text);
  QorTrimBlanks(Field);
}

VOID AppendDimmEntry(QOR_TEXT_WRITER *W, CONST DIMM_INFO_ENTRY *Entry) {
  QorWriterAppend(W, "{");
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DataOrigin", Entry->DataOrigin);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Socket", Entry->Socket);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Channel", Entry->Channel);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Dimm", Entry->Dimm);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Index", Entry->Index);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Status", Entry->Status);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DimmType", Entry->DimmType);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "OpeVoltage", Entry->OpeVoltage);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DimmRanks", Entry->DimmRanks);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "DimmTech", Entry->DimmTech);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "VendorID", Entry->VendorID);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DimmSize", Entry->DimmSize);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "CurFrequency", Entry->CurFrequency);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "MaxFrequency", Entry->MaxFrequency);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DimmEcc", Entry->DimmEcc);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "PartNumber", Entry->PartNumber);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "SerialNumber", Entry->SerialNumber);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "HpprCount", (UINT32)Entry->HpprCount);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "TotalWidth", (UINT32)Entry->TotalWidth);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DataWidth", (UINT32)Entry->DataWidth);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "TypeDetail", (UINT32)Entry->TypeDetail);
  QorWriterDropComma(W);
  QorWriterAppend(W, "},");
}

}  // namespace

UINT16 QorRemapTypeDetail(UINT16 TypeDetail) {
  // Source bit -> result bits. Bit 2 is not mapped and bit 3 sets two result
  // bits; the BMC reads the word in this order.
  static CONST UINT16 kResultBits[16] = {
      0x8000, 0x4000, 0x0000, 0x3000, 0x0800, 0x0400, 0x0200, 0x0100,
      0x0080, 0x0040, 0x0020, 0x0010, 0x0008, 0x0004, 0x0002, 0x0001,
  };
  UINT16 Result = 0;
  for (UINTN Bit = 0; Bit < 16; Bit++) {
    if ((TypeDetail & (1U << Bit)) != 0) Result |= kResultBits[Bit];
  }
  return Result;
}

EFI_STATUS QorIsDimmAvaliable(CONST UINT8 *MemoryMapData, CONST QOR_DIMM_MAP_ENTRY *DimmMap,
                              CONST EFI_SMBIOS_TABLE_HEADER *Type17Record, DIMM_INFO_ENTRY *DimmEntry) {
  QOR_DIMM_MAP_ENTRY Slot;
  QorZeroMem(&Slot, sizeof(Slot));
  BOOLEAN Found = NextPresentSlot(DimmMap, &Slot);
  UINT32 Socket = QOR_DIMM_MAP_SOCKET(&Slot);
  UINT32 Channel = QOR_DIMM_MAP_CHANNEL(&Slot);
  UINT32 Dimm = QOR_DIMM_MAP_DIMM(&Slot);
  QorDebugPrint(DEBUG_INFO, "QorIsDimmAvaliable: %u %u %u %u ", Socket, Channel, Dimm,
                (UINT32)((Slot.Slot & QOR_DIMM_MAP_SLOT_PRESENT) != 0));
  if (!Found) return EFI_UNSUPPORTED;

  // The memory map data describes QOR_MEMMAP_MAX_SOCKETS sockets; a slot on
  // a socket beyond them has no data and counts as not enabled.
  if (Socket >= QOR_MEMMAP_MAX_SOCKETS || MemoryMapData[QOR_MEMMAP_SOCKET_BASE(Socket) + QOR_MEMMAP_SOCKET_ENABLED] == 0) {
    QorDebugPrint(DEBUG_INFO, "Socket not enable\n");
    return EFI_UNSUPPORTED;
  }
  CONST UINT8 *DimmData = MemoryMapData + QOR_MEMMAP_DIMM_BASE(Socket, Channel, Dimm);
  if (DimmData[QOR_MEMMAP_DIMM_PRESENT] == 0) {
    QorDebugPrint(DEBUG_INFO, " Disabled or Not Present\n");
    return EFI_UNSUPPORTED;
  }
  QorDebugPrint(DEBUG_INFO, "OK\n");

  DimmEntry->DataOrigin = 0;
  DimmEntry->Status = 1;
  // The channel flag leaves the status at 1 as well.
  if (MemoryMapData[QOR_MEMMAP_CHANNEL_BASE(Socket, Channel) + QOR_MEMMAP_CHANNEL_FLAG] != 0) DimmEntry->Status = 1;
  DimmEntry->Socket = Socket;
  DimmEntry->Channel = Channel;
  DimmEntry->Dimm = Dimm;
  DimmEntry->Index = Slot.SlotIndex;
  DimmEntry->DimmType = QorSmbiosRead8(Type17Record, SMBIOS_TYPE17_MEMORY_TYPE);
  DimmEntry->OpeVoltage = MemoryMapData[QOR_MEMMAP_DDR_VOLTAGE_OFFSET];
  DimmEntry->DimmRanks = QorSmbiosRead8(Type17Record, SMBIOS_TYPE17_ATTRIBUTES);
  DimmEntry->VendorID = ReadField<UINT16>(DimmData, QOR_MEMMAP_DIMM_VENDOR_ID);
  DimmEntry->DimmSize = DimmSize(Type17Record, DimmData);
  DimmEntry->CurFrequency = QorSmbiosRead16(Type17Record, SMBIOS_TYPE17_CONFIGURED_SPEED);
  DimmEntry->MaxFrequency = QorSmbiosRead16(Type17Record, SMBIOS_TYPE17_SPEED);
  DimmEntry->DimmEcc = MemoryMapData[QOR_MEMMAP_ECC_ENABLED_OFFSET] != 0 ? 1 : 0;
  DimmEntry->HpprCount = DimmData[QOR_MEMMAP_DIMM_REPAIR_COUNT];
  DimmEntry->TotalWidth = QorSmbiosRead16(Type17Record, SMBIOS_TYPE17_TOTAL_WIDTH);
  DimmEntry->DataWidth = QorSmbiosRead16(Type17Record, SMBIOS_TYPE17_DATA_WIDTH);
  QorAsciiStrCopy(DimmEntry->DimmTech, sizeof(DimmEntry->DimmTech),
                  QorGetDimmTypeName(MemoryMapData, Socket, Channel, Dimm));
  CopyTrimmedString(DimmEntry->PartNumber, sizeof(DimmEntry->PartNumber), Type17Record, SMBIOS_TYPE17_PART_NUMBER);
  CopyTrimmedString(DimmEntry->SerialNumber, sizeof(DimmEntry->SerialNumber), Type17Record,
                    SMBIOS_TYPE17_SERIAL_NUMBER);
  DimmEntry->TypeDetail = QorRemapTypeDetail(QorSmbiosRead16(Type17Record, SMBIOS_TYPE17_TYPE_DETAIL));
  QorDebugPrint(DEBUG_INFO, "pDimmInfo->TypeDetail:0x%x\n", (UINT32)DimmEntry->TypeDetail);
  return EFI_SUCCESS;
}

EFI_STATUS QorFillDimmInfo(UPLOAD_SECTION *Section) {
  QorDebugPrint(DEBUG_INFO, "QorFillDimmInfo ---start\n");
  CONST QOR_DIMM_MAP_ENTRY *DimmMap = QorGetDimmMap();

  QOR_SMBIOS_RECORD_LIST Devices;
  EFI_STATUS Status = QorCollectSmbiosRecords(SMBIOS_TYPE_MEMORY_DEVICE, &Devices);
  if (EFI_ERROR(Status)) return Status;

  VOID *Hob = QorGetFirstGuidHob(&gQorMemoryMapHobGuid);
  CONST UINT8 *MemoryMapData = nullptr;
  if (Hob != nullptr && GET_GUID_HOB_DATA_SIZE(Hob) >= sizeof(UINT64)) {
    MemoryMapData = (CONST UINT8 *)(UINTN)ReadField<UINT64>((CONST UINT8 *)GET_GUID_HOB_DATA(Hob), 0);
  }
  if (MemoryMapData == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "No memory map found\n");
    return EFI_NOT_FOUND;
  }

  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_U32, "MaxDimm", QorCountPresentDimmSlots(DimmMap));
  QorWriterAppend(&W, QOR_FMT_KEY_ONLY, "InfoList");
  QorWriterAppend(&W, "[");
  for (UINTN I = 0; I < Devices.Count; I++) {
    DIMM_INFO_ENTRY Entry;
    QorZeroMem(&Entry, sizeof(Entry));
    if (EFI_ERROR(QorIsDimmAvaliable(MemoryMapData, DimmMap, Devices.Records[I], &Entry))) {
      QorDebugPrint(DEBUG_ERROR, "Failed to get dimm info\n");
      continue;
    }
    AppendDimmEntry(&W, &Entry);
  }
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "]");
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  return QorFinishSection(Section, W.Length);
}
