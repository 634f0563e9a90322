// The nic db protocol: the platform's table of network cards by slot. Its
// interface is a table of 8-byte members; member 1 returns the NIC entry of
// a slot (or NULL). The entry is a byte record; the offsets below are the
// ones the platform code that fills it uses.
#ifndef QOR_PLATFORM_NIC_DB_H_
#define QOR_PLATFORM_NIC_DB_H_

#include "platform/uefi_base.h"

struct QOR_NIC_DB_PROTOCOL;
typedef VOID *(EFIAPI *QOR_NIC_DB_GET_ENTRY)(QOR_NIC_DB_PROTOCOL *This, UINT32 Slot);
struct QOR_NIC_DB_PROTOCOL {
  VOID *Member0;
  QOR_NIC_DB_GET_ENTRY GetNicEntry;  // index 1
};
static_assert(offsetof(QOR_NIC_DB_PROTOCOL, GetNicEntry) == 8, "nic db member 1");

#define QOR_NIC_ENTRY_ONBOARD_OFFSET 4        // UINT8, 1 = on board
#define QOR_NIC_ENTRY_PORT_COUNT_OFFSET 16    // UINT32
#define QOR_NIC_ENTRY_PORT_STRIDE 200
// Per port i, at offset + QOR_NIC_ENTRY_PORT_STRIDE * i:
#define QOR_NIC_PORT_LOCATION_OFFSET 28       // UINT32: bus 23:16, device 15:8, function 7:0
#define QOR_NIC_PORT_DESC_OFFSET 48           // NUL-terminated ASCII
#define QOR_NIC_PORT_DESC_SIZE 144            // room up to the MAC address
#define QOR_NIC_PORT_MAC_OFFSET 192           // 6 bytes
// Size of an entry with N ports.
#define QOR_NIC_ENTRY_SIZE(N) (28 + QOR_NIC_ENTRY_PORT_STRIDE * (N))

#endif  // QOR_PLATFORM_NIC_DB_H_
