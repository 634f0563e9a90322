// EFI_FIRMWARE_MANAGEMENT_PROTOCOL and the image descriptor its GetImageInfo
// returns (UEFI specification, chapter "Firmware Management Protocol").
#ifndef QOR_PLATFORM_FIRMWARE_MANAGEMENT_H_
#define QOR_PLATFORM_FIRMWARE_MANAGEMENT_H_

#include "platform/uefi_tables.h"

#define EFI_FIRMWARE_IMAGE_DESCRIPTOR_VERSION 4

typedef struct {
  UINT8 ImageIndex;
  EFI_GUID ImageTypeId;
  UINT64 ImageId;
  CHAR16 *ImageIdName;
  UINT32 Version;
  CHAR16 *VersionName;
  UINTN Size;
  UINT64 AttributesSupported;
  UINT64 AttributesSetting;
  UINT64 Compatibilities;
  UINT32 LowestSupportedImageVersion;
  UINT32 LastAttemptVersion;
  UINT32 LastAttemptStatus;
  UINT64 HardwareInstance;
  VOID *Dependencies;
} EFI_FIRMWARE_IMAGE_DESCRIPTOR;

typedef struct EFI_FIRMWARE_MANAGEMENT_PROTOCOL EFI_FIRMWARE_MANAGEMENT_PROTOCOL;

typedef EFI_STATUS(EFIAPI *EFI_FIRMWARE_MANAGEMENT_PROTOCOL_GET_IMAGE_INFO)(
    EFI_FIRMWARE_MANAGEMENT_PROTOCOL *This, UINTN *ImageInfoSize, EFI_FIRMWARE_IMAGE_DESCRIPTOR *ImageInfo,
    UINT32 *DescriptorVersion, UINT8 *DescriptorCount, UINTN *DescriptorSize, UINT32 *PackageVersion,
    CHAR16 **PackageVersionName);
typedef EFI_STATUS(EFIAPI *EFI_FIRMWARE_MANAGEMENT_PROTOCOL_GET_IMAGE)(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *This,
                                                                      UINT8 ImageIndex, VOID *Image,
                                                                      UINTN *ImageSize);
typedef EFI_STATUS(EFIAPI *EFI_FIRMWARE_MANAGEMENT_PROTOCOL_SET_IMAGE)(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *This,
                                                                      UINT8 ImageIndex, CONST VOID *Image,
                                                                      UINTN ImageSize, CONST VOID *VendorCode,
                                                                      VOID *Progress, CHAR16 **AbortReason);
typedef EFI_STATUS(EFIAPI *EFI_FIRMWARE_MANAGEMENT_PROTOCOL_CHECK_IMAGE)(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *This,
                                                                        UINT8 ImageIndex, CONST VOID *Image,
                                                                        UINTN ImageSize, UINT32 *ImageUpdatable);
typedef EFI_STATUS(EFIAPI *EFI_FIRMWARE_MANAGEMENT_PROTOCOL_GET_PACKAGE_INFO)(
    EFI_FIRMWARE_MANAGEMENT_PROTOCOL *This, UINT32 *PackageVersion, CHAR16 **PackageVersionName,
    UINT32 *PackageVersionNameMaxLen, UINT64 *AttributesSupported, UINT64 *AttributesSetting);
typedef EFI_STATUS(EFIAPI *EFI_FIRMWARE_MANAGEMENT_PROTOCOL_SET_PACKAGE_INFO)(
    EFI_FIRMWARE_MANAGEMENT_PROTOCOL *This, CONST VOID *Image, UINTN ImageSize, CONST VOID *VendorCode,
    UINT32 PackageVersion, CONST CHAR16 *PackageVersionName);

struct EFI_FIRMWARE_MANAGEMENT_PROTOCOL {
  EFI_FIRMWARE_MANAGEMENT_PROTOCOL_GET_IMAGE_INFO GetImageInfo;
  EFI_FIRMWARE_MANAGEMENT_PROTOCOL_GET_IMAGE GetImage;
  EFI_FIRMWARE_MANAGEMENT_PROTOCOL_SET_IMAGE SetImage;
  EFI_FIRMWARE_MANAGEMENT_PROTOCOL_CHECK_IMAGE CheckImage;
  EFI_FIRMWARE_MANAGEMENT_PROTOCOL_GET_PACKAGE_INFO GetPackageInfo;
  EFI_FIRMWARE_MANAGEMENT_PROTOCOL_SET_PACKAGE_INFO SetPackageInfo;
};

#endif  // QOR_PLATFORM_FIRMWARE_MANAGEMENT_H_
