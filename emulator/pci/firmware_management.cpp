#include "emulator/pci/firmware_management.h"

#include <cstring>

#include "emulator/device_path_util.h"
#include "emulator/firmware.h"
#include "platform/device_path.h"

namespace qor::emu {

namespace {

constexpr EFI_GUID kImageTypeId = {0x7A8B2C41, 0x51D3, 0x4E6F, {0x9A, 0x10, 0x3C, 0x5E, 0x7B, 0x21, 0x90, 0x4D}};

EFI_STATUS EFIAPI GetImageInfo(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *This, UINTN *ImageInfoSize,
                               EFI_FIRMWARE_IMAGE_DESCRIPTOR *ImageInfo, UINT32 *DescriptorVersion,
                               UINT8 *DescriptorCount, UINTN *DescriptorSize, UINT32 *PackageVersion,
                               CHAR16 **PackageVersionName) {
  if (Firmware::Current() != nullptr) Firmware::Current()->Count("FirmwareManagement.GetImageInfo");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return FirmwareManagementInstance::From(This)->GetImageInfo(ImageInfoSize, ImageInfo, DescriptorVersion,
                                                              DescriptorCount, DescriptorSize, PackageVersion,
                                                              PackageVersionName);
}
EFI_STATUS EFIAPI GetImage(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *, UINT8, VOID *, UINTN *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI SetImage(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *, UINT8, CONST VOID *, UINTN, CONST VOID *, VOID *,
                           CHAR16 **) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI CheckImage(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *, UINT8, CONST VOID *, UINTN, UINT32 *) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI GetPackageInfo(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *, UINT32 *, CHAR16 **, UINT32 *, UINT64 *,
                                 UINT64 *) {
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI SetPackageInfo(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *, CONST VOID *, UINTN, CONST VOID *, UINT32,
                                 CONST CHAR16 *) {
  return EFI_UNSUPPORTED;
}

template <typename Node>
void Header(Node &N, uint8_t Type, uint8_t SubType) {
  N.Header.Type = Type;
  N.Header.SubType = SubType;
  N.Header.Length[0] = sizeof(N);
}

// The child node a driver of this class puts below the function: an NVMe
// namespace for NVMe controllers, a MAC address for network controllers, a
// controller node otherwise; deeper levels are controller nodes.
std::vector<uint8_t> ChildPath(std::vector<uint8_t> Path, uint8_t ClassCode, uint8_t SubClass, size_t Index,
                               int Below) {
  for (int Level = 0; Level < Below; Level++) {
    if (Level == 0 && ClassCode == 0x01 && SubClass == 0x08) {
      NVME_NAMESPACE_DEVICE_PATH Node{};
      Header(Node, MESSAGING_DEVICE_PATH, MSG_NVME_NAMESPACE_DP);
      Node.NamespaceId = static_cast<UINT32>(Index + 1);
      Path = AppendDevicePathNode(Path, &Node, sizeof(Node));
    } else if (Level == 0 && ClassCode == 0x02) {
      MAC_ADDR_DEVICE_PATH Node{};
      Header(Node, MESSAGING_DEVICE_PATH, MSG_MAC_ADDR_DP);
      Node.MacAddress[5] = static_cast<UINT8>(Index);
      Node.IfType = 1;  // Ethernet
      Path = AppendDevicePathNode(Path, &Node, sizeof(Node));
    } else {
      CONTROLLER_DEVICE_PATH Node{};
      Header(Node, HARDWARE_DEVICE_PATH, HW_CONTROLLER_DP);
      Node.ControllerNumber = static_cast<UINT32>(Level == 0 ? Index : 0);
      Path = AppendDevicePathNode(Path, &Node, sizeof(Node));
    }
  }
  return Path;
}

}  // namespace

FirmwareManagementInstance::FirmwareManagementInstance(const FirmwareImageDef &Def,
                                                       const std::vector<uint8_t> &FunctionPath, uint16_t ClassAndSubClass,
                                                       size_t Index)
    : Def_(Def), VersionName_(Def.ImageVersionName.begin(), Def.ImageVersionName.end()) {
  Interface_.Owner = this;
  Interface_.Protocol = {qor::emu::GetImageInfo, GetImage, SetImage, CheckImage, GetPackageInfo, SetPackageInfo};
  Path_ = ChildPath(FunctionPath, static_cast<uint8_t>(ClassAndSubClass >> 8), ClassAndSubClass & 0xFF, Index, Def.Below);
}

FirmwareManagementInstance *FirmwareManagementInstance::From(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *This) {
  return reinterpret_cast<Interface *>(This)->Owner;
}

EFI_STATUS FirmwareManagementInstance::GetImageInfo(UINTN *ImageInfoSize, EFI_FIRMWARE_IMAGE_DESCRIPTOR *ImageInfo,
                                                    UINT32 *DescriptorVersion, UINT8 *DescriptorCount,
                                                    UINTN *DescriptorSize, UINT32 *PackageVersion,
                                                    CHAR16 **PackageVersionName) {
  bool First = Calls_++ == 0;
  if (First && Def_.FirstCallStatus) return *Def_.FirstCallStatus;
  if (!First && Def_.SecondCallStatus) return *Def_.SecondCallStatus;
  if (ImageInfoSize == nullptr) return EFI_INVALID_PARAMETER;
  if (*ImageInfoSize < sizeof(EFI_FIRMWARE_IMAGE_DESCRIPTOR)) {
    *ImageInfoSize = sizeof(EFI_FIRMWARE_IMAGE_DESCRIPTOR);
    return EFI_BUFFER_TOO_SMALL;
  }
  if (ImageInfo == nullptr || DescriptorVersion == nullptr || DescriptorCount == nullptr ||
      DescriptorSize == nullptr || PackageVersion == nullptr || PackageVersionName == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  std::memset(ImageInfo, 0, sizeof(*ImageInfo));
  ImageInfo->ImageIndex = 1;
  ImageInfo->ImageTypeId = kImageTypeId;
  ImageInfo->ImageId = 1;
  ImageInfo->ImageIdName = ImageIdName_.data();
  ImageInfo->Version = Def_.PackageVersion;
  ImageInfo->VersionName = VersionName_.data();
  *ImageInfoSize = sizeof(EFI_FIRMWARE_IMAGE_DESCRIPTOR);
  *DescriptorVersion = EFI_FIRMWARE_IMAGE_DESCRIPTOR_VERSION;
  *DescriptorCount = 1;
  *DescriptorSize = sizeof(EFI_FIRMWARE_IMAGE_DESCRIPTOR);
  *PackageVersion = Def_.PackageVersion;
  *PackageVersionName = nullptr;
  if (Def_.PackageVersionName) {
    std::u16string Name(Def_.PackageVersionName->begin(), Def_.PackageVersionName->end());
    void *Buffer = nullptr;
    size_t Bytes = (Name.size() + 1) * sizeof(CHAR16);
    if (Firmware::Current()->AllocatePool(EfiBootServicesData, Bytes, &Buffer) != EFI_SUCCESS) {
      return EFI_OUT_OF_RESOURCES;
    }
    std::memcpy(Buffer, Name.c_str(), Bytes);
    *PackageVersionName = static_cast<CHAR16 *>(Buffer);
  }
  return EFI_SUCCESS;
}

}  // namespace qor::emu
