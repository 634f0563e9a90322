// The driver's one debug-print routine.
#ifndef QOR_PLATFORM_DEBUG_LOG_H_
#define QOR_PLATFORM_DEBUG_LOG_H_

#include "platform/uefi_base.h"

#define DEBUG_INFO 0x00000040ULL
#define DEBUG_VERBOSE 0x00400000ULL
#define DEBUG_ERROR 0x80000000ULL
// Levels that reach the log: a line is printed when its level shares a bit
// with this mask.
#define QOR_DEBUG_PRINT_LEVEL_MASK 0x80000046ULL
#define QOR_MODULE_NAME "QorUploadDataDxe"

// Locates the debug print service once; called by the library constructors.
VOID QorDebugLogInit(VOID);

// Prints through the debug print service when the level is enabled and the
// current TPL is at most TPL_NOTIFY; without the service nothing is printed.
VOID EFIAPI QorDebugPrint(UINTN ErrorLevel, CONST CHAR8 *Format, ...);

#endif  // QOR_PLATFORM_DEBUG_LOG_H_
