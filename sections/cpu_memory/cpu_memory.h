// Helpers shared by the processor and memory sections.
#ifndef QOR_SECTIONS_CPU_MEMORY_CPU_MEMORY_H_
#define QOR_SECTIONS_CPU_MEMORY_CPU_MEMORY_H_

#include "platform/uefi_base.h"

// The system topology's chop-type byte of a socket, or 255 when the
// socket's record is not valid (or the socket is out of range).
UINT8 QorGetChopType(UINT32 Socket);

#endif  // QOR_SECTIONS_CPU_MEMORY_CPU_MEMORY_H_
