// Standard protocols only the rig uses (UEFI and PI specifications), in
// their published layouts: the loaded image, the MP services, disk
// information, and the file path device path node.
#ifndef QOR_UEFI_RIG_RIG_PROTOCOLS_H_
#define QOR_UEFI_RIG_RIG_PROTOCOLS_H_

#include "platform/device_path.h"
#include "platform/uefi_tables.h"

// ---- EFI_LOADED_IMAGE_PROTOCOL (UEFI, "Loaded Image Protocol")
#define QOR_LOADED_IMAGE_PROTOCOL_GUID \
  {0x5B1B31A1, 0x9562, 0x11D2, {0x8E, 0x3F, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B}}
typedef struct {
  UINT32 Revision;
  EFI_HANDLE ParentHandle;
  EFI_SYSTEM_TABLE *SystemTable;
  EFI_HANDLE DeviceHandle;
  EFI_DEVICE_PATH_PROTOCOL *FilePath;
  VOID *Reserved;
  UINT32 LoadOptionsSize;
  VOID *LoadOptions;
  VOID *ImageBase;
  UINT64 ImageSize;
  EFI_MEMORY_TYPE ImageCodeType;
  EFI_MEMORY_TYPE ImageDataType;
  VOID *Unload;
} EFI_LOADED_IMAGE_PROTOCOL;
static_assert(offsetof(EFI_LOADED_IMAGE_PROTOCOL, ImageBase) == 64, "LoadedImage ImageBase");

// ---- File path media device path node (type 4, sub-type 4): UCS-2 path.
#define MEDIA_FILEPATH_DP 0x04

// ---- EFI_MP_SERVICES_PROTOCOL (PI, volume 2)
#define QOR_MP_SERVICES_PROTOCOL_GUID \
  {0x3FDDA605, 0xA76E, 0x4F46, {0xAD, 0x29, 0x12, 0xF4, 0x53, 0x1B, 0x3D, 0x08}}
typedef struct {
  UINT32 Package;
  UINT32 Core;
  UINT32 Thread;
} EFI_CPU_PHYSICAL_LOCATION;
typedef struct {
  UINT64 ProcessorId;
  UINT32 StatusFlag;
  EFI_CPU_PHYSICAL_LOCATION Location;
  UINT32 ExtendedInformation[6];  // EFI_CPU_PHYSICAL_LOCATION2, filled only on request
} EFI_PROCESSOR_INFORMATION;
typedef struct EFI_MP_SERVICES_PROTOCOL EFI_MP_SERVICES_PROTOCOL;
struct EFI_MP_SERVICES_PROTOCOL {
  EFI_STATUS(EFIAPI *GetNumberOfProcessors)(EFI_MP_SERVICES_PROTOCOL *This, UINTN *NumberOfProcessors,
                                            UINTN *NumberOfEnabledProcessors);
  EFI_STATUS(EFIAPI *GetProcessorInfo)(EFI_MP_SERVICES_PROTOCOL *This, UINTN ProcessorNumber,
                                       EFI_PROCESSOR_INFORMATION *ProcessorInfoBuffer);
  VOID *StartupAllAPs;
  VOID *StartupThisAP;
  VOID *SwitchBSP;
  VOID *EnableDisableAP;
  VOID *WhoAmI;
};

// ---- EFI_DISK_INFO_PROTOCOL (PI, volume 5)
#define QOR_DISK_INFO_PROTOCOL_GUID \
  {0xD432A67F, 0x14DC, 0x484B, {0xB3, 0xBB, 0x3F, 0x02, 0x91, 0x84, 0x93, 0x27}}
// Interface kinds: AHCI-attached drives answer with ATA IDENTIFY data.
#define QOR_DISK_INFO_AHCI_INTERFACE_GUID \
  {0x9E498932, 0x4ABC, 0x45AF, {0xA3, 0x4D, 0x02, 0x47, 0x78, 0x7B, 0xE7, 0xC6}}
typedef struct EFI_DISK_INFO_PROTOCOL EFI_DISK_INFO_PROTOCOL;
struct EFI_DISK_INFO_PROTOCOL {
  EFI_GUID Interface;
  EFI_STATUS(EFIAPI *Inquiry)(EFI_DISK_INFO_PROTOCOL *This, VOID *InquiryData, UINT32 *InquiryDataSize);
  EFI_STATUS(EFIAPI *Identify)(EFI_DISK_INFO_PROTOCOL *This, VOID *IdentifyData, UINT32 *IdentifyDataSize);
  EFI_STATUS(EFIAPI *SenseData)(EFI_DISK_INFO_PROTOCOL *This, VOID *SenseData, UINT32 *SenseDataSize,
                                UINT8 *SenseDataNumber);
  EFI_STATUS(EFIAPI *WhichIde)(EFI_DISK_INFO_PROTOCOL *This, UINT32 *IdeChannel, UINT32 *IdeDevice);
};

// SATA device path node (messaging, sub-type 0x12).
#define MSG_SATA_DP 0x12
#pragma pack(push, 1)
typedef struct {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT16 HBAPortNumber;
  UINT16 PortMultiplierPortNumber;
  UINT16 Lun;
} SATA_DEVICE_PATH;
#pragma pack(pop)

#endif  // QOR_UEFI_RIG_RIG_PROTOCOLS_H_
