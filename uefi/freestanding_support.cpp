// Symbols the compiler may call on its own in the freestanding firmware
// image (block copies and clears of structures).
#include <stddef.h>

extern "C" {

void *memcpy(void *Destination, const void *Source, size_t Length) {
  unsigned char *To = (unsigned char *)Destination;
  const unsigned char *From = (const unsigned char *)Source;
  while (Length-- != 0) *To++ = *From++;
  return Destination;
}

void *memmove(void *Destination, const void *Source, size_t Length) {
  unsigned char *To = (unsigned char *)Destination;
  const unsigned char *From = (const unsigned char *)Source;
  if (To < From) {
    while (Length-- != 0) *To++ = *From++;
  } else {
    while (Length != 0) {
      Length--;
      To[Length] = From[Length];
    }
  }
  return Destination;
}

void *memset(void *Buffer, int Value, size_t Length) {
  volatile unsigned char *To = (volatile unsigned char *)Buffer;
  while (Length-- != 0) *To++ = (unsigned char)Value;
  return Buffer;
}

int memcmp(const void *Left, const void *Right, size_t Length) {
  const unsigned char *A = (const unsigned char *)Left;
  const unsigned char *B = (const unsigned char *)Right;
  for (size_t I = 0; I < Length; I++) {
    if (A[I] != B[I]) return A[I] - B[I];
  }
  return 0;
}

}  // extern "C"
