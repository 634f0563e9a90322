// The loader's sequence: survey the machine, supply the platform, load and
// start the driver, install the triggers in the boot's order (fill trigger,
// a second SMM ready-to-lock, late trigger), report, shut down.
#include "platform/base_lib.h"
#include "platform/cpu_access.h"
#include "platform/device_path_lib.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/uefi_lib.h"
#include "uefi/rig/rig.h"
#include "uefi/rig/rig_channel.h"
#include "uefi/rig/rig_protocols.h"
#include "uefi/rig/serial_channel.h"

namespace {

CONST EFI_GUID kLoadedImageGuid = QOR_LOADED_IMAGE_PROTOCOL_GUID;
CONST CHAR16 kDriverFileName[] = u"\\QorUploadDataDxe.efi";
constexpr UINTN kWatchdogSeconds = 240;

QOR_RIG_CONFIG gConfig;
QOR_RIG_MACHINE gMachine;  // large: kept out of the stack
UINT8 gTriggerInterface;

// The device's path followed by a file path node for Name.
EFI_DEVICE_PATH_PROTOCOL *FilePathOnDevice(EFI_HANDLE Device, CONST CHAR16 *Name) {
  EFI_DEVICE_PATH_PROTOCOL *DevicePath = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Device, (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&DevicePath))) {
    return nullptr;
  }
  UINTN Size = QorGetDevicePathSize(DevicePath);
  if (Size < sizeof(EFI_DEVICE_PATH_PROTOCOL)) return nullptr;
  UINTN Prefix = Size - sizeof(EFI_DEVICE_PATH_PROTOCOL);
  UINTN NameBytes = (QorStrLen(Name) + 1) * sizeof(CHAR16);
  UINTN FileNode = sizeof(EFI_DEVICE_PATH_PROTOCOL) + NameBytes;
  UINT8 *Path = (UINT8 *)QorAllocateZeroPool(Prefix + FileNode + sizeof(EFI_DEVICE_PATH_PROTOCOL));
  if (Path == nullptr) return nullptr;
  QorCopyMem(Path, DevicePath, Prefix);
  EFI_DEVICE_PATH_PROTOCOL *File = (EFI_DEVICE_PATH_PROTOCOL *)(Path + Prefix);
  File->Type = MEDIA_DEVICE_PATH;
  File->SubType = MEDIA_FILEPATH_DP;
  File->Length[0] = (UINT8)FileNode;
  File->Length[1] = (UINT8)(FileNode >> 8);
  QorCopyMem(Path + Prefix + sizeof(EFI_DEVICE_PATH_PROTOCOL), Name, NameBytes);
  EFI_DEVICE_PATH_PROTOCOL *End = (EFI_DEVICE_PATH_PROTOCOL *)(Path + Prefix + FileNode);
  End->Type = END_DEVICE_PATH_TYPE;
  End->SubType = END_ENTIRE_DEVICE_PATH_SUBTYPE;
  End->Length[0] = sizeof(EFI_DEVICE_PATH_PROTOCOL);
  return (EFI_DEVICE_PATH_PROTOCOL *)Path;
}

// Loads the driver image from the loader's own volume.
EFI_STATUS LoadDriver(EFI_HANDLE LoaderImage, EFI_HANDLE *Driver) {
  EFI_LOADED_IMAGE_PROTOCOL *Loader = nullptr;
  EFI_STATUS Status = gBS->HandleProtocol(LoaderImage, (EFI_GUID *)&kLoadedImageGuid, (VOID **)&Loader);
  if (EFI_ERROR(Status)) return Status;
  EFI_DEVICE_PATH_PROTOCOL *Path = FilePathOnDevice(Loader->DeviceHandle, kDriverFileName);
  if (Path == nullptr) return EFI_NOT_FOUND;
  Status = gBS->LoadImage(FALSE, LoaderImage, Path, nullptr, 0, Driver);
  QorFreePool(Path);
  if (EFI_ERROR(Status)) return Status;
  EFI_LOADED_IMAGE_PROTOCOL *Image = nullptr;
  Status = gBS->HandleProtocol(*Driver, (EFI_GUID *)&kLoadedImageGuid, (VOID **)&Image);
  if (EFI_ERROR(Status)) return Status;
  QorRigSetDriverImage(Image->ImageBase, Image->ImageSize);
  QorRigReport("driverImageSize", "%lu", Image->ImageSize);
  return EFI_SUCCESS;
}

// Installs one trigger on a new handle and reports the time its notify
// functions took (they all run before the installation returns).
VOID InstallTrigger(CONST CHAR8 *Name, CONST EFI_GUID *Guid, UINT64 *Started) {
  UINT64 Start = QorReadTsc();
  if (*Started == 0) *Started = Start;
  EFI_STATUS Status = QorRigInstallOnNewHandle(Guid, &gTriggerInterface);
  UINT64 Ticks = QorReadTsc() - Start;
  if (EFI_ERROR(Status)) QorRigWarn("installing the %a trigger: %r", Name, Status);
  QorRigReport("trigger", "%a %lu", Name, Ticks);
}

