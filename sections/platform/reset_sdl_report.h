// Reports to the BMC, as an SDL message over the qor ipmi protocol, why the
// firmware resets the machine on its own initiative.
#ifndef QOR_SECTIONS_PLATFORM_RESET_SDL_REPORT_H_
#define QOR_SECTIONS_PLATFORM_RESET_SDL_REPORT_H_

#include "platform/uefi_base.h"

// The SDL message: a fixed header followed by the packed field list.
#define QOR_SDL_HEADER_SIZE 25
// Largest packed field list: leading byte, count, then type, length and
// value bytes per field.
#define QOR_SDL_MAX_PAYLOAD_SIZE 234
// A field type with this bit set carries, in place of its value, an 8-byte
// pointer to the value.
#define QOR_SDL_TYPE_POINTER_VALUE 0x80

// IPMI request that carries the message.
#define QOR_SDL_IPMI_NET_FUNCTION 0x36
#define QOR_SDL_IPMI_LUN 0
#define QOR_SDL_IPMI_COMMAND 0x2A
#define QOR_SDL_IPMI_RESPONSE_SIZE 3

// Sends the reset message with the wake-up type from "QorWakeupType". Both
// arguments are accepted for the callers' convenience and not used.
VOID QorSendBiosInitiateResetSdl(UINT8 Reserved1, UINT8 Reserved2);

// Packs a field list (leading byte, field count n, n descriptors of type and
// length, then the values) behind the SDL header and sends it. A descriptor
// whose type has QOR_SDL_TYPE_POINTER_VALUE set has that bit cleared in Data.
EFI_STATUS QorSdlReport(UINT8 *Data);

// Submits one SDL message to the BMC.
EFI_STATUS QorSendSdlMsgWorker(UINT8 *Message, UINTN Size);

#endif  // QOR_SECTIONS_PLATFORM_RESET_SDL_REPORT_H_
