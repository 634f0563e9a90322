#include "platform/memory_lib.h"

#include "platform/base_lib.h"
#include "platform/uefi_lib.h"

VOID *QorAllocatePool(UINTN Size) {
  VOID *Buffer = nullptr;
  if (gBS == nullptr) return nullptr;
  if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, Size, &Buffer))) return nullptr;
  return Buffer;
}

VOID *QorAllocateZeroPool(UINTN Size) {
  VOID *Buffer = QorAllocatePool(Size);
  if (Buffer != nullptr) QorZeroMem(Buffer, Size);
  return Buffer;
}

VOID QorFreePool(VOID *Buffer) {
  if (Buffer != nullptr && gBS != nullptr) gBS->FreePool(Buffer);
}
