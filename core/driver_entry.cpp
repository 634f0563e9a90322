#include "core/section_fillers.h"
#include "core/upload_section.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/hob_lib.h"
#include "platform/memory_lib.h"

UINTN QorMrcHobDataSize(VOID) {
  if (MrcHobData == nullptr) return 0;
  return GET_GUID_HOB_DATA_SIZE((UINT8 *)MrcHobData - sizeof(EFI_HOB_GUID_TYPE));
}

EFI_STATUS EFIAPI QorUploadDataDxeEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE *SystemTable) {
  (VOID) ImageHandle;
  (VOID) SystemTable;
  QorDebugPrint(DEBUG_INFO, "QorUploadDataDxeEntryPoint --- start\n");

  VOID *MrcHob = QorGetFirstGuidHob(&gQorMrcDataHobGuid);
  if (MrcHob == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "Failed to get mrc hob data\n");
    return EFI_OUT_OF_RESOURCES;
  }
  MrcHobData = (UINT8 *)MrcHob + sizeof(EFI_HOB_GUID_TYPE);

  for (UINT32 I = 0; I < QOR_SECTION_COUNT; I++) {
    UPLOAD_SECTION *Section = &gQorUploadSections[I];
    Section->Filled = FALSE;
    Section->Buffer = nullptr;
    Section->Length = 0;
    Section->Index = I;
    CHAR8 *Buffer = (CHAR8 *)QorAllocateZeroPool((UINTN)Section->MaxSize);
    if (Buffer == nullptr) break;
    Section->Buffer = Buffer;
    TotalBufferSize += Section->MaxSize;
  }

  QorFillBiosVersion(&gQorUploadSections[QorSectionBiosVersion]);
  QorFillPchInfo(&gQorUploadSections[QorSectionPchInfo]);
  QorRegisterUploadEvents();

  QorDebugPrint(DEBUG_INFO, "QorUploadDataDxeEntryPoint --- finished\n");
  return EFI_SUCCESS;
}
