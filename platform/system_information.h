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
// SATA drive entries, 92 bytes each. As many entries as the drive-count PCD
// says; the count is 8 bits, so the list never reaches past
// QOR_SYSINFO_SATA_DRIVES_END.
#define QOR_SYSINFO_SATA_DRIVES_OFFSET 64314
#define QOR_SYSINFO_SATA_DRIVE_ENTRY_SIZE 92
#define QOR_SYSINFO_SATA_DRIVES_MAX 255
#define QOR_SYSINFO_SATA_DRIVES_END \
  (QOR_SYSINFO_SATA_DRIVES_OFFSET + QOR_SYSINFO_SATA_DRIVES_MAX * QOR_SYSINFO_SATA_DRIVE_ENTRY_SIZE)

// IIO stack table: which buses each stack decodes and where its root port
// sits. A count byte, then QOR_SYSINFO_STACK_MAX entries (unused ones have
// Valid 0). The driver matches a device's segment and bus against the
// valid entries to find the root port above it.
#define QOR_SYSINFO_STACK_COUNT_OFFSET 2048
#define QOR_SYSINFO_STACK_TABLE_OFFSET 2052
#define QOR_SYSINFO_STACK_MAX 64
#pragma pack(push, 1)
typedef struct {
  UINT8 Valid;           // 1: the stack exists
  UINT8 Reserved;
  UINT16 Segment;        // PCI segment the stack's buses belong to
  UINT8 RootPortBus;     // location of the stack's root port
  UINT8 RootPortDevice;
  UINT8 RootPortFunction;
  UINT8 BusBase;         // first and last bus the stack decodes
  UINT8 BusLimit;
  UINT8 Reserved2[3];
} QOR_IIO_STACK_ENTRY;
#pragma pack(pop)
static_assert(sizeof(QOR_IIO_STACK_ENTRY) == 12, "IIO stack entry is 12 bytes");
#define QOR_SYSINFO_STACK_TABLE_END (QOR_SYSINFO_STACK_TABLE_OFFSET + QOR_SYSINFO_STACK_MAX * 12)

// Link speed index values.
#define QOR_SATA_SPEED_UNKNOWN 0
#define QOR_SATA_SPEED_1_5G 1
#define QOR_SATA_SPEED_3G 2
#define QOR_SATA_SPEED_6G 3
// Media type: solid state; any other value is a rotating disk.
#define QOR_SATA_MEDIA_SSD 1

// Text fields are NUL-terminated ASCII within their width.
#pragma pack(push, 1)
typedef struct {
  UINT8 Present;          // 0: no drive, the entry is skipped
  UINT8 Reserved;
  UINT8 PortIndex;        // matched against the custom protocol's port records
  CHAR8 Model[41];
  CHAR8 FwVersion[9];
  CHAR8 Capacity[12];     // capacity as text, e.g. "480GB"
  UINT8 SpeedIndex;       // QOR_SATA_SPEED_*
  UINT16 MediaType;       // QOR_SATA_MEDIA_SSD or another value
  UINT16 FormFactor;
  CHAR8 SerialNumber[22];
} QOR_SATA_DRIVE_ENTRY;
#pragma pack(pop)
static_assert(sizeof(QOR_SATA_DRIVE_ENTRY) == QOR_SYSINFO_SATA_DRIVE_ENTRY_SIZE, "SATA drive entry is 92 bytes");
static_assert(offsetof(QOR_SATA_DRIVE_ENTRY, FwVersion) == 44, "SATA FwVersion at 44");
static_assert(offsetof(QOR_SATA_DRIVE_ENTRY, Capacity) == 53, "SATA Capacity at 53");
static_assert(offsetof(QOR_SATA_DRIVE_ENTRY, SpeedIndex) == 65, "SATA SpeedIndex at 65");
static_assert(offsetof(QOR_SATA_DRIVE_ENTRY, MediaType) == 66, "SATA MediaType at 66");
static_assert(offsetof(QOR_SATA_DRIVE_ENTRY, FormFactor) == 68, "SATA FormFactor at 68");
static_assert(offsetof(QOR_SATA_DRIVE_ENTRY, SerialNumber) == 70, "SATA SerialNumber at 70");

