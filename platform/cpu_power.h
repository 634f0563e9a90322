// The CPU power protocol's data: the interface's first member points to a
// packed block whose 64-bit member right after the first 32-bit word points
// to a table of per-socket values; socket i's TDP (watts) is the 32-bit
// value at QOR_CPU_POWER_TDP_OFFSET + 4 * i of that table.
#ifndef QOR_PLATFORM_CPU_POWER_H_
#define QOR_PLATFORM_CPU_POWER_H_

#include "platform/uefi_base.h"

#pragma pack(push, 1)
typedef struct {
  UINT32 Header;
  UINT64 SocketTable;  // address of the per-socket table
} QOR_CPU_POWER_BLOCK;
#pragma pack(pop)
static_assert(offsetof(QOR_CPU_POWER_BLOCK, SocketTable) == 4, "CPU power table pointer");

#define QOR_CPU_POWER_TDP_OFFSET 24
// The table holds entries for this many sockets.
#define QOR_CPU_POWER_MAX_SOCKETS 4
#define QOR_CPU_POWER_TABLE_SIZE (QOR_CPU_POWER_TDP_OFFSET + 4 * QOR_CPU_POWER_MAX_SOCKETS)

#endif  // QOR_PLATFORM_CPU_POWER_H_
