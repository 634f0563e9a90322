#include "platform/uefi_lib.h"

#include "platform/debug_log.h"
#include "platform/cpu_access.h"
#include "platform/hob_lib.h"
#include "platform/pcd_lib.h"
#include "platform/system_information.h"
#include "platform/system_topology.h"

EFI_HANDLE gImageHandle = nullptr;
EFI_SYSTEM_TABLE *gST = nullptr;
EFI_BOOT_SERVICES *gBS = nullptr;
EFI_RUNTIME_SERVICES *gRT = nullptr;

EFI_STATUS QorLibraryConstructors(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE *SystemTable) {
  gImageHandle = ImageHandle;
  gST = SystemTable;
  gBS = SystemTable->BootServices;
  gRT = SystemTable->RuntimeServices;
  QorHobLibInit();
  QorPcdLibInit();
  QorCpuAccessInit();
  QorSystemInformationLibInit();
  QorSystemTopologyLibInit();
  QorDebugLogInit();
  return EFI_SUCCESS;
}

EFI_STATUS QorLocateProtocol(CONST EFI_GUID *Guid, VOID **Interface) {
  *Interface = nullptr;
  return gBS->LocateProtocol((EFI_GUID *)Guid, nullptr, Interface);
}
