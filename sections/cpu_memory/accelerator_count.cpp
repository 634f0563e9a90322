// Counts the on-package accelerator functions (QAT, DLB, IAA, DSA) by
// scanning the configuration space of every bus each PCI root bridge decodes.
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/pci_root_bridge_io.h"
#include "platform/uefi_lib.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {

// Vendor of the on-package accelerator functions.
constexpr UINT16 kAcceleratorVendorId = 0x8086;
constexpr UINT16 kNoFunction = 0xFFFF;
constexpr UINT32 kMaxBus = 255;
constexpr UINT32 kDevicesPerBus = 32;
constexpr UINT32 kFunctionsPerDevice = 8;
// A bridge reports a handful of descriptors; more means a missing end tag.
constexpr UINTN kMaxDescriptors = 64;

VOID CountFunction(UINT16 DeviceId, ACCELERATOR_COUNT *Counts) {
  switch (DeviceId) {
    case 0x4940:
    case 0x4942:
    case 0x4944:
      // 0x4946 is a QAT virtual function and deliberately not counted.
      Counts->Qat++;
      break;
    case 0x2710:
      Counts->Dlb++;
      break;
    case 0x0CFE:
      Counts->Iaa++;
      break;
    case 0x0B25:
      Counts->Dsa++;
      break;
    default:
      break;
  }
}

VOID ScanBuses(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *RootBridge, UINT64 FirstBus, UINT64 LastBus,
               ACCELERATOR_COUNT *Counts) {
  if (LastBus > kMaxBus) LastBus = kMaxBus;
  for (UINT32 Bus = (UINT32)FirstBus; Bus <= LastBus; Bus++) {
    for (UINT32 Device = 0; Device < kDevicesPerBus; Device++) {
      for (UINT32 Function = 0; Function < kFunctionsPerDevice; Function++) {
        UINT16 VendorId = kNoFunction;
        RootBridge->Pci.Read(RootBridge, EfiPciWidthUint16, EFI_PCI_ADDRESS(Bus, Device, Function, 0), 1, &VendorId);
        if (VendorId == kNoFunction) {
          if (Function == 0) break;
          continue;
        }
        if (VendorId != kAcceleratorVendorId) continue;
        UINT16 DeviceId = kNoFunction;
        RootBridge->Pci.Read(RootBridge, EfiPciWidthUint16, EFI_PCI_ADDRESS(Bus, Device, Function, 2), 1, &DeviceId);
        CountFunction(DeviceId, Counts);
      }
    }
  }
}

// Scans the bus ranges of the bridge's descriptors, up to the end tag.
VOID ScanDescribedBuses(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *RootBridge, CONST UINT8 *Descriptors,
                        ACCELERATOR_COUNT *Counts) {
  for (UINTN I = 0; I < kMaxDescriptors && Descriptors[0] != ACPI_END_TAG_DESCRIPTOR; I++) {
    if (Descriptors[0] != ACPI_ADDRESS_SPACE_DESCRIPTOR) return;
    CONST EFI_ACPI_ADDRESS_SPACE_DESCRIPTOR *Space = (CONST EFI_ACPI_ADDRESS_SPACE_DESCRIPTOR *)Descriptors;
    if (Space->ResType == ACPI_ADDRESS_SPACE_TYPE_BUS) {
      ScanBuses(RootBridge, (UINT16)Space->AddrRangeMin, (UINT16)Space->AddrRangeMax, Counts);
    }
    Descriptors += 3 + Space->Len;
  }
}

}  // namespace

EFI_STATUS QorCollectAccCount(ACCELERATOR_COUNT *Counts) {
  UINTN BufferSize = sizeof(EFI_HANDLE);
  EFI_HANDLE *Handles = (EFI_HANDLE *)QorAllocateZeroPool(BufferSize);
  if (Handles == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "%a(%d), Memory allocation was not successful. \n", "QorCollectAccCount", 375);
    return EFI_OUT_OF_RESOURCES;
  }
  EFI_STATUS Status =
      gBS->LocateHandle(ByProtocol, (EFI_GUID *)&gEfiPciRootBridgeIoProtocolGuid, nullptr, &BufferSize, Handles);
  if (Status == EFI_BUFFER_TOO_SMALL) {
    QorFreePool(Handles);
    Handles = (EFI_HANDLE *)QorAllocateZeroPool(BufferSize);
    if (Handles == nullptr) {
      QorDebugPrint(DEBUG_ERROR, "%a(%d), Memory allocation was not successful. \n", "QorCollectAccCount", 375);
      return EFI_OUT_OF_RESOURCES;
    }
    Status =
        gBS->LocateHandle(ByProtocol, (EFI_GUID *)&gEfiPciRootBridgeIoProtocolGuid, nullptr, &BufferSize, Handles);
  }
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "%a(%d), Protocol - PciRootBridgeIo not found. \n", "QorCollectAccCount", 389);
    QorFreePool(Handles);
    return Status;
  }

  UINTN HandleCount = BufferSize / sizeof(EFI_HANDLE);
  for (UINTN I = 0; I < HandleCount; I++) {
    EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *RootBridge = nullptr;
    Status = gBS->HandleProtocol(Handles[I], (EFI_GUID *)&gEfiPciRootBridgeIoProtocolGuid, (VOID **)&RootBridge);
    VOID *Descriptors = nullptr;
    if (!EFI_ERROR(Status)) {
      Status = RootBridge == nullptr ? EFI_NOT_FOUND : RootBridge->Configuration(RootBridge, &Descriptors);
    }
    if (Status == EFI_UNSUPPORTED && RootBridge != nullptr) {
      // The bridge cannot describe its buses: probe all of them.
      ScanBuses(RootBridge, 0, kMaxBus, Counts);
      continue;
    }
    if (EFI_ERROR(Status) || Descriptors == nullptr) {
      QorDebugPrint(DEBUG_ERROR, "%a(%d), Handle protocol or configuration error. \n", "QorCollectAccCount", 404);
      QorFreePool(Handles);
      return EFI_ERROR(Status) ? Status : EFI_NOT_FOUND;
    }
    ScanDescribedBuses(RootBridge, (CONST UINT8 *)Descriptors, Counts);
  }
  QorFreePool(Handles);
  return EFI_SUCCESS;
}
