// The PcieDevice section: the records of the PCIe walk as one JSON object.
#include "json/text_appender.h"
#include "pcie/special_devices.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/pcd_lib.h"
#include "platform/uefi_lib.h"

VOID *gQorCustomProtocol = nullptr;

VOID QorResetNicDbCache(VOID);
VOID QorResetFwVersionTable(VOID);

VOID QorPcieResetCaches(VOID) {
  gQorCustomProtocol = nullptr;
  QorResetNicDbCache();
  QorResetFwVersionTable();
}

namespace {

// Devices whose VPD keywords are reported (CustomerId 1 only).
CONST PCIE_DEVICE_IDS kVpdDevices[] = {
    {0x1AF4, 0x1000, 0x1D22, 0x0001},
    {0x1AF4, 0x1001, 0x1D22, 0x0002},
    {0x1AF4, 0x1041, 0x1D22, 0x1100},
    {0x1AF4, 0x1042, 0x1D22, 0x1100},
};
CONST CHAR8 *CONST kVpdKeywords[VPD_KEYWORD_COUNT] = {"SN", "V0", "V1", "V2", "V3", "V4"};

CONST CHAR8 *Word(BOOLEAN Value) { return Value ? "TRUE" : "FALSE"; }

BOOLEAN HasVpd(CONST PCIE_DEVICE_INFO *Record) {
  for (CONST PCIE_DEVICE_IDS &Row : kVpdDevices) {
    if (QorPcieIdsEqual(&Row, Record)) return TRUE;
  }
  return FALSE;
}

VOID WriteNvme(QOR_TEXT_WRITER *W, CONST PCIE_DEVICE_INFO *R) {
  QorWriterAppend(W, QOR_FMT_KEY_ONLY, "NVMeInfo");
  QorWriterAppend(W, "{");
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Desc", R->Model);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "BehindVMD", Word(R->BehindVMD));
  QorWriterAppend(W, QOR_FMT_KEY_STR, "VMDRaidMember", Word(R->VMDRaidMember));
  QorWriterAppend(W, QOR_FMT_KEY_STR, "SerialNumber", R->SerialNumber);
  QorWriterAppend(W, QOR_FMT_KEY_U64, "Capacity", R->Capacity);
  QorWriterDropComma(W);
  QorWriterAppend(W, "},");
}

VOID WriteM2(QOR_TEXT_WRITER *W, CONST PCIE_DEVICE_INFO *R) {
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Model", R->Model);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Capacity", R->CapacityText);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "SerialNumber", R->SerialNumber);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Type", R->Type);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "PhySlot", R->PhySlot);
}

VOID WriteNic(QOR_TEXT_WRITER *W, CONST PCIE_DEVICE_INFO *R) {
  QorWriterAppend(W, QOR_FMT_KEY_ONLY, "NicInfo");
  QorWriterAppend(W, "{");
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Desc", R->PortInfo[0].Desc);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "OnBoard", R->OnBoard);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "PortNum", R->PortNum);
  QorWriterAppend(W, QOR_FMT_KEY_ONLY, "PortInfo");
  QorWriterAppend(W, "[");
  // PortNum is what the nic db reported; the record holds NIC_PORT_MAX ports.
  for (UINT32 I = 0; I < R->PortNum && I < NIC_PORT_MAX; I++) {
    CONST NIC_PORT_INFO *Port = &R->PortInfo[I];
    QorWriterAppend(W, "{");
    QorWriterAppend(W, QOR_FMT_KEY_U32, "Port", I);
    QorWriterAppend(W, QOR_FMT_KEY_U32, "Bus", (UINT32)Port->Bus);
    QorWriterAppend(W, QOR_FMT_KEY_U32, "Dev", (UINT32)Port->Dev);
    QorWriterAppend(W, QOR_FMT_KEY_U32, "Func", (UINT32)Port->Func);
    QorWriterAppend(W, QOR_FMT_KEY_ONLY, "Mac");
    QorWriterAppend(W, "\"%02X-%02X-%02X-%02X-%02X-%02X\",", Port->Mac[0], Port->Mac[1], Port->Mac[2], Port->Mac[3],
                    Port->Mac[4], Port->Mac[5]);
    QorWriterDropComma(W);
    QorWriterAppend(W, "},");
  }
  QorWriterDropComma(W);
  QorWriterAppend(W, "]");
  QorWriterDropComma(W);
  QorWriterAppend(W, "},");
}

