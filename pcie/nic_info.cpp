// NIC ports of a network card, asked from the platform's nic db by slot.
#include "pcie/pcie_device_info.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/nic_db.h"
#include "platform/uefi_lib.h"

namespace {
QOR_NIC_DB_PROTOCOL *gNicDb = nullptr;
}

VOID QorResetNicDbCache(VOID) { gNicDb = nullptr; }

EFI_STATUS QorGetNicInfo(PCIE_DEVICE_INFO *Record) {
  if (gNicDb == nullptr) {
    EFI_STATUS Status = QorLocateProtocol(&gQorNicDbProtocolGuid, (VOID **)&gNicDb);
    if (EFI_ERROR(Status) || gNicDb == nullptr) {
      gNicDb = nullptr;
      QorDebugPrint(DEBUG_ERROR, "Failed to locate nic db procotol %r\n", Status);
      return EFI_ERROR(Status) ? Status : EFI_NOT_FOUND;
    }
  }
  CONST UINT8 *Entry = (CONST UINT8 *)gNicDb->GetNicEntry(gNicDb, Record->Slot);
  if (Entry == nullptr) return EFI_SUCCESS;
  UINT32 PortCount = 0;
  QorCopyMem(&PortCount, Entry + QOR_NIC_ENTRY_PORT_COUNT_OFFSET, sizeof(PortCount));
  Record->PortNum = PortCount;
  QorAsciiStrCopy(Record->OnBoard, sizeof(Record->OnBoard),
                  Entry[QOR_NIC_ENTRY_ONBOARD_OFFSET] == 1 ? "TRUE" : "FALSE");
  for (UINT32 I = 0; I < PortCount && I < NIC_PORT_MAX; I++) {
    CONST UINT8 *Port = Entry + QOR_NIC_ENTRY_PORT_STRIDE * I;
    UINT32 Location = 0;
    QorCopyMem(&Location, Port + QOR_NIC_PORT_LOCATION_OFFSET, sizeof(Location));
    NIC_PORT_INFO *Info = &Record->PortInfo[I];
    Info->Bus = (UINT8)(Location >> 16);
    Info->Dev = (UINT8)(Location >> 8);
    Info->Func = (UINT8)Location;
    // The description field ends where the MAC address begins.
    CHAR8 Desc[QOR_NIC_PORT_DESC_SIZE + 1];
    QorCopyMem(Desc, Port + QOR_NIC_PORT_DESC_OFFSET, QOR_NIC_PORT_DESC_SIZE);
    Desc[QOR_NIC_PORT_DESC_SIZE] = 0;
    QorAsciiStrCopy(Info->Desc, sizeof(Info->Desc), Desc);
    QorCopyMem(Info->Mac, Port + QOR_NIC_PORT_MAC_OFFSET, sizeof(Info->Mac));
  }
  return EFI_SUCCESS;
}
