// Device path nodes the PCI tree is described with (UEFI specification,
// chapter "Device Path Protocol"): an ACPI node for the host bridge, one PCI
// node per level below it, the End node. Nodes are packed byte records.
#ifndef QOR_PLATFORM_DEVICE_PATH_H_
#define QOR_PLATFORM_DEVICE_PATH_H_

#include "platform/uefi_tables.h"

#define HARDWARE_DEVICE_PATH 0x01
#define HW_PCI_DP 0x01
#define HW_VENDOR_DP 0x04
#define HW_CONTROLLER_DP 0x05
#define ACPI_DEVICE_PATH 0x02
#define ACPI_DP 0x01
#define ACPI_EXTENDED_DP 0x02
#define MESSAGING_DEVICE_PATH 0x03
#define MSG_MAC_ADDR_DP 0x0B
#define MSG_NVME_NAMESPACE_DP 0x17
#define MEDIA_DEVICE_PATH 0x04
#define END_DEVICE_PATH_TYPE 0x7F
#define END_ENTIRE_DEVICE_PATH_SUBTYPE 0xFF
#define END_INSTANCE_DEVICE_PATH_SUBTYPE 0x01

// Compressed EISA ids: PNP0A03 (PCI host bridge), PNP0A08 (PCI Express).
#define EISA_PNP_ID(Id) ((UINT32)(((Id) << 16) | 0x41D0))
#define EISA_ID_TO_NUM(Id) ((Id) >> 16)
#define EISA_PNP_PCI_ROOT 0x0A03
#define EISA_PNP_PCIE_ROOT 0x0A08

#pragma pack(push, 1)
typedef struct {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 HID;
  UINT32 UID;
} ACPI_HID_DEVICE_PATH;

typedef struct {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT8 Function;
  UINT8 Device;
} PCI_DEVICE_PATH;

typedef struct {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 ControllerNumber;
} CONTROLLER_DEVICE_PATH;

typedef struct {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 NamespaceId;
  UINT64 NamespaceUuid;
} NVME_NAMESPACE_DEVICE_PATH;

typedef struct {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT8 MacAddress[32];
  UINT8 IfType;
} MAC_ADDR_DEVICE_PATH;
#pragma pack(pop)
static_assert(sizeof(ACPI_HID_DEVICE_PATH) == 12, "ACPI node is 12 bytes");
static_assert(sizeof(PCI_DEVICE_PATH) == 6, "PCI node is 6 bytes");
static_assert(sizeof(CONTROLLER_DEVICE_PATH) == 8, "Controller node is 8 bytes");
static_assert(sizeof(NVME_NAMESPACE_DEVICE_PATH) == 16, "NVMe namespace node is 16 bytes");
static_assert(sizeof(MAC_ADDR_DEVICE_PATH) == 37, "MAC node is 37 bytes");

#endif  // QOR_PLATFORM_DEVICE_PATH_H_
