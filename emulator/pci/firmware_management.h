// EFI_FIRMWARE_MANAGEMENT_PROTOCOL instances of device drivers: one image
// descriptor each, on a handle whose device path lies Below nodes under a PCI
// function's path (0: on the function's own handle). GetImageInfo behaves as
// the UEFI specification says: called with a size too small it returns
// EFI_BUFFER_TOO_SMALL and the size needed; called with room it fills the
// descriptor and hands back the package version name in pool memory that the
// caller frees. Board faults replace either call's result.
#ifndef QOR_EMULATOR_PCI_FIRMWARE_MANAGEMENT_H_
#define QOR_EMULATOR_PCI_FIRMWARE_MANAGEMENT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "emulator/pci/board_pci.h"
#include "platform/firmware_management.h"

namespace qor::emu {

class FirmwareManagementInstance {
 public:
  // FunctionPath: the PCI function's device path; Index: the instance's
  // position among the function's instances (keeps sibling paths distinct);
  // ClassAndSubClass: base class << 8 | sub-class, which picks the child node.
  FirmwareManagementInstance(const FirmwareImageDef &Def, const std::vector<uint8_t> &FunctionPath,
                             uint16_t ClassAndSubClass, size_t Index);
  FirmwareManagementInstance(const FirmwareManagementInstance &) = delete;
  FirmwareManagementInstance &operator=(const FirmwareManagementInstance &) = delete;

  EFI_FIRMWARE_MANAGEMENT_PROTOCOL *Protocol() { return &Interface_.Protocol; }
  EFI_DEVICE_PATH_PROTOCOL *DevicePath() { return reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(Path_.data()); }
  bool OnFunctionHandle() const { return Def_.Below == 0; }
  uint64_t GetImageInfoCalls() const { return Calls_; }

  EFI_STATUS GetImageInfo(UINTN *ImageInfoSize, EFI_FIRMWARE_IMAGE_DESCRIPTOR *ImageInfo, UINT32 *DescriptorVersion,
                          UINT8 *DescriptorCount, UINTN *DescriptorSize, UINT32 *PackageVersion,
                          CHAR16 **PackageVersionName);
  static FirmwareManagementInstance *From(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *This);

 private:
  struct Interface {
    EFI_FIRMWARE_MANAGEMENT_PROTOCOL Protocol;
    FirmwareManagementInstance *Owner;
  };
  Interface Interface_{};
  FirmwareImageDef Def_;
  std::vector<uint8_t> Path_;
  std::u16string ImageIdName_ = u"Firmware";
  std::u16string VersionName_;
  uint64_t Calls_ = 0;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_FIRMWARE_MANAGEMENT_H_
