// EFI_PCI_IO_PROTOCOL in its standard layout (UEFI specification, chapter
// "PCI I/O Protocol"), member by member, so the image runs on real firmware.
#ifndef QOR_PLATFORM_PCI_IO_H_
#define QOR_PLATFORM_PCI_IO_H_

#include "platform/uefi_tables.h"

typedef enum {
  EfiPciIoWidthUint8,
  EfiPciIoWidthUint16,
  EfiPciIoWidthUint32,
  EfiPciIoWidthUint64,
  EfiPciIoWidthFifoUint8,
  EfiPciIoWidthFifoUint16,
  EfiPciIoWidthFifoUint32,
  EfiPciIoWidthFifoUint64,
  EfiPciIoWidthFillUint8,
  EfiPciIoWidthFillUint16,
  EfiPciIoWidthFillUint32,
  EfiPciIoWidthFillUint64,
  EfiPciIoWidthMaximum
} EFI_PCI_IO_PROTOCOL_WIDTH;

typedef enum {
  EfiPciIoOperationBusMasterRead,
  EfiPciIoOperationBusMasterWrite,
  EfiPciIoOperationBusMasterCommonBuffer,
  EfiPciIoOperationMaximum
} EFI_PCI_IO_PROTOCOL_OPERATION;

typedef enum {
  EfiPciIoAttributeOperationGet,
  EfiPciIoAttributeOperationSet,
  EfiPciIoAttributeOperationEnable,
  EfiPciIoAttributeOperationDisable,
  EfiPciIoAttributeOperationSupported,
  EfiPciIoAttributeOperationMaximum
} EFI_PCI_IO_PROTOCOL_ATTRIBUTE_OPERATION;

#define EFI_PCI_IO_PASS_THROUGH_BAR 0xFF

typedef struct EFI_PCI_IO_PROTOCOL EFI_PCI_IO_PROTOCOL;

typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_POLL_IO_MEM)(EFI_PCI_IO_PROTOCOL *This,
                                                           EFI_PCI_IO_PROTOCOL_WIDTH Width, UINT8 BarIndex,
                                                           UINT64 Offset, UINT64 Mask, UINT64 Value, UINT64 Delay,
                                                           UINT64 *Result);
typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_IO_MEM)(EFI_PCI_IO_PROTOCOL *This, EFI_PCI_IO_PROTOCOL_WIDTH Width,
                                                      UINT8 BarIndex, UINT64 Offset, UINTN Count, VOID *Buffer);
typedef struct {
  EFI_PCI_IO_PROTOCOL_IO_MEM Read;
  EFI_PCI_IO_PROTOCOL_IO_MEM Write;
} EFI_PCI_IO_PROTOCOL_ACCESS;

typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_CONFIG)(EFI_PCI_IO_PROTOCOL *This, EFI_PCI_IO_PROTOCOL_WIDTH Width,
                                                      UINT32 Offset, UINTN Count, VOID *Buffer);
typedef struct {
  EFI_PCI_IO_PROTOCOL_CONFIG Read;
  EFI_PCI_IO_PROTOCOL_CONFIG Write;
} EFI_PCI_IO_PROTOCOL_CONFIG_ACCESS;

typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_COPY_MEM)(EFI_PCI_IO_PROTOCOL *This, EFI_PCI_IO_PROTOCOL_WIDTH Width,
                                                        UINT8 DestBarIndex, UINT64 DestOffset, UINT8 SrcBarIndex,
                                                        UINT64 SrcOffset, UINTN Count);
typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_MAP)(EFI_PCI_IO_PROTOCOL *This, EFI_PCI_IO_PROTOCOL_OPERATION Operation,
                                                   VOID *HostAddress, UINTN *NumberOfBytes,
                                                   EFI_PHYSICAL_ADDRESS *DeviceAddress, VOID **Mapping);
typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_UNMAP)(EFI_PCI_IO_PROTOCOL *This, VOID *Mapping);
typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_ALLOCATE_BUFFER)(EFI_PCI_IO_PROTOCOL *This, EFI_ALLOCATE_TYPE Type,
                                                               EFI_MEMORY_TYPE MemoryType, UINTN Pages,
                                                               VOID **HostAddress, UINT64 Attributes);
typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_FREE_BUFFER)(EFI_PCI_IO_PROTOCOL *This, UINTN Pages,
                                                           VOID *HostAddress);
typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_FLUSH)(EFI_PCI_IO_PROTOCOL *This);
typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_GET_LOCATION)(EFI_PCI_IO_PROTOCOL *This, UINTN *SegmentNumber,
                                                            UINTN *BusNumber, UINTN *DeviceNumber,
                                                            UINTN *FunctionNumber);
typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_ATTRIBUTES)(EFI_PCI_IO_PROTOCOL *This,
                                                          EFI_PCI_IO_PROTOCOL_ATTRIBUTE_OPERATION Operation,
                                                          UINT64 Attributes, UINT64 *Result);
typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_GET_BAR_ATTRIBUTES)(EFI_PCI_IO_PROTOCOL *This, UINT8 BarIndex,
                                                                  UINT64 *Supports, VOID **Resources);
typedef EFI_STATUS(EFIAPI *EFI_PCI_IO_PROTOCOL_SET_BAR_ATTRIBUTES)(EFI_PCI_IO_PROTOCOL *This, UINT64 Attributes,
                                                                  UINT8 BarIndex, UINT64 *Offset, UINT64 *Length);

struct EFI_PCI_IO_PROTOCOL {
  EFI_PCI_IO_PROTOCOL_POLL_IO_MEM PollMem;
  EFI_PCI_IO_PROTOCOL_POLL_IO_MEM PollIo;
  EFI_PCI_IO_PROTOCOL_ACCESS Mem;
  EFI_PCI_IO_PROTOCOL_ACCESS Io;
  EFI_PCI_IO_PROTOCOL_CONFIG_ACCESS Pci;
  EFI_PCI_IO_PROTOCOL_COPY_MEM CopyMem;
  EFI_PCI_IO_PROTOCOL_MAP Map;
  EFI_PCI_IO_PROTOCOL_UNMAP Unmap;
  EFI_PCI_IO_PROTOCOL_ALLOCATE_BUFFER AllocateBuffer;
  EFI_PCI_IO_PROTOCOL_FREE_BUFFER FreeBuffer;
  EFI_PCI_IO_PROTOCOL_FLUSH Flush;
  EFI_PCI_IO_PROTOCOL_GET_LOCATION GetLocation;
  EFI_PCI_IO_PROTOCOL_ATTRIBUTES Attributes;
  EFI_PCI_IO_PROTOCOL_GET_BAR_ATTRIBUTES GetBarAttributes;
  EFI_PCI_IO_PROTOCOL_SET_BAR_ATTRIBUTES SetBarAttributes;
  UINT64 RomSize;
  VOID *RomImage;
};
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, Pci) == 48, "PciIo Pci");
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, GetLocation) == 112, "PciIo GetLocation");
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, RomImage) == 152, "PciIo RomImage");

#endif  // QOR_PLATFORM_PCI_IO_H_
