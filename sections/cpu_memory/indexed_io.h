// One byte read through the index/data I/O port trio.
#ifndef QOR_SECTIONS_CPU_MEMORY_INDEXED_IO_H_
#define QOR_SECTIONS_CPU_MEMORY_INDEXED_IO_H_

#include "platform/uefi_base.h"

// Selects Index (low byte, then high byte) and reads the data port into
// *Byte. EFI_INVALID_PARAMETER when Byte is NULL.
EFI_STATUS QorReadIndexedIo(UINT16 Index, UINT8 *Byte);

#endif  // QOR_SECTIONS_CPU_MEMORY_INDEXED_IO_H_
