// A VROC device info protocol instance: the packed record (platform/vroc.h)
// the VROC driver publishes for one NVMe drive behind a VMD, built from the
// hidden function's configuration space, the port above it, the drive's
// description and the handle that carries its device path.
#ifndef QOR_EMULATOR_VMD_VROC_DEVICE_INFO_H_
#define QOR_EMULATOR_VMD_VROC_DEVICE_INFO_H_

#include <cstdint>
#include <string>
#include <vector>

#include "emulator/vmd/vmd_domain.h"
#include "platform/uefi_base.h"

namespace qor::emu {

class VrocDeviceInfo {
 public:
  VrocDeviceInfo(const VmdDomain &Domain, size_t Hidden, EFI_HANDLE DriveHandle);
  VrocDeviceInfo(const VrocDeviceInfo &) = delete;
  VrocDeviceInfo &operator=(const VrocDeviceInfo &) = delete;

  void *Interface() { return Record_.data(); }
  const std::vector<uint8_t> &Record() const { return Record_; }

 private:
  std::vector<uint8_t> Record_;
  std::u16string Serial_;
  std::u16string Model_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_VMD_VROC_DEVICE_INFO_H_
