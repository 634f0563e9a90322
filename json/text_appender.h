// Rules for writing JSON text key by key into a fixed buffer.
#ifndef QOR_JSON_TEXT_APPENDER_H_
#define QOR_JSON_TEXT_APPENDER_H_

#include "platform/uefi_base.h"

// The largest Size one append may use; a larger remainder is clamped to it.
#define QOR_APPEND_SIZE_LIMIT 0x80000ULL

// Formatted append at Destination (buffer start + current length) with Size
// (buffer size - current length) clamped to QOR_APPEND_SIZE_LIMIT. Returns the
// characters written, without the terminator.
UINT32 EFIAPI QorAppendText(CHAR8 *Destination, UINT64 Size, CONST CHAR8 *Format, ...);

// Steps Length back over one trailing ',' (the comma is then overwritten by
// the next append). Looks at exactly one character.
VOID QorDropTrailingComma(CONST CHAR8 *Buffer, UINT64 *Length);

// Key/value formats, each one member followed by a comma.
#define QOR_FMT_KEY_U32 "\"%a\":%u,"
#define QOR_FMT_KEY_U64 "\"%a\":%llu,"
#define QOR_FMT_KEY_STR "\"%a\":\"%a\","
#define QOR_FMT_KEY_TRUE "\"%a\":true,"
#define QOR_FMT_KEY_FALSE "\"%a\":false,"
#define QOR_FMT_KEY_ONLY "\"%a\":"
#define QOR_FMT_KEY_JSON "\"%a\":%a,"

// A writer over one buffer: start, size and current length.
struct QOR_TEXT_WRITER {
  CHAR8 *Buffer;
  UINT64 Size;
  UINT64 Length;
};

VOID QorWriterInit(QOR_TEXT_WRITER *Writer, CHAR8 *Buffer, UINT64 Size);
// Appends at the writer's length with the clamped append; a writer without a
// buffer writes nothing.
VOID EFIAPI QorWriterAppend(QOR_TEXT_WRITER *Writer, CONST CHAR8 *Format, ...);
VOID QorWriterDropComma(QOR_TEXT_WRITER *Writer);

#endif  // QOR_JSON_TEXT_APPENDER_H_
