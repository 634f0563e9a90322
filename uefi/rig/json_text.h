// The work of the rig's json protocol: checking that a text is exactly one
// JSON value and reprinting it indented. Member order, duplicate keys and
// the text of every number are kept; the layout is four spaces per level,
// "key": value, one member or element per line, and "{}" / "[]" for empty
// containers; strings are reprinted with only the characters JSON requires
// escaped (control characters as \u00XX in upper-case hex, except \b \t \n
// \f \r). Freestanding: also built into the host tests.
#ifndef QOR_UEFI_RIG_JSON_TEXT_H_
#define QOR_UEFI_RIG_JSON_TEXT_H_

#include "platform/uefi_base.h"

// Containers nested deeper than this are refused (EFI_UNSUPPORTED): the
// walk keeps one small record per open container in a fixed table instead
// of using the firmware stack.
#define QOR_RIG_JSON_MAX_DEPTH 1024

// EFI_SUCCESS when Text (NUL-terminated) is one JSON value, optionally
// surrounded by white space; EFI_INVALID_PARAMETER otherwise.
EFI_STATUS QorRigJsonValidate(CONST CHAR8 *Text);

// Writes the indented form of Text and a terminator into Output.
// EFI_INVALID_PARAMETER for text that is not one JSON value,
// EFI_BUFFER_TOO_SMALL when it does not fit OutputSize bytes (terminator
// included).
EFI_STATUS QorRigJsonPrettyPrint(CONST CHAR8 *Text, CHAR8 *Output, UINTN OutputSize);

#endif  // QOR_UEFI_RIG_JSON_TEXT_H_
