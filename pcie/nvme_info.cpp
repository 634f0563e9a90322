// NVMe details of the walk's NVMe controllers: model, serial number,
// firmware revision and capacity, from the vendor controller protocol's
// cached Identify data or from an Identify command through the pass-thru
// protocol; the M.2 socket name for slots 251 and 252.
#include "pcie/special_devices.h"
#include "platform/base_lib.h"
#include "platform/custom_protocol.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/nvme.h"
#include "platform/print_lib.h"
#include "platform/uefi_lib.h"

namespace {

constexpr UINT64 kIdentifyTimeout = 10000000;  // 100 ns units: one second
constexpr UINT64 kBytesPerGb = 1000000000ULL;

VOID TakeIdentifyFields(CONST UINT8 *Identify, PCIE_DEVICE_INFO *Record) {
  QorCopyMem(Record->FwVersion, Identify + NVME_ID_FIRMWARE_REVISION_OFFSET, NVME_ID_FIRMWARE_REVISION_SIZE);
  QorCopyMem(Record->Model, Identify + NVME_ID_MODEL_NUMBER_OFFSET, NVME_ID_MODEL_NUMBER_SIZE);
  QorCopyMem(Record->SerialNumber, Identify + NVME_ID_SERIAL_NUMBER_OFFSET, NVME_ID_SERIAL_NUMBER_SIZE);
}

EFI_STATUS CapacityFromVendorProtocol(QOR_VENDOR_NVME_CONTROLLER_PROTOCOL *Controller, PCIE_DEVICE_INFO *Record,
                                      UINT64 *Bytes) {
  if (Controller->IdentifyControllerData != nullptr) TakeIdentifyFields(Controller->IdentifyControllerData, Record);
  *Bytes = 0;
  for (UINT32 I = 0; I < Controller->NamespaceCount && Controller->Namespaces != nullptr; I++) {
    *Bytes += (UINT64)Controller->Namespaces[I].BlockSize * Controller->Namespaces[I].BlockCount;
  }
  return EFI_SUCCESS;
}

EFI_STATUS CapacityFromIdentify(EFI_HANDLE Handle, PCIE_DEVICE_INFO *Record, UINT64 *Bytes) {
  EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *PassThru = nullptr;
  EFI_STATUS Status =
      gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiNvmExpressPassThruProtocolGuid, (VOID **)&PassThru);
  if (EFI_ERROR(Status) || PassThru == nullptr) {
    QorDebugPrint(DEBUG_INFO, "The handle does not support the EfiNvmExpressPassThruProtocol\n");
    return EFI_ERROR(Status) ? Status : EFI_NOT_FOUND;
  }
  UINT8 *Identify = (UINT8 *)QorAllocateZeroPool(NVME_IDENTIFY_DATA_SIZE);
  if (Identify == nullptr) {
    QorDebugPrint(DEBUG_INFO, "Failed to AllocatePool IdentifyControllerData\n");
    return EFI_OUT_OF_RESOURCES;
  }
  EFI_NVM_EXPRESS_COMMAND Command = {};
  Command.Cdw0 = NVME_ADMIN_IDENTIFY_CMD;
  Command.Nsid = 0;
  Command.Cdw10 = NVME_IDENTIFY_CNS_CONTROLLER;
  Command.Flags = CDW10_VALID;
  EFI_NVM_EXPRESS_COMPLETION Completion = {};
  EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET Packet = {};
  Packet.CommandTimeout = kIdentifyTimeout;
  Packet.TransferBuffer = Identify;
  Packet.TransferLength = NVME_IDENTIFY_DATA_SIZE;
  Packet.QueueType = NVME_ADMIN_QUEUE;
  Packet.NvmeCmd = &Command;
  Packet.NvmeCompletion = &Completion;
  Status = PassThru->PassThru(PassThru, 0, &Packet, nullptr);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_INFO, "Failed to get IdentifyControllerData: %r\n", Status);
    QorFreePool(Identify);
    return Status;
  }
  TakeIdentifyFields(Identify, Record);
  UINT64 Low = 0, High = 0;
  QorCopyMem(&Low, Identify + NVME_ID_TNVMCAP_OFFSET, sizeof(Low));
  QorCopyMem(&High, Identify + NVME_ID_TNVMCAP_OFFSET + 8, sizeof(High));
  QorDebugPrint(DEBUG_INFO, "TnvmcapH64 %llx pTnvmcapL64 %llx \n", High, Low);
  *Bytes = Low;
  QorFreePool(Identify);
  return EFI_SUCCESS;
}

