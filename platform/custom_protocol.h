// Layout of the qor custom protocol: the platform's board description. Its
// interface is the data block itself; offsets are fixed by the platform code
// that fills it, and the driver and the emulator both use these.
#ifndef QOR_PLATFORM_CUSTOM_PROTOCOL_H_
#define QOR_PLATFORM_CUSTOM_PROTOCOL_H_

#include "platform/uefi_base.h"

// On-board SATA ports: a fixed list of 13-byte records, one per port the
// board can have. Unused records carry QOR_SATA_PORT_NONE.
#define QOR_CUSTOM_SATA_PORT_LIST_OFFSET 17568
#define QOR_CUSTOM_SATA_PORT_COUNT 16
#define QOR_SATA_PORT_NONE 0xFF
#define QOR_SATA_SLOT_NAME_SIZE 12

#pragma pack(push, 1)
typedef struct {
  UINT8 PortIndex;                          // logical port index, QOR_SATA_PORT_NONE when unused
  CHAR8 SlotName[QOR_SATA_SLOT_NAME_SIZE];  // physical slot name, NUL-terminated
} QOR_SATA_PORT_INFO;
#pragma pack(pop)
static_assert(sizeof(QOR_SATA_PORT_INFO) == 13, "SATA port record is 13 bytes");

#define QOR_CUSTOM_SATA_PORT_LIST_END \
  (QOR_CUSTOM_SATA_PORT_LIST_OFFSET + QOR_CUSTOM_SATA_PORT_COUNT * sizeof(QOR_SATA_PORT_INFO))

// M.2 socket names: three NUL-terminated names of at most 12 characters in
// 13-byte fields: the name of slot 251, then the first and the second choice
// for slot 252 (the second is used when the first is empty).
#define QOR_CUSTOM_M2_NAMES_OFFSET 17792
#define QOR_CUSTOM_M2_NAME_SIZE 13
#define QOR_CUSTOM_M2_SLOT251_NAME 0
#define QOR_CUSTOM_M2_SLOT252_FIRST_NAME 1
#define QOR_CUSTOM_M2_SLOT252_SECOND_NAME 2
static_assert(QOR_CUSTOM_M2_NAMES_OFFSET >= QOR_CUSTOM_SATA_PORT_LIST_END, "M.2 names follow the SATA ports");

#endif  // QOR_PLATFORM_CUSTOM_PROTOCOL_H_