// IIO topology: which root port each bus range belongs to, what kind of
// port it is and how many device-path levels each switch level below it
// adds. A count byte, then 14-byte entries; a port index of 0xFFFF ends it.
#define QOR_SYSINFO_IIO_TOPOLOGY_COUNT_OFFSET 61104
#define QOR_SYSINFO_IIO_TOPOLOGY_OFFSET 61106
#define QOR_IIO_PORTS_PER_SOCKET 57
#define QOR_IIO_PORT_INDEX_END 0xFFFF
#define QOR_IIO_PORT_KIND_PCH 2
#define QOR_IIO_PORT_KIND_NO_SWITCH_WALK 3
#pragma pack(push, 1)
typedef struct {
  UINT16 PortIndex;      // over all sockets: socket = index / 57, port = index % 57
  UINT8 Present;
  UINT8 Slot;            // slot number of the root port
  UINT8 PortKind;        // QOR_IIO_PORT_KIND_*; other values follow the switch-level rules
  UINT8 Segment;
  UINT8 Bus;             // bus of the root port, first bus of the range
  UINT8 Function;
  UINT8 Device;
  UINT8 Reserved;
  UINT8 LastBus;
  UINT8 SwitchLevel[3];  // bit 0: the level exists; bits 3:1: device-path nodes it adds
} QOR_IIO_TOPOLOGY_ENTRY;
#pragma pack(pop)
static_assert(sizeof(QOR_IIO_TOPOLOGY_ENTRY) == 14, "IIO topology entry is 14 bytes");
// Room for every port of four sockets; a count byte above it still reads
// inside the block.
#define QOR_SYSINFO_IIO_TOPOLOGY_MAX 229
#define QOR_SYSINFO_IIO_TOPOLOGY_END (QOR_SYSINFO_IIO_TOPOLOGY_OFFSET + QOR_SYSINFO_IIO_TOPOLOGY_MAX * 14)
static_assert(QOR_SYSINFO_IIO_TOPOLOGY_END <= QOR_SYSINFO_SATA_DRIVES_OFFSET, "IIO topology ends before the SATA drives");

// GPU list: a count byte, then 19-byte entries. The platform keeps room for
// QOR_SYSINFO_GPU_MAX entries; the driver stores at most one past the 32 it
// counts (the count check follows the store).
#define QOR_SYSINFO_GPU_COUNT_OFFSET 88000
#define QOR_SYSINFO_GPU_TABLE_OFFSET 88004
#define QOR_SYSINFO_GPU_MAX 33
#pragma pack(push, 1)
typedef struct {
  UINT32 Slot;
  UINT8 Bus;
  UINT8 Dev;
  UINT8 Func;
  UINT16 VendorID;
  UINT16 DeviceID;
  UINT16 SubVendorID;
  UINT16 SubDeviceID;
  UINT8 PCIeGen;
  UINT8 LinkSpeed;
  UINT8 CardBandWidth;
  UINT8 LinkWidth;
} QOR_GPU_ENTRY;
#pragma pack(pop)
static_assert(sizeof(QOR_GPU_ENTRY) == 19, "GPU entry is 19 bytes");
static_assert(QOR_SYSINFO_GPU_COUNT_OFFSET >= QOR_SYSINFO_SATA_DRIVES_END, "GPU list follows the SATA drives");

// The data block, located through the system information protocol on every
// call and kept in a module-wide cache that other readers may use; NULL when
// the protocol or its data pointer is missing.
VOID *QorLocateSystemInformationBlock(VOID);
// The cached block (located on first use).
VOID *QorCachedSystemInformationBlock(VOID);
VOID QorSystemInformationLibInit(VOID);

#endif  // QOR_PLATFORM_SYSTEM_INFORMATION_H_
