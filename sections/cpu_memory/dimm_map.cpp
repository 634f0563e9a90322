// The DIMM map: which slot positions (socket, channel, DIMM) exist on the
// board, their slot index, printed number and label. The platform leaves it
// in a HOB; boards without one get the built-in map of four sockets with
// eight channels of two DIMMs each.
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/hob_lib.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {

constexpr UINT32 kDefaultSockets = 4;
constexpr UINT32 kDefaultChannels = 8;
constexpr UINT32 kDefaultDimms = 2;
constexpr UINT32 kDefaultEntries = kDefaultSockets * kDefaultChannels * kDefaultDimms;

// The map handed out: a copy of the HOB's table or the built-in one, always
// with an end entry within its QOR_DIMM_MAP_MAX_ENTRIES + 1 entries.
QOR_DIMM_MAP_ENTRY gDimmMap[QOR_DIMM_MAP_MAX_ENTRIES + 1];

VOID SetEndEntry(QOR_DIMM_MAP_ENTRY *Entry) {
  QorZeroMem(Entry, sizeof(*Entry));
  Entry->SlotIndex = QOR_DIMM_MAP_END_SLOT_INDEX;
  QorCopyMem(Entry->Label, "END", 4);
}

// Slot index socket*16 + channel*2 + DIMM; printed number channel+1 for
// DIMM 0 and channel+9 for DIMM 1; label "A" (sockets 0, 2) or "B"
// (sockets 1, 3) followed by that number.
VOID BuildDefaultDimmMap(VOID) {
  UINT32 Count = 0;
  for (UINT32 Socket = 0; Socket < kDefaultSockets; Socket++) {
    for (UINT32 Channel = 0; Channel < kDefaultChannels; Channel++) {
      for (UINT32 Dimm = 0; Dimm < kDefaultDimms; Dimm++) {
        QOR_DIMM_MAP_ENTRY *Entry = &gDimmMap[Count++];
        QorZeroMem(Entry, sizeof(*Entry));
        UINT8 Number = (UINT8)(Dimm == 0 ? Channel + 1 : Channel + 9);
        Entry->Location = QOR_DIMM_MAP_LOCATION(Socket, Channel, Dimm);
        Entry->SlotIndex = (UINT8)(Socket * 16 + Channel * 2 + Dimm);
        Entry->Slot = (UINT8)(QOR_DIMM_MAP_SLOT_PRESENT | Number);
        UINTN At = 0;
        Entry->Label[At++] = (Socket % 2 == 0) ? 'A' : 'B';
        if (Number >= 10) Entry->Label[At++] = (CHAR8)('0' + Number / 10);
        Entry->Label[At++] = (CHAR8)('0' + Number % 10);
      }
    }
  }
  SetEndEntry(&gDimmMap[kDefaultEntries]);
}

// Copies the HOB's entries up to its end entry, its data size or the entry
// bound, whichever comes first, and ends the copy with an end entry.
VOID CopyDimmMapHob(CONST VOID *Hob) {
  CONST QOR_DIMM_MAP_ENTRY *Source = (CONST QOR_DIMM_MAP_ENTRY *)GET_GUID_HOB_DATA(Hob);
  UINTN Available = GET_GUID_HOB_DATA_SIZE(Hob) / sizeof(QOR_DIMM_MAP_ENTRY);
  UINTN Count = 0;
  while (Count < Available && Count < QOR_DIMM_MAP_MAX_ENTRIES &&
         Source[Count].SlotIndex != QOR_DIMM_MAP_END_SLOT_INDEX) {
    QorCopyMem(&gDimmMap[Count], &Source[Count], sizeof(QOR_DIMM_MAP_ENTRY));
    Count++;
  }
  if (Count < Available && Count < QOR_DIMM_MAP_MAX_ENTRIES) {
    QorCopyMem(&gDimmMap[Count], &Source[Count], sizeof(QOR_DIMM_MAP_ENTRY));
  } else {
    SetEndEntry(&gDimmMap[Count]);
  }
}

}  // namespace

CONST QOR_DIMM_MAP_ENTRY *QorGetDimmMap(VOID) {
  VOID *Hob = QorGetFirstGuidHob(&gQorDimmMapHobGuid);
  if (Hob != nullptr) {
    QorDebugPrint(DEBUG_INFO, "Find dimm map guid hob\n");
    CopyDimmMapHob(Hob);
  } else {
    QorDebugPrint(DEBUG_INFO, "No dimm map guid hob found, use default\n");
    BuildDefaultDimmMap();
  }
  return gDimmMap;
}

UINT32 QorCountPresentDimmSlots(CONST QOR_DIMM_MAP_ENTRY *DimmMap) {
  UINT32 Present = 0;
  for (UINTN I = 0; I < QOR_DIMM_MAP_MAX_ENTRIES && DimmMap[I].SlotIndex != QOR_DIMM_MAP_END_SLOT_INDEX; I++) {
    if ((DimmMap[I].Slot & QOR_DIMM_MAP_SLOT_PRESENT) != 0) Present++;
  }
  return Present;
}

EFI_STATUS QorFindDimmMapEntry(CONST QOR_DIMM_MAP_ENTRY *DimmMap, QOR_DIMM_MAP_ENTRY *Entry) {
  for (UINTN I = 0; I < QOR_DIMM_MAP_MAX_ENTRIES && DimmMap[I].SlotIndex != QOR_DIMM_MAP_END_SLOT_INDEX; I++) {
    if (DimmMap[I].Location == Entry->Location) {
      QorCopyMem(Entry, &DimmMap[I], sizeof(QOR_DIMM_MAP_ENTRY));
      return EFI_SUCCESS;
    }
  }
  return EFI_NOT_FOUND;
}
