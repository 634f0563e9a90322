// The driver image on the host: the shared library loaded afresh for every
// boot, so module globals start from their initial values as in a newly
// loaded image.
//
// A fuzzer cannot gather coverage from code that is unloaded after every
// input, so it may keep the image resident instead: loaded once for the
// whole process and, before every boot, its writable data (module globals,
// .data and .bss) put back to the bytes it held right after loading. Both
// ways start every boot from the same state.
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
  // From now on images stay loaded and are reset before each boot (true),
  // or are loaded and unloaded per boot (false, the default).
  static void KeepResident(bool Resident);
  static bool Resident();

  explicit DriverImage(const std::string &Path);  // throws std::runtime_error
  ~DriverImage();
  DriverImage(const DriverImage &) = delete;
  DriverImage &operator=(const DriverImage &) = delete;

  ImageEntryPoint Entry() const { return Entry_; }

 private:
  void *Handle_ = nullptr;  // only for an image loaded for this boot alone
  ImageEntryPoint Entry_ = nullptr;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_DRIVER_IMAGE_H_
