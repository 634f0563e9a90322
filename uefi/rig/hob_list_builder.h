// A HOB list extended by GUID HOBs: the firmware's list is copied (its PHIT
// first, as every list starts), the new HOBs follow, then the end HOB. The
// copy replaces the firmware's list in the configuration table, so a driver
// started afterwards finds both the firmware's HOBs and the new ones.
// Freestanding: also built into the host tests.
#ifndef QOR_UEFI_RIG_HOB_LIST_BUILDER_H_
#define QOR_UEFI_RIG_HOB_LIST_BUILDER_H_

#include "platform/hob.h"

typedef struct {
  CONST EFI_GUID *Name;
  CONST VOID *Data;
  UINTN Size;
} QOR_RIG_GUID_HOB;

// Largest data a GUID HOB can carry (its length is 16 bits, 8-byte aligned).
#define QOR_RIG_MAX_GUID_HOB_DATA (0xFFF8 - sizeof(EFI_HOB_GUID_TYPE))

// Bytes of List up to and including its end HOB; 0 when no end HOB is met
// within MaxBytes or a HOB is shorter than its header.
UINTN QorRigHobListSize(CONST VOID *List, UINTN MaxBytes);

// Bytes the extended list takes; 0 when a HOB's data is too large.
UINTN QorRigExtendedHobListSize(UINTN OriginalSize, CONST QOR_RIG_GUID_HOB *Hobs, UINTN Count);

// Writes the extended list into Out (8-byte aligned, OutSize bytes) and
// points the PHIT's end-of-list at the new end HOB. Returns the bytes
// written, 0 when OriginalSize is not a valid list size or Out is too small.
UINTN QorRigBuildHobList(CONST VOID *Original, UINTN OriginalSize, CONST QOR_RIG_GUID_HOB *Hobs, UINTN Count,
                         VOID *Out, UINTN OutSize);

#endif  // QOR_UEFI_RIG_HOB_LIST_BUILDER_H_
