// The driver image on the host: the shared library loaded afresh for every
// boot, so module globals start from their initial values as in a newly
// loaded image.
#ifndef QOR_EMULATOR_DRIVER_IMAGE_H_
#define QOR_EMULATOR_DRIVER_IMAGE_H_

#include <string>

#include "platform/uefi_tables.h"

namespace qor::emu {

typedef EFI_STATUS(EFIAPI *ImageEntryPoint)(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE *SystemTable);

class DriverImage {
 public:
  // Path of the built driver library (QOR_DRIVER_IMAGE overrides it).
  static std::string DefaultPath();

  explicit DriverImage(const std::string &Path);  // throws std::runtime_error
  ~DriverImage();
  DriverImage(const DriverImage &) = delete;
  DriverImage &operator=(const DriverImage &) = delete;

  ImageEntryPoint Entry() const { return Entry_; }

 private:
  void *Handle_ = nullptr;
  ImageEntryPoint Entry_ = nullptr;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_DRIVER_IMAGE_H_
