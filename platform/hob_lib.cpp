#include "platform/hob_lib.h"

#include "platform/base_lib.h"
#include "platform/guids.h"
#include "platform/uefi_lib.h"

namespace {
VOID *gHobList = nullptr;
// A HOB list is never this long on a real machine; the bound keeps a
// corrupted list from being walked forever.
constexpr UINTN kMaxHobsWalked = 0x100000;
}  // namespace

VOID QorHobLibInit(VOID) {
  gHobList = nullptr;
  if (gST == nullptr || gST->ConfigurationTable == nullptr) return;
  for (UINTN I = 0; I < gST->NumberOfTableEntries; I++) {
    if (QorCompareGuid(&gST->ConfigurationTable[I].VendorGuid, &gEfiHobListGuid)) {
      gHobList = gST->ConfigurationTable[I].VendorTable;
      return;
    }
  }
}

VOID *QorGetHobList(VOID) { return gHobList; }

VOID *QorGetFirstGuidHob(CONST EFI_GUID *Guid) {
  UINT8 *Hob = (UINT8 *)gHobList;
  if (Hob == nullptr) return nullptr;
  for (UINTN Walked = 0; Walked < kMaxHobsWalked; Walked++) {
    EFI_HOB_GENERIC_HEADER *Header = (EFI_HOB_GENERIC_HEADER *)Hob;
    if (Header->HobType == EFI_HOB_TYPE_END_OF_HOB_LIST || Header->HobLength < sizeof(EFI_HOB_GENERIC_HEADER)) {
      return nullptr;
    }
    if (Header->HobType == EFI_HOB_TYPE_GUID_EXTENSION && Header->HobLength >= sizeof(EFI_HOB_GUID_TYPE) &&
        QorCompareGuid(&((EFI_HOB_GUID_TYPE *)Hob)->Name, Guid)) {
      return Hob;
    }
    Hob += Header->HobLength;
  }
  return nullptr;
}
