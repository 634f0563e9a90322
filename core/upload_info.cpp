// Assembly of the fourteen sections into one document, validation and
// pretty printing through the json protocol, and the send to the BMC.
#include "core/upload_section.h"
#include "json/text_appender.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"

namespace {
CONST CHAR8 kDumpBegin[] = "================ JSON DUMP BEGIN ===============\n";
CONST CHAR8 kDumpFinish[] = "\n================ JSON DUMP FINISH ===============\n";
// The debug log takes lines of limited size; long texts go out in pieces.
constexpr UINTN kLogPieceLength = 254;
}  // namespace

VOID DumpJsonToLog(CHAR8 *Text, UINTN Length) {
  if (Length <= kLogPieceLength + 1) {
    QorDebugPrint(DEBUG_INFO, "%a", Text);
    return;
  }
  UINTN Offset = 0;
  do {
    CHAR8 Saved = Text[Offset + kLogPieceLength];
    Text[Offset + kLogPieceLength] = '\0';
    QorDebugPrint(DEBUG_INFO, "%a", Text + Offset);
    Text[Offset + kLogPieceLength] = Saved;
    Offset += kLogPieceLength;
  } while (Offset + kLogPieceLength + 1 < Length);
  if (Offset < Length) QorDebugPrint(DEBUG_INFO, "%a", Text + Offset);
}

EFI_STATUS QorProcJsonBeforeSend(CHAR8 *Text, UINTN TextLength, CHAR8 **OutBuffer) {
  QorDebugPrint(DEBUG_INFO, "QorProcJsonBeforeSend ---start\n");
  QOR_JSON_PROTOCOL *Json = nullptr;
  EFI_STATUS Status = QorLocateProtocol(&gQorJsonProtocolGuid, (VOID **)&Json);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "Failed to locate json protocol %r\n", Status);
    return Status;
  }
  UINTN PrettySize = (UINTN)(4 * TotalBufferSize);
  CHAR8 *Pretty = (CHAR8 *)QorAllocateZeroPool(PrettySize);
  if (Pretty == nullptr) return EFI_OUT_OF_RESOURCES;
  Status = Json->PrettyPrint(Json, Text, PrettySize, Pretty);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "Json pretty print failed %r\n", Status);
    QorDebugPrint(DEBUG_INFO, kDumpBegin);
    DumpJsonToLog(Text, TextLength);
    QorDebugPrint(DEBUG_INFO, kDumpFinish);
    QorFreePool(Pretty);
    return Status;
  }
  *OutBuffer = Pretty;
  return EFI_SUCCESS;
}

EFI_STATUS QorUploadInfoData(VOID) {
  QorDebugPrint(DEBUG_INFO, "QorUploadInfoData ---start(%u)\n", (UINT32)TotalBufferSize);

  QOR_JSON_PROTOCOL *Json = nullptr;
  EFI_STATUS Status = QorLocateProtocol(&gQorJsonProtocolGuid, (VOID **)&Json);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "Failed to locate json protocol %r\n", Status);
    return Status;
  }
  QOR_QUICK_TRANS_PROTOCOL *QuickTrans = nullptr;
  Status = QorLocateProtocol(&gQorQuickTransProtocolGuid, (VOID **)&QuickTrans);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "Failed to locate quick trans protocol %r\n", Status);
    return Status;
  }

  // Without any section buffer (the first allocation at entry failed) there
  // is no room even for a terminator: nothing can be assembled.
  CHAR8 *Assembly = TotalBufferSize == 0 ? nullptr : (CHAR8 *)QorAllocateZeroPool((UINTN)TotalBufferSize);
  if (Assembly == nullptr) return EFI_OUT_OF_RESOURCES;

  UINT64 Length = QorAppendText(Assembly, TotalBufferSize, "{");
  for (UINT32 I = 0; I < QOR_SECTION_COUNT; I++) {
    UPLOAD_SECTION *Section = &gQorUploadSections[I];
    CONST CHAR8 *Value = "{}";
    if (Section->Buffer != nullptr && Section->Buffer[0] != '\0') {
      Status = Json->Validate(Json, Section->Buffer);
      if (!EFI_ERROR(Status)) {
        Value = Section->Buffer;
      } else {
        QorDebugPrint(DEBUG_ERROR, "Update data <%a> invalid json %r\n", Section->Name, Status);
        QorDebugPrint(DEBUG_INFO, kDumpBegin);
        DumpJsonToLog(Section->Buffer, (UINTN)Section->Length);
        QorDebugPrint(DEBUG_INFO, kDumpFinish);
      }
    }
    Length += QorAppendText(Assembly + Length, TotalBufferSize - Length, QOR_FMT_KEY_JSON, Section->Name, Value);
  }
  QorDropTrailingComma(Assembly, &Length);
  Length += QorAppendText(Assembly + Length, TotalBufferSize - Length, "}");

  CHAR8 *Pretty = nullptr;
  Status = QorProcJsonBeforeSend(Assembly, (UINTN)Length, &Pretty);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "Json proc failed %r\n", Status);
    QorFreePool(Assembly);
    return Status;
  }
  QorFreePool(Assembly);

  UINTN TextLength = QorAsciiStrLen(Pretty);
  Pretty[TextLength] = '\n';
  UINTN Size = TextLength + 1;
  UINT32 Crc32 = 0;
  gBS->CalculateCrc32(Pretty, Size, &Crc32);
  QorDebugPrint(DEBUG_INFO, "Upload bios info data: [size %lu] [Crc32 0x%08X]\n", (UINT64)Size, Crc32);

  Status = QuickTrans->SendFile("push_BiosBeforeBoot.json", 0, (UINT32)Size, Pretty);
  QorDebugPrint(DEBUG_INFO, "Upload bios info to BMC %r\n", Status);

  QorFreePool(Pretty);
  DataUploaded = TRUE;
  return EFI_SUCCESS;
}
