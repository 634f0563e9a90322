#include "platform/debug_log.h"

#include "platform/guids.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"

namespace {
QOR_DEBUG_PRINT_SERVICE *gDebugPrintService = nullptr;
}

VOID QorDebugLogInit(VOID) {
  gDebugPrintService = nullptr;
  VOID *Interface = nullptr;
  if (!EFI_ERROR(QorLocateProtocol(&gQorDebugPrintServiceGuid, &Interface))) {
    gDebugPrintService = (QOR_DEBUG_PRINT_SERVICE *)Interface;
  }
}

VOID EFIAPI QorDebugPrint(UINTN ErrorLevel, CONST CHAR8 *Format, ...) {
  if ((ErrorLevel & QOR_DEBUG_PRINT_LEVEL_MASK) == 0 || gDebugPrintService == nullptr || gBS == nullptr) return;
  // The current TPL is learnt by raising to the top and restoring at once.
  EFI_TPL Current = gBS->RaiseTPL(TPL_HIGH_LEVEL);
  gBS->RestoreTPL(Current);
  if (Current > TPL_NOTIFY) return;

  VA_LIST Marker;
  VA_START(Marker, Format);
  if (gDebugPrintService->Revision > QOR_DEBUG_PRINT_MODULE_REVISION) {
    if (gDebugPrintService->DebugPrintModule != nullptr) {
      gDebugPrintService->DebugPrintModule(ErrorLevel, QOR_MODULE_NAME, Format, Marker);
    }
  } else if (gDebugPrintService->DebugPrint != nullptr) {
    gDebugPrintService->DebugPrint(ErrorLevel, Format, Marker);
  }
  VA_END(Marker);
}
