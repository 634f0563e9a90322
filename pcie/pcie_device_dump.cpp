// Debug dump of the PCIe walk's records.
#include "pcie/pcie_device_info.h"
#include "platform/debug_log.h"

// Off in the shipped image; a debug build flips it to list every record and
// the firmware version table in the log.
CONST BOOLEAN gQorPcieDebugDump = FALSE;

VOID QorDumpPcieDevices(PCIE_DEVICE_INFO *Records, UINT64 Count) {
  if (!gQorPcieDebugDump) return;
  QorDebugPrint(DEBUG_INFO, "\n=========== ALL PCIE DEV DUMP(%u) START ===========\n", (UINT32)Count);
  for (UINT64 I = 0; I < Count; I++) {
    CONST PCIE_DEVICE_INFO *R = &Records[I];
    QorDebugPrint(DEBUG_INFO,
                  "i = %2u  Slot:%u  CPU:%u PCIE ID: %04X %04X %04X %04X  CC:%u  SubCC:%u  SBDF:%u %u %u %u\n",
                  (UINT32)I, R->Slot, R->CPU, R->VendorID, R->DeviceID, R->SubVendorID, R->SubDeviceID,
                  (UINT32)R->ClassCode, (UINT32)R->SubClassCode, (UINT32)R->Segment, (UINT32)R->Bus, (UINT32)R->Dev,
                  (UINT32)R->Func);
    QorDebugPrint(DEBUG_INFO, "PciIO:%p  DevicePath:<%p><%s> <Level:%u> <Len:%u>\n", R->Handle, R->DevicePath,
                  R->DevicePathText, (UINT32)R->Level, (UINT32)R->Len);
    QorDebugPrint(DEBUG_INFO, "FwVersion:<%a> PortNum:%u\n", R->FwVersion, R->PortNum);
    QorDebugPrint(DEBUG_INFO, "\n");
  }
  QorDebugPrint(DEBUG_INFO, "=========== ALL PCIE DEV DUMP FINISH ===========\n");
}