// A server's boot manager connects every controller before the boot
// options run; OVMF connects only what QEMU's boot order names. Connecting
// each PCI root bridge recursively brings up every PCI device's driver
// (NVMe pass-thru, disks, network) and what they produce.
VOID ConnectPciControllers() {
  EFI_HANDLE *Handles = nullptr;
  UINTN Count = 0;
  if (EFI_ERROR(gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)&gEfiPciRootBridgeIoProtocolGuid, nullptr, &Count,
                                        &Handles))) {
    return;
  }
  for (UINTN I = 0; I < Count; I++) gBS->ConnectController(Handles[I], nullptr, nullptr, TRUE);
  gBS->FreePool(Handles);
}

// TSC ticks in one millisecond, measured against the firmware's timer.
UINT64 TicksPerMillisecond() {
  UINT64 Start = QorReadTsc();
  gBS->Stall(20000);
  return (QorReadTsc() - Start) / 20;
}

VOID Require(EFI_STATUS Status, CONST CHAR8 *What) {
  if (EFI_ERROR(Status)) QorRigWarn("%a: %r", What, Status);
}

}  // namespace

EFI_STATUS QorRigInstallOnNewHandle(CONST EFI_GUID *Guid, VOID *Interface) {
  EFI_HANDLE Handle = nullptr;
  return gBS->InstallProtocolInterface(&Handle, (EFI_GUID *)Guid, EFI_NATIVE_INTERFACE, Interface);
}

extern "C" EFI_STATUS EFIAPI QorRigEntry(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE *SystemTable) {
  gImageHandle = ImageHandle;
  gST = SystemTable;
  gBS = SystemTable->BootServices;
  gRT = SystemTable->RuntimeServices;
  // The boot manager's 5-minute watchdog would cut a slow emulated run
  // short; the rig sets its own once the machine is surveyed.
  gBS->SetWatchdogTimer(0, 0, 0, nullptr);
  UINT64 ConnectStart = QorReadTsc();
  ConnectPciControllers();
  UINT64 ConnectTicks = QorReadTsc() - ConnectStart;
  // After connecting: a reconnected terminal would take the port back.
  BOOLEAN Claimed = QorRigChannelClaim();
  QorRigChannelInit();
  QorRigSendBytes(QOR_RIG_FRAME_START, "", QOR_RIG_VERSION, QorAsciiStrLen(QOR_RIG_VERSION));
  QorRigReport("connectTicks", "%lu", ConnectTicks);

  // A driver that hangs in boot services resets the machine (and QEMU,
  // started with -no-reboot, ends) instead of holding the run.
  gBS->SetWatchdogTimer(kWatchdogSeconds, 0, 0, nullptr);
  if (!Claimed) QorRigWarn("the firmware's console may still write to the channel's serial port");
  QorRigReadConfig(&gConfig);
  QorRigSurveyMachine(&gMachine);
  QorRigReport("customerId", "%u", (UINT32)gConfig.CustomerId);
  QorRigReport("sockets", "%u", gMachine.Sockets);
  QorRigReport("processors", "%u", gMachine.Processors);
  QorRigReport("dimms", "%u", gMachine.Dimms);
  QorRigReport("pciFunctions", "%u", (UINT32)gMachine.PciCount);
  QorRigReport("sataDrives", "%u", (UINT32)gMachine.SataCount);
  QorRigReport("tscPerMillisecond", "%lu", TicksPerMillisecond());

  Require(QorRigInstallHobList(&gMachine), "HOB list");
  Require(QorRigInstallPcdProtocols(&gConfig, &gMachine), "PCD protocols");
  Require(QorRigInstallPlatformData(&gMachine), "platform data protocols");
  Require(QorRigInstallNicDatabase(&gMachine), "nic db protocol");
  Require(QorRigInstallCpuCsrAccess(), "CPU CSR access protocol");
  Require(QorRigInstallBmcServices(), "json, quick trans and debug print services");
  Require(QorRigSetSetupVariable(), "Setup variable");
  if (gConfig.PresentJdNic) QorRigPresentJdNic(&gMachine);

  EFI_HANDLE Driver = nullptr;
  EFI_STATUS Status = LoadDriver(ImageHandle, &Driver);
  if (EFI_ERROR(Status)) {
    QorRigWarn("loading QorUploadDataDxe.efi: %r", Status);
  } else {
    Require(QorRigMeterServices(), "service meter");
    UINT64 EntryStart = QorReadTsc();
    Status = gBS->StartImage(Driver, nullptr, nullptr);
    QorRigReport("entryStatus", "%r", Status);
    QorRigReport("entryTicks", "%lu", QorReadTsc() - EntryStart);
    if (!EFI_ERROR(Status)) {
      UINT64 FirstTrigger = 0;
      InstallTrigger("fill", &gFillTriggerProtocolGuid, &FirstTrigger);
      InstallTrigger("readyToLock", &gEfiDxeSmmReadyToLockProtocolGuid, &FirstTrigger);
      InstallTrigger("late", &gLateTriggerProtocolGuid, &FirstTrigger);
      UINT64 Upload = QorRigInventoryUploadTsc();
      if (Upload != 0) QorRigReport("ticksFirstTriggerToUpload", "%lu", Upload - FirstTrigger);
    }
    QorRigReportPoolUse();
  }

  QorRigSendBytes(QOR_RIG_FRAME_END, "", nullptr, 0);
  QorRigShutdown();
  return EFI_SUCCESS;
}
