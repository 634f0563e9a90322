// Symbols the compiler may call on its own in the freestanding firmware
// image (block copies and clears of structures). They are the driver's
// memory library under the C names; that library is written in string
// instructions, so none of these can be turned back into a call of itself.
#include <stddef.h>

#include "platform/base_lib.h"

extern "C" {

void *memcpy(void *Destination, const void *Source, size_t Length) {
  return QorCopyMem(Destination, Source, Length);
}

void *memmove(void *Destination, const void *Source, size_t Length) {
  return QorCopyMem(Destination, Source, Length);
}

void *memset(void *Buffer, int Value, size_t Length) { return QorSetMem(Buffer, Length, (UINT8)Value); }

int memcmp(const void *Left, const void *Right, size_t Length) {
  return (int)QorCompareMem(Left, Right, Length);
}

}  // extern "C"
