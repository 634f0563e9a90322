// Formatted print of the firmware print library. Conversions: %a ASCII
// string, %s/%S UCS-2 string, %c character, %d %u %x %X (32-bit, 64-bit with
// l, L or ll), %p pointer, %g GUID, %r EFI_STATUS text, %% percent. Flags:
// '-' left justify, '0' zero pad, '+', ' ', ',' thousands; width and
// precision as numbers or '*'.
#ifndef QOR_PLATFORM_PRINT_LIB_H_
#define QOR_PLATFORM_PRINT_LIB_H_

#include "platform/uefi_base.h"

// Writes at most BufferSize - 1 characters plus a terminator; returns the
// characters written (without the terminator). BufferSize 0 writes nothing.
UINTN EFIAPI AsciiSPrint(CHAR8 *StartOfBuffer, UINTN BufferSize, CONST CHAR8 *FormatString, ...);
UINTN EFIAPI AsciiVSPrint(CHAR8 *StartOfBuffer, UINTN BufferSize, CONST CHAR8 *FormatString, VA_LIST Marker);

// UCS-2 output from an ASCII format; BufferSize is in bytes.
UINTN EFIAPI UnicodeSPrintAsciiFormat(CHAR16 *StartOfBuffer, UINTN BufferSize, CONST CHAR8 *FormatString, ...);
UINTN EFIAPI UnicodeVSPrintAsciiFormat(CHAR16 *StartOfBuffer, UINTN BufferSize, CONST CHAR8 *FormatString,
                                       VA_LIST Marker);

// The text %r prints for a status ("Success", "Not Found", ...), or NULL for
// a status without a name.
CONST CHAR8 *QorStatusText(EFI_STATUS Status);

#endif  // QOR_PLATFORM_PRINT_LIB_H_