VOID WriteVpd(QOR_TEXT_WRITER *W, CONST PCIE_DEVICE_INFO *R) {
  QorWriterAppend(W, QOR_FMT_KEY_ONLY, "VPDInfo");
  QorWriterAppend(W, "{");
  for (UINT32 K = 0; K < VPD_KEYWORD_COUNT; K++) QorWriterAppend(W, QOR_FMT_KEY_STR, kVpdKeywords[K], R->VPDInfo[K]);
  QorWriterDropComma(W);
  QorWriterAppend(W, "}");
}

VOID WriteDevice(QOR_TEXT_WRITER *W, CONST PCIE_DEVICE_INFO *R, UINT8 CustomerId) {
  QorWriterAppend(W, "{");
  QorWriterAppend(W, QOR_FMT_KEY_U32, "VendorID", (UINT32)R->VendorID);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DeviceID", (UINT32)R->DeviceID);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "SubVendorID", (UINT32)R->SubVendorID);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "SubDeviceID", (UINT32)R->SubDeviceID);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "ClassCode", (UINT32)R->ClassCode);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "SubClassCode", (UINT32)R->SubClassCode);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "ProgIF", (UINT32)R->ProgIF);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Slot", R->Slot);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "MezzSlot", R->MezzSlot);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "CPU", R->CPU);
  // The 64-bit location fields go out through %u: their low 32 bits.
  QorWriterAppend(W, QOR_FMT_KEY_U32, "CPUBus", (UINT32)R->CPUBus);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "CPUDev", (UINT32)R->CPUDev);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "CPUFunc", (UINT32)R->CPUFunc);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Segment", (UINT32)R->Segment);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Bus", (UINT32)R->Bus);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Dev", (UINT32)R->Dev);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Func", (UINT32)R->Func);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "LinkWidth", R->LinkWidth);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "LinkSpeed", R->LinkSpeed);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "MaxSpeed", R->MaxSpeed);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "PCIeGen", R->PCIeGen);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "CardBandWidth", R->CardBandWidth);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "FwVersion", R->FwVersion);
  if (R->ClassCode == 1 && R->SubClassCode == 8) WriteNvme(W, R);
  if (R->Slot == 251 || R->Slot == 252) WriteM2(W, R);
  if (R->ClassCode == 2) WriteNic(W, R);
  if (CustomerId == 1 && HasVpd(R)) WriteVpd(W, R);
  QorWriterDropComma(W);
  QorWriterAppend(W, "},");
}

VOID FreeRecords(PCIE_DEVICE_INFO *Records, UINT64 Count) {
  for (UINT64 I = 0; I < Count; I++) {
    if (Records[I].DevicePathText != nullptr) QorFreePool(Records[I].DevicePathText);
  }
  QorFreePool(Records);
}

}  // namespace

VOID QorWritePcieDeviceJson(QOR_TEXT_WRITER *W, CONST PCIE_DEVICE_INFO *Records, UINT64 Count, UINT8 CustomerId) {
  QorWriterAppend(W, "{");
  // "DeviceCout" is the key the BMC reads; the spelling stays.
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DeviceCout", (UINT32)Count);
  QorWriterAppend(W, QOR_FMT_KEY_ONLY, "DeviceList");
  QorWriterAppend(W, "[");
  for (UINT64 I = 0; I < Count; I++) WriteDevice(W, &Records[I], CustomerId);
  QorWriterDropComma(W);
  QorWriterAppend(W, "]");
  QorWriterDropComma(W);
  QorWriterAppend(W, "}");
}

EFI_STATUS QorFillPcieDevice(UPLOAD_SECTION *Section) {
  QorDebugPrint(DEBUG_INFO, "QorFillPcieDevice ---start\n");
  PCIE_DEVICE_INFO *Records = (PCIE_DEVICE_INFO *)QorAllocateZeroPool(sizeof(PCIE_DEVICE_INFO) * PCIE_DEVICE_MAX);
  if (Records == nullptr) return EFI_OUT_OF_RESOURCES;
  EFI_STATUS Status = QorLocateProtocol(&gQorCustomProtocolGuid, &gQorCustomProtocol);
  if (EFI_ERROR(Status)) {
    // The records are not released on this path, as the shipped filler does.
    QorDebugPrint(DEBUG_INFO, "Failed to locate qor custom protocol %r\n", Status);
    return Status;
  }
  UINT64 Count = PCIE_DEVICE_MAX;
  QorCollectPcieDevices(&Count, Records);
  QorGetNvmePcieInfoBehindVmd(&Count, &Records[Count]);
  QorDumpPcieDevices(Records, Count);
  QorCollectGPUInfo(Records, Count);
  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWritePcieDeviceJson(&W, Records, Count, QorGetCustomerId());
  FreeRecords(Records, Count);
  return QorFinishSection(Section, W.Length);
}