// The M.2 socket name for slots 251 and 252 from the qor custom protocol.
VOID FillPhySlot(PCIE_DEVICE_INFO *Record) {
  CONST CHAR8 *Names = (CONST CHAR8 *)gQorCustomProtocol;
  if (Names == nullptr) return;
  Names += QOR_CUSTOM_M2_NAMES_OFFSET;
  CHAR8 Name[QOR_CUSTOM_M2_NAME_SIZE];
  CONST CHAR8 *Chosen = nullptr;
  if (Record->Slot == 251) {
    Chosen = Names + QOR_CUSTOM_M2_SLOT251_NAME * QOR_CUSTOM_M2_NAME_SIZE;
  } else if (Record->Slot == 252) {
    Chosen = Names + QOR_CUSTOM_M2_SLOT252_FIRST_NAME * QOR_CUSTOM_M2_NAME_SIZE;
    if (Chosen[0] == 0) Chosen = Names + QOR_CUSTOM_M2_SLOT252_SECOND_NAME * QOR_CUSTOM_M2_NAME_SIZE;
  } else {
    return;
  }
  // A name fills at most its 13-byte field, terminator included.
  QorCopyMem(Name, Chosen, sizeof(Name));
  Name[sizeof(Name) - 1] = 0;
  QorAsciiStrCopy(Record->PhySlot, sizeof(Record->PhySlot), Name);
}

}  // namespace

VOID QorTrimFixedField(CHAR8 *Field, UINTN Size) {
  UINTN End = Size;
  while (End > 0 && Field[End - 1] == ' ') End--;
  Field[End] = 0;
  UINTN Start = 0;
  while (Start < End && (Field[Start] == ' ' || Field[Start] == '\t')) Start++;
  if (Start == 0) return;
  UINTN I = 0;
  for (; Start + I < End; I++) Field[I] = Field[Start + I];
  Field[I] = 0;
}

VOID QorFinishNvmeRecord(PCIE_DEVICE_INFO *Record) {
  QorTrimFixedField(Record->FwVersion, NVME_ID_FIRMWARE_REVISION_SIZE);
  QorTrimFixedField(Record->Model, NVME_ID_MODEL_NUMBER_SIZE);
  QorTrimFixedField(Record->SerialNumber, NVME_ID_SERIAL_NUMBER_SIZE);
  QorAsciiStrCopy(Record->Type, sizeof(Record->Type), "PCIe");
  FillPhySlot(Record);
}

EFI_STATUS QorPcieUpdateNvmeM2Info(PCIE_DEVICE_INFO *Record) {
  QorDebugPrint(DEBUG_INFO, "%a start\n", "QorPcieUpdateNvmeM2Info");
  UINT64 Bytes = 0;
  QOR_VENDOR_NVME_CONTROLLER_PROTOCOL *Controller = nullptr;
  EFI_STATUS Status;
  if (!EFI_ERROR(gBS->HandleProtocol(Record->Handle, (EFI_GUID *)&gQorVendorNvmeControllerProtocolGuid,
                                     (VOID **)&Controller)) &&
      Controller != nullptr) {
    QorDebugPrint(DEBUG_INFO, "VendorNvmeControllerProtocol\n");
    Status = CapacityFromVendorProtocol(Controller, Record, &Bytes);
  } else {
    QorDebugPrint(DEBUG_INFO, "EfiNvmExpressPassThruProtocol\n");
    Status = CapacityFromIdentify(Record->Handle, Record, &Bytes);
    if (EFI_ERROR(Status)) return Status;
  }
  QorDebugPrint(DEBUG_INFO, "TotalSizeInByte %llu \n", Bytes);
  Record->BehindVMD = FALSE;
  Record->VMDRaidMember = FALSE;
  Record->Capacity = Bytes;
  AsciiSPrint(Record->CapacityText, sizeof(Record->CapacityText), "%u GB", (UINT32)(Bytes / kBytesPerGb));
  // Trimming after the capacity text is kept: a model of 40 characters puts
  // its terminator on the first byte of CapacityText.
  QorFinishNvmeRecord(Record);
  QorDebugPrint(DEBUG_INFO, "pPcieInfo->Capacity [%a]\n", Record->CapacityText);
  QorDebugPrint(DEBUG_INFO, "pPcieInfo->FwVersion [%a]\n", Record->FwVersion);
  QorDebugPrint(DEBUG_INFO, "pPcieInfo->Model[%a]\n", Record->Model);
  QorDebugPrint(DEBUG_INFO, "pPcieInfo->SerialNumber [%a]\n", Record->SerialNumber);
  QorDebugPrint(DEBUG_INFO, "pPcieInfo->PhySlotName [%a]\n", Record->PhySlot);
  return EFI_SUCCESS;
}
