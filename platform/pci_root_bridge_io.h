// EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL in its standard layout (UEFI specification,
// chapter "PCI Root Bridge I/O") and the ACPI address space descriptors its
// Configuration() returns (ACPI specification, "QWord Address Space
// Descriptor" and "End Tag").
#ifndef QOR_PLATFORM_PCI_ROOT_BRIDGE_IO_H_
#define QOR_PLATFORM_PCI_ROOT_BRIDGE_IO_H_

#include "platform/uefi_tables.h"

typedef enum {
  EfiPciWidthUint8,
  EfiPciWidthUint16,
  EfiPciWidthUint32,
  EfiPciWidthUint64,
  EfiPciWidthFifoUint8,
  EfiPciWidthFifoUint16,
  EfiPciWidthFifoUint32,
  EfiPciWidthFifoUint64,
  EfiPciWidthFillUint8,
  EfiPciWidthFillUint16,
  EfiPciWidthFillUint32,
  EfiPciWidthFillUint64,
  EfiPciWidthMaximum
} EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH;

typedef enum {
  EfiPciOperationBusMasterRead,
  EfiPciOperationBusMasterWrite,
  EfiPciOperationBusMasterCommonBuffer,
  EfiPciOperationBusMasterRead64,
  EfiPciOperationBusMasterWrite64,
  EfiPciOperationBusMasterCommonBuffer64,
  EfiPciOperationMaximum
} EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_OPERATION;

// Configuration address of Pci.Read/Write: register in bits 0-7 (or the
// extended register in bits 32-63 when bits 0-7 are 0), function, device, bus.
#define EFI_PCI_ADDRESS(Bus, Device, Function, Register)                                              \
  ((UINT64)((((UINTN)(Bus)) << 24) | (((UINTN)(Device)) << 16) | (((UINTN)(Function)) << 8) | \
            ((UINTN)(Register))))

typedef struct {
  UINT8 Register;
  UINT8 Function;
  UINT8 Device;
  UINT8 Bus;
  UINT32 ExtendedRegister;
} EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_PCI_ADDRESS;

typedef struct EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL;

typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_POLL_IO_MEM)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This,
                                                                       EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH Width,
                                                                       UINT64 Address, UINT64 Mask, UINT64 Value,
                                                                       UINT64 Delay, UINT64 *Result);
typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_IO_MEM)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This,
                                                                  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH Width,
                                                                  UINT64 Address, UINTN Count, VOID *Buffer);
typedef struct {
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_IO_MEM Read;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_IO_MEM Write;
} EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_ACCESS;
typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_COPY_MEM)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This,
                                                                    EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH Width,
                                                                    UINT64 DestAddress, UINT64 SrcAddress,
                                                                    UINTN Count);
typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_MAP)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This,
                                                               EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_OPERATION Operation,
                                                               VOID *HostAddress, UINTN *NumberOfBytes,
                                                               EFI_PHYSICAL_ADDRESS *DeviceAddress, VOID **Mapping);
typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_UNMAP)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This,
                                                                 VOID *Mapping);
typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_ALLOCATE_BUFFER)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This,
                                                                           EFI_ALLOCATE_TYPE Type,
                                                                           EFI_MEMORY_TYPE MemoryType, UINTN Pages,
                                                                           VOID **HostAddress, UINT64 Attributes);
typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_FREE_BUFFER)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This,
                                                                       UINTN Pages, VOID *HostAddress);
typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_FLUSH)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This);
typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_GET_ATTRIBUTES)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This,
                                                                          UINT64 *Supports, UINT64 *Attributes);
typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_SET_ATTRIBUTES)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This,
                                                                          UINT64 Attributes, UINT64 *ResourceBase,
                                                                          UINT64 *ResourceLength);
// Returns the bridge's current resources as ACPI address space descriptors
// ended by an end tag; EFI_UNSUPPORTED when the bridge cannot tell.
typedef EFI_STATUS(EFIAPI *EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_CONFIGURATION)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *This,
                                                                         VOID **Resources);

struct EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL {
  EFI_HANDLE ParentHandle;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_POLL_IO_MEM PollMem;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_POLL_IO_MEM PollIo;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_ACCESS Mem;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_ACCESS Io;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_ACCESS Pci;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_COPY_MEM CopyMem;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_MAP Map;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_UNMAP Unmap;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_ALLOCATE_BUFFER AllocateBuffer;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_FREE_BUFFER FreeBuffer;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_FLUSH Flush;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_GET_ATTRIBUTES GetAttributes;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_SET_ATTRIBUTES SetAttributes;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_CONFIGURATION Configuration;
  UINT32 SegmentNumber;
};
static_assert(offsetof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, Pci) == 56, "root bridge Pci accessors");
static_assert(offsetof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, Configuration) == 136, "root bridge Configuration");
static_assert(offsetof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, SegmentNumber) == 144, "root bridge SegmentNumber");

// ACPI resource descriptors.
#define ACPI_ADDRESS_SPACE_DESCRIPTOR 0x8A
#define ACPI_END_TAG_DESCRIPTOR 0x79
#define ACPI_ADDRESS_SPACE_TYPE_MEM 0x00
#define ACPI_ADDRESS_SPACE_TYPE_IO 0x01
#define ACPI_ADDRESS_SPACE_TYPE_BUS 0x02

#pragma pack(push, 1)
typedef struct {
  UINT8 Desc;      // ACPI_ADDRESS_SPACE_DESCRIPTOR
  UINT16 Len;      // bytes after this field: 0x2B
  UINT8 ResType;   // ACPI_ADDRESS_SPACE_TYPE_*
  UINT8 GenFlag;
  UINT8 SpecificFlag;
  UINT64 AddrSpaceGranularity;
  UINT64 AddrRangeMin;
  UINT64 AddrRangeMax;
  UINT64 AddrTranslationOffset;
  UINT64 AddrLen;
} EFI_ACPI_ADDRESS_SPACE_DESCRIPTOR;

typedef struct {
  UINT8 Desc;  // ACPI_END_TAG_DESCRIPTOR
  UINT8 Checksum;
} EFI_ACPI_END_TAG_DESCRIPTOR;
#pragma pack(pop)
static_assert(sizeof(EFI_ACPI_ADDRESS_SPACE_DESCRIPTOR) == 0x2E, "QWord address space descriptor");
#define ACPI_ADDRESS_SPACE_DESCRIPTOR_LENGTH (sizeof(EFI_ACPI_ADDRESS_SPACE_DESCRIPTOR) - 3)

#endif  // QOR_PLATFORM_PCI_ROOT_BRIDGE_IO_H_
