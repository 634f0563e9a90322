// SMBIOS records as the processor and memory sections read them: lists of
// one type through EFI_SMBIOS_PROTOCOL.GetNext, fields of the formatted
// area and strings of the string area.
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/uefi_lib.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {
// A string area is never longer than a structure table can be; the bound
// keeps a record without its double NUL from being walked forever.
constexpr UINTN kMaxStringAreaBytes = 0xFFFF;
}  // namespace

EFI_STATUS QorCollectSmbiosRecords(EFI_SMBIOS_TYPE Type, QOR_SMBIOS_RECORD_LIST *List) {
  List->Count = 0;
  EFI_SMBIOS_PROTOCOL *Smbios = nullptr;
  EFI_STATUS Status = QorLocateProtocol(&gEfiSmbiosProtocolGuid, (VOID **)&Smbios);
  if (EFI_ERROR(Status) || Smbios == nullptr) {
    if (!EFI_ERROR(Status)) Status = EFI_NOT_FOUND;
    QorDebugPrint(DEBUG_ERROR, "Failed to locate smbios protocol %r\n", Status);
    return Status;
  }
  EFI_SMBIOS_HANDLE Handle = SMBIOS_HANDLE_PI_RESERVED;
  while (List->Count < QOR_SMBIOS_RECORD_LIST_CAPACITY) {
    EFI_SMBIOS_TYPE WantedType = Type;
    EFI_SMBIOS_TABLE_HEADER *Record = nullptr;
    if (EFI_ERROR(Smbios->GetNext(Smbios, &Handle, &WantedType, &Record, nullptr)) || Record == nullptr) break;
    List->Records[List->Count++] = Record;
  }
  return EFI_SUCCESS;
}

CONST CHAR8 *QorGetSmbiosString(CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Number) {
  if (Record == nullptr || Number == 0) return nullptr;
  CONST CHAR8 *Text = (CONST CHAR8 *)Record + Record->Length;
  CONST CHAR8 *Limit = Text + kMaxStringAreaBytes;
  for (UINTN Current = 1; Text < Limit && *Text != '\0'; Current++) {
    UINTN Length = QorAsciiStrnLen(Text, (UINTN)(Limit - Text));
    if (Current == Number) return Text;
    Text += Length + 1;
  }
  return nullptr;
}

UINT8 QorSmbiosRead8(CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Offset) {
  if (Offset + 1 > Record->Length) return 0;
  return ((CONST UINT8 *)Record)[Offset];
}

UINT16 QorSmbiosRead16(CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Offset) {
  if (Offset + 2 > Record->Length) return 0;
  CONST UINT8 *Bytes = (CONST UINT8 *)Record + Offset;
  return (UINT16)(Bytes[0] | (Bytes[1] << 8));
}

UINT32 QorSmbiosRead32(CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Offset) {
  if (Offset + 4 > Record->Length) return 0;
  CONST UINT8 *Bytes = (CONST UINT8 *)Record + Offset;
  return (UINT32)Bytes[0] | ((UINT32)Bytes[1] << 8) | ((UINT32)Bytes[2] << 16) | ((UINT32)Bytes[3] << 24);
}
