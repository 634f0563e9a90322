#include "platform/base_lib.h"

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
