// GUIDs of every protocol, HOB, token space and variable the driver uses.
#ifndef QOR_PLATFORM_GUIDS_H_
#define QOR_PLATFORM_GUIDS_H_

#include "platform/uefi_base.h"

extern CONST EFI_GUID gEfiHobListGuid;
extern CONST EFI_GUID gPcdProtocolGuid;
extern CONST EFI_GUID gEfiPcdProtocolGuid;
extern CONST EFI_GUID gQorDebugPrintServiceGuid;
extern CONST EFI_GUID gQorHostCpuAccessProtocolGuid;

extern CONST EFI_GUID gFillTriggerProtocolGuid;
extern CONST EFI_GUID gLateTriggerProtocolGuid;
extern CONST EFI_GUID gEfiDxeSmmReadyToLockProtocolGuid;

extern CONST EFI_GUID gQorMrcDataHobGuid;
extern CONST EFI_GUID gQorCustomerIdTokenSpaceGuid;

extern CONST EFI_GUID gQorJsonProtocolGuid;
extern CONST EFI_GUID gQorQuickTransProtocolGuid;
extern CONST EFI_GUID gQorSpiProtocolGuid;
extern CONST EFI_GUID gQorIpmiProtocolGuid;
extern CONST EFI_GUID gQorCustomProtocolGuid;
extern CONST EFI_GUID gQorSystemInformationProtocolGuid;
extern CONST EFI_GUID gQorIioSysProtocolGuid;
extern CONST EFI_GUID gQorCpuPowerProtocolGuid;
extern CONST EFI_GUID gQorSystemTopologyDataGuid;

extern CONST EFI_GUID gQorProcessorSpeedHobGuid;
extern CONST EFI_GUID gQorDimmMapHobGuid;
extern CONST EFI_GUID gQorMemoryMapHobGuid;
extern CONST EFI_GUID gQorIioPortHobGuid;

extern CONST EFI_GUID gEfiSmbiosProtocolGuid;
extern CONST EFI_GUID gEfiPciRootBridgeIoProtocolGuid;

extern CONST EFI_GUID gQorSetupVariableGuid;
extern CONST EFI_GUID gQorWakeupTypeVariableGuid;

extern CONST EFI_GUID gEfiPciIoProtocolGuid;
extern CONST EFI_GUID gEfiDevicePathProtocolGuid;
extern CONST EFI_GUID gEfiFirmwareManagementProtocolGuid;
extern CONST EFI_GUID gEfiNvmExpressPassThruProtocolGuid;
extern CONST EFI_GUID gQorNicDbProtocolGuid;
extern CONST EFI_GUID gQorVendorNvmeControllerProtocolGuid;
extern CONST EFI_GUID gQorVrocDeviceInfoProtocolGuid;
extern CONST EFI_GUID gQorCpuCsrAccessProtocolGuid;
extern CONST EFI_GUID gQorSkobiofBf2VariableGuid;
extern CONST EFI_GUID gQorFixedBootPrioritiesGuid;
extern CONST EFI_GUID gQorRecoveryBootModeGuid;
extern CONST EFI_GUID gQorJdNicSlotGuid;
extern CONST EFI_GUID gQorSocketMpLinkConfigGuid;
extern CONST EFI_GUID gQorOnboardPcdTokenSpaceGuid;

#endif  // QOR_PLATFORM_GUIDS_H_
