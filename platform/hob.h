// Hand-off block headers (PI specification, volume 3) and the lookup the
// driver uses to find data left by the earlier boot phases.
#ifndef QOR_PLATFORM_HOB_H_
#define QOR_PLATFORM_HOB_H_

#include "platform/uefi_base.h"

#define EFI_HOB_TYPE_HANDOFF 0x0001
#define EFI_HOB_TYPE_MEMORY_ALLOCATION 0x0002
#define EFI_HOB_TYPE_RESOURCE_DESCRIPTOR 0x0003
#define EFI_HOB_TYPE_GUID_EXTENSION 0x0004
#define EFI_HOB_TYPE_UNUSED 0xFFFE
#define EFI_HOB_TYPE_END_OF_HOB_LIST 0xFFFF

typedef struct {
  UINT16 HobType;
  UINT16 HobLength;
  UINT32 Reserved;
} EFI_HOB_GENERIC_HEADER;
static_assert(sizeof(EFI_HOB_GENERIC_HEADER) == 8, "generic HOB header");

typedef struct {
  EFI_HOB_GENERIC_HEADER Header;
  EFI_GUID Name;
  // Data follows.
} EFI_HOB_GUID_TYPE;
static_assert(sizeof(EFI_HOB_GUID_TYPE) == 24, "GUID HOB header");

typedef struct {
  EFI_HOB_GENERIC_HEADER Header;
  UINT32 Version;
  UINT32 BootMode;
  EFI_PHYSICAL_ADDRESS EfiMemoryTop;
  EFI_PHYSICAL_ADDRESS EfiMemoryBottom;
  EFI_PHYSICAL_ADDRESS EfiFreeMemoryTop;
  EFI_PHYSICAL_ADDRESS EfiFreeMemoryBottom;
  EFI_PHYSICAL_ADDRESS EfiEndOfHobList;
} EFI_HOB_HANDOFF_INFO_TABLE;

#define GET_GUID_HOB_DATA(Hob) ((VOID *)((UINT8 *)(Hob) + sizeof(EFI_HOB_GUID_TYPE)))
#define GET_GUID_HOB_DATA_SIZE(Hob) \
  ((UINT16)(((EFI_HOB_GENERIC_HEADER *)(Hob))->HobLength - sizeof(EFI_HOB_GUID_TYPE)))

#endif  // QOR_PLATFORM_HOB_H_
