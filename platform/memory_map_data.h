// Memory data left by the memory reference code: the memory map HOB (its
// data is a 64-bit pointer to the platform's memory map data, read at the
// fixed byte offsets below) and the DIMM map HOB (a table of slot entries).
// The driver and the emulator both use these layouts.
#ifndef QOR_PLATFORM_MEMORY_MAP_DATA_H_
#define QOR_PLATFORM_MEMORY_MAP_DATA_H_

#include "platform/uefi_base.h"

// ---- memory map data: offsets from the start of the block
#define QOR_MEMMAP_DDR_VOLTAGE_OFFSET 107
#define QOR_MEMMAP_ECC_ENABLED_OFFSET 32634
#define QOR_MEMMAP_SOCKET_STRIDE 6037
#define QOR_MEMMAP_CHANNEL_STRIDE 294
#define QOR_MEMMAP_DIMM_STRIDE 138
// Relative to the socket start (socket * QOR_MEMMAP_SOCKET_STRIDE).
#define QOR_MEMMAP_SOCKET_ENABLED 7286
// Relative to the channel start (socket start + channel * QOR_MEMMAP_CHANNEL_STRIDE).
#define QOR_MEMMAP_CHANNEL_FLAG 10971
// Relative to the DIMM start (channel start + dimm * QOR_MEMMAP_DIMM_STRIDE).
#define QOR_MEMMAP_DIMM_PRESENT 10989
#define QOR_MEMMAP_DIMM_SIZE_FLAG_A 10990
#define QOR_MEMMAP_DIMM_SIZE_FLAG_B 10991
#define QOR_MEMMAP_DIMM_KEY_TYPE 10995
#define QOR_MEMMAP_DIMM_MODULE_TYPE 10996
#define QOR_MEMMAP_DIMM_NVDIMM_FLAG 11005    // 32-bit
#define QOR_MEMMAP_DIMM_VENDOR_ID 11009      // 16-bit
#define QOR_MEMMAP_DIMM_PMEM_DEVICE_ID 11092  // 16-bit
#define QOR_MEMMAP_DIMM_SIZE 11115           // 32-bit, used shifted left by 10
#define QOR_MEMMAP_DIMM_REPAIR_COUNT 11123

// The layout describes this many sockets, channels per socket and DIMMs per
// channel; the block is at least QOR_MEMMAP_DATA_SIZE bytes.
#define QOR_MEMMAP_MAX_SOCKETS 4
#define QOR_MEMMAP_MAX_CHANNELS 8
#define QOR_MEMMAP_MAX_DIMMS 2
#define QOR_MEMMAP_DATA_SIZE 32768

#define QOR_MEMMAP_SOCKET_BASE(Socket) ((UINTN)(Socket) * QOR_MEMMAP_SOCKET_STRIDE)
#define QOR_MEMMAP_CHANNEL_BASE(Socket, Channel) \
  (QOR_MEMMAP_SOCKET_BASE(Socket) + (UINTN)(Channel) * QOR_MEMMAP_CHANNEL_STRIDE)
#define QOR_MEMMAP_DIMM_BASE(Socket, Channel, Dimm) \
  (QOR_MEMMAP_CHANNEL_BASE(Socket, Channel) + (UINTN)(Dimm) * QOR_MEMMAP_DIMM_STRIDE)

// DRAM key types.
#define QOR_DRAM_KEY_TYPE_DDR4 12
#define QOR_DRAM_KEY_TYPE_PMEM 13
#define QOR_DRAM_KEY_TYPE_DDR5 18

// ---- DIMM map: 9-byte entries, ended by an entry whose slot index is 0xFF.
#pragma pack(push, 1)
typedef struct {
  UINT8 Location;  // bits 0-2 socket, bits 3-5 channel, bits 6-7 DIMM in channel
  UINT8 SlotIndex;
  UINT8 Slot;      // bit 7 present, bits 0-6 the slot's printed number
  UINT8 Reserved;
  CHAR8 Label[5];  // NUL-padded
} QOR_DIMM_MAP_ENTRY;
#pragma pack(pop)
static_assert(sizeof(QOR_DIMM_MAP_ENTRY) == 9, "DIMM map entry");

#define QOR_DIMM_MAP_END_SLOT_INDEX 0xFF
#define QOR_DIMM_MAP_SLOT_PRESENT 0x80
#define QOR_DIMM_MAP_SLOT_NUMBER_MASK 0x7F
// A table is never read past this many entries.
#define QOR_DIMM_MAP_MAX_ENTRIES 255

#define QOR_DIMM_MAP_SOCKET(Entry) ((UINT8)((Entry)->Location & 0x7))
#define QOR_DIMM_MAP_CHANNEL(Entry) ((UINT8)(((Entry)->Location >> 3) & 0x7))
#define QOR_DIMM_MAP_DIMM(Entry) ((UINT8)(((Entry)->Location >> 6) & 0x3))
#define QOR_DIMM_MAP_LOCATION(Socket, Channel, Dimm) \
  ((UINT8)(((Socket) & 0x7) | (((Channel) & 0x7) << 3) | (((Dimm) & 0x3) << 6)))

#endif  // QOR_PLATFORM_MEMORY_MAP_DATA_H_
