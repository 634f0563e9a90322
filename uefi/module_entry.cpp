// Image entry: the firmware library constructors, then the driver's entry.
// The same symbol is the entry of the .efi image and of the host library.
#include "core/upload_section.h"
#include "platform/uefi_lib.h"

#if defined(QOR_FIRMWARE_BUILD)
#define QOR_ENTRY_EXPORT extern "C"
#else
#define QOR_ENTRY_EXPORT extern "C" __attribute__((visibility("default")))
#endif

QOR_ENTRY_EXPORT EFI_STATUS EFIAPI _ModuleEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE *SystemTable) {
  QorLibraryConstructors(ImageHandle, SystemTable);
  return QorUploadDataDxeEntryPoint(ImageHandle, SystemTable);
}
