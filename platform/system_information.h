// Layout of the platform data block behind the system information protocol
// (its first member points to the block). Offsets are fixed by the platform
// code that fills it; the driver and the emulator both use these.
#ifndef QOR_PLATFORM_SYSTEM_INFORMATION_H_
#define QOR_PLATFORM_SYSTEM_INFORMATION_H_

#include "platform/uefi_base.h"

// 32-bit bit map of populated CPU sockets.
#define QOR_SYSINFO_CPU_BIT_MAP_OFFSET 1336
// NUL-terminated UCS-2 processor stepping text.
#define QOR_SYSINFO_STEPPING_TEXT_OFFSET 1348
#define QOR_SYSINFO_STEPPING_TEXT_MAX_CHARS 32
// SATA drive entries, 92 bytes each.
#define QOR_SYSINFO_SATA_DRIVES_OFFSET 64314
#define QOR_SYSINFO_SATA_DRIVE_ENTRY_SIZE 92

// The data block, located through the system information protocol on every
// call and kept in a module-wide cache that other readers may use; NULL when
// the protocol or its data pointer is missing.
VOID *QorLocateSystemInformationBlock(VOID);
// The cached block (located on first use).
VOID *QorCachedSystemInformationBlock(VOID);
VOID QorSystemInformationLibInit(VOID);

#endif  // QOR_PLATFORM_SYSTEM_INFORMATION_H_
