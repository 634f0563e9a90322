// Globals of the firmware environment and the library constructors that set
// them up before the driver's own entry runs.
#ifndef QOR_PLATFORM_UEFI_LIB_H_
#define QOR_PLATFORM_UEFI_LIB_H_

#include "platform/uefi_tables.h"

extern EFI_HANDLE gImageHandle;
extern EFI_SYSTEM_TABLE *gST;
extern EFI_BOOT_SERVICES *gBS;
extern EFI_RUNTIME_SERVICES *gRT;

// Binds the tables, finds the HOB list and the debug print service. Runs
// before QorUploadDataDxeEntryPoint, like the firmware library constructors.
EFI_STATUS QorLibraryConstructors(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE *SystemTable);

// gBS->LocateProtocol for a constant GUID.
EFI_STATUS QorLocateProtocol(CONST EFI_GUID *Guid, VOID **Interface);

#endif  // QOR_PLATFORM_UEFI_LIB_H_
