// Pool memory: every buffer of the driver comes from boot-services pool.
#ifndef QOR_PLATFORM_MEMORY_LIB_H_
#define QOR_PLATFORM_MEMORY_LIB_H_

#include "platform/uefi_base.h"

// EfiBootServicesData pool, zero-filled; NULL on failure.
VOID *QorAllocateZeroPool(UINTN Size);
// EfiBootServicesData pool, contents undefined; NULL on failure.
VOID *QorAllocatePool(UINTN Size);
VOID QorFreePool(VOID *Buffer);

#endif  // QOR_PLATFORM_MEMORY_LIB_H_
