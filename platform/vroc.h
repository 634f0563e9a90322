// VROC device info protocol: one instance per NVMe drive behind a VMD. The
// interface is a packed byte record; the driver reads these offsets.
#ifndef QOR_PLATFORM_VROC_H_
#define QOR_PLATFORM_VROC_H_

#include "platform/uefi_base.h"

#define QOR_VROC_CPU_SOCKET 0          // UINT8
#define QOR_VROC_SLOT 24               // UINT32 physical slot number
#define QOR_VROC_BUS 28                // UINT64
#define QOR_VROC_DEVICE 36             // UINT64
#define QOR_VROC_FUNCTION 44           // UINT64
#define QOR_VROC_VENDOR_ID 52          // UINT16
#define QOR_VROC_SERIAL_NUMBER 54      // CHAR16 *
#define QOR_VROC_MODEL 62              // CHAR16 *
#define QOR_VROC_BLOCK_COUNT 70        // UINT64
#define QOR_VROC_BLOCK_SIZE 78         // UINT32, bytes
#define QOR_VROC_RAID_MEMBER 82        // UINT8
#define QOR_VROC_DRIVE_HANDLE 85       // EFI_HANDLE
#define QOR_VROC_DEVICE_ID 93          // UINT16
#define QOR_VROC_SUBSYSTEM_VENDOR 95   // UINT16
#define QOR_VROC_SUBSYSTEM_ID 97       // UINT16
#define QOR_VROC_PROG_IF 99            // UINT8
#define QOR_VROC_SUB_CLASS 100         // UINT8
#define QOR_VROC_BASE_CLASS 101        // UINT8
#define QOR_VROC_FIRMWARE_REVISION 103 // CHAR8 text, up to the root port bytes
#define QOR_VROC_FIRMWARE_REVISION_SIZE 9
#define QOR_VROC_ROOT_PORT_BUS 112     // UINT8
#define QOR_VROC_ROOT_PORT_DEVICE 113  // UINT8
#define QOR_VROC_ROOT_PORT_FUNCTION 114  // UINT8
#define QOR_VROC_SEGMENT 115           // UINT64
#define QOR_VROC_INFO_SIZE 123

#endif  // QOR_PLATFORM_VROC_H_
