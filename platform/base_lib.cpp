#include "platform/base_lib.h"

VOID *QorCopyMem(VOID *Destination, CONST VOID *Source, UINTN Length) {
  UINT8 *To = (UINT8 *)Destination;
  CONST UINT8 *From = (CONST UINT8 *)Source;
  if (To == From || Length == 0) return Destination;
  if (To < From || To >= From + Length) {
    for (UINTN I = 0; I < Length; I++) To[I] = From[I];
  } else {
    for (UINTN I = Length; I > 0; I--) To[I - 1] = From[I - 1];
  }
  return Destination;
}

VOID *QorSetMem(VOID *Buffer, UINTN Length, UINT8 Value) {
  volatile UINT8 *To = (volatile UINT8 *)Buffer;
  for (UINTN I = 0; I < Length; I++) To[I] = Value;
  return Buffer;
}

VOID *QorZeroMem(VOID *Buffer, UINTN Length) { return QorSetMem(Buffer, Length, 0); }

INTN QorCompareMem(CONST VOID *Left, CONST VOID *Right, UINTN Length) {
  CONST UINT8 *A = (CONST UINT8 *)Left;
  CONST UINT8 *B = (CONST UINT8 *)Right;
  for (UINTN I = 0; I < Length; I++) {
    if (A[I] != B[I]) return (INTN)A[I] - (INTN)B[I];
  }
  return 0;
}

BOOLEAN QorCompareGuid(CONST EFI_GUID *Left, CONST EFI_GUID *Right) {
  return QorCompareMem(Left, Right, sizeof(EFI_GUID)) == 0 ? TRUE : FALSE;
}

UINTN QorAsciiStrLen(CONST CHAR8 *Text) {
  UINTN Length = 0;
  if (Text == nullptr) return 0;
  while (Text[Length] != '\0') Length++;
  return Length;
}

UINTN QorAsciiStrnLen(CONST CHAR8 *Text, UINTN MaxLength) {
  UINTN Length = 0;
  if (Text == nullptr) return 0;
  while (Length < MaxLength && Text[Length] != '\0') Length++;
  return Length;
}

UINTN QorStrLen(CONST CHAR16 *Text) {
  UINTN Length = 0;
  if (Text == nullptr) return 0;
  while (Text[Length] != 0) Length++;
  return Length;
}

INTN QorAsciiStrCmp(CONST CHAR8 *Left, CONST CHAR8 *Right) {
  while (*Left != '\0' && *Left == *Right) {
    Left++;
    Right++;
  }
  return (INTN)(UINT8)*Left - (INTN)(UINT8)*Right;
}

CONST CHAR8 *QorAsciiStrStr(CONST CHAR8 *Haystack, CONST CHAR8 *Needle) {
  if (Haystack == nullptr || Needle == nullptr) return nullptr;
  if (*Needle == '\0') return Haystack;
  for (; *Haystack != '\0'; Haystack++) {
    UINTN I = 0;
    while (Needle[I] != '\0' && Haystack[I] == Needle[I]) I++;
    if (Needle[I] == '\0') return Haystack;
  }
  return nullptr;
}

VOID QorAsciiStrCopy(CHAR8 *Destination, UINTN DestinationSize, CONST CHAR8 *Source) {
  if (Destination == nullptr || DestinationSize == 0) return;
  UINTN I = 0;
  if (Source != nullptr) {
    for (; I + 1 < DestinationSize && Source[I] != '\0'; I++) Destination[I] = Source[I];
  }
  Destination[I] = '\0';
}
