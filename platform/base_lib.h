// Memory and string helpers of the freestanding driver.
#ifndef QOR_PLATFORM_BASE_LIB_H_
#define QOR_PLATFORM_BASE_LIB_H_

#include "platform/uefi_base.h"

// Memory (base_memory_lib.cpp); copy, set and zero return their first
// argument. Copies Length bytes; source and destination may overlap either way.
VOID *QorCopyMem(VOID *Destination, CONST VOID *Source, UINTN Length);
VOID *QorSetMem(VOID *Buffer, UINTN Length, UINT8 Value);
VOID *QorZeroMem(VOID *Buffer, UINTN Length);
// 0 when equal, else the first differing byte of Left minus that of Right.
INTN QorCompareMem(CONST VOID *Left, CONST VOID *Right, UINTN Length);
BOOLEAN QorCompareGuid(CONST EFI_GUID *Left, CONST EFI_GUID *Right);

// Strings (base_lib.cpp).
UINTN QorAsciiStrLen(CONST CHAR8 *Text);
// Length bounded by MaxLength (characters examined).
UINTN QorAsciiStrnLen(CONST CHAR8 *Text, UINTN MaxLength);
UINTN QorStrLen(CONST CHAR16 *Text);
INTN QorAsciiStrCmp(CONST CHAR8 *Left, CONST CHAR8 *Right);
// First occurrence of Needle in Haystack, or NULL.
CONST CHAR8 *QorAsciiStrStr(CONST CHAR8 *Haystack, CONST CHAR8 *Needle);
// Copies at most DestinationSize - 1 characters and always terminates when
// DestinationSize is not 0.
VOID QorAsciiStrCopy(CHAR8 *Destination, UINTN DestinationSize, CONST CHAR8 *Source);

#endif  // QOR_PLATFORM_BASE_LIB_H_
