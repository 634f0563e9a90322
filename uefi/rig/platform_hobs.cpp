// The HOBs the memory reference code and the silicon code would have left,
// made from the emulated machine: the MRC data (PPINs, training results of
// the installed DIMMs), the processor speed, the DIMM map of the board's
// slots, the memory map data and the IIO port configuration of the root
// ports. They are added to a copy of OVMF's HOB list that replaces it in
// the configuration table before the driver starts.
#include "platform/base_lib.h"
#include "platform/guids.h"
#include "platform/iio_data.h"
#include "platform/memory_lib.h"
#include "platform/memory_map_data.h"
#include "platform/mrc_data_hob.h"
#include "platform/uefi_lib.h"
#include "uefi/rig/hob_list_builder.h"
#include "uefi/rig/rig.h"
#include "uefi/rig/rig_platform_values.h"
#include "uefi/rig/serial_channel.h"

namespace {

constexpr UINTN kMaxHobListBytes = 16 * 1024 * 1024;
constexpr UINTN kDimmSlots = QOR_MRC_MAX_SOCKETS * QOR_MRC_CHANNELS_PER_SOCKET * QOR_MRC_MAX_DIMMS_PER_CHANNEL;

// Where the k-th installed DIMM sits: spread over the sockets first, then
// the channels, then the second slot of each channel.
VOID DimmPlace(UINT32 K, UINT32 Sockets, UINT32 *Socket, UINT32 *Channel, UINT32 *Dimm) {
  *Socket = K % Sockets;
  *Channel = (K / Sockets) % QOR_MRC_CHANNELS_PER_SOCKET;
  *Dimm = K / (Sockets * QOR_MRC_CHANNELS_PER_SOCKET);
}

UINT32 SocketsOf(CONST QOR_RIG_MACHINE *Machine) {
  return Machine->Sockets > QOR_MRC_MAX_SOCKETS ? QOR_MRC_MAX_SOCKETS : Machine->Sockets;
}

UINT32 PlacedDimms(CONST QOR_RIG_MACHINE *Machine) {
  UINT32 Max = SocketsOf(Machine) * QOR_MRC_CHANNELS_PER_SOCKET * QOR_MRC_MAX_DIMMS_PER_CHANNEL;
  return Machine->Dimms > Max ? Max : Machine->Dimms;
}

VOID BuildMrcData(CONST QOR_RIG_MACHINE *Machine, QOR_MRC_DATA *Mrc) {
  QorZeroMem(Mrc, sizeof(*Mrc));
  UINT32 Sockets = SocketsOf(Machine);
  for (UINT32 S = 0; S < Sockets; S++) {
    Mrc->Ppin[S] = QOR_RIG_PPIN_BASE + S;
    QOR_MRC_SOCKET_RESULT *Result = &Mrc->SocketResult[S];
    Result->ChannelNum = QOR_MRC_CHANNELS_PER_SOCKET;
    for (UINT32 C = 0; C < QOR_MRC_CHANNELS_PER_SOCKET; C++) Result->Channels[C].Channel = (UINT8)C;
  }
  for (UINT32 K = 0; K < PlacedDimms(Machine); K++) {
    UINT32 Socket, Channel, Dimm;
    DimmPlace(K, Sockets, &Socket, &Channel, &Dimm);
    QOR_MRC_CHANNEL_RESULT *Result = &Mrc->SocketResult[Socket].Channels[Channel];
    if (Result->DimmNum < Dimm + 1) Result->DimmNum = (UINT8)(Dimm + 1);
    Result->Certification[Dimm] = QOR_RIG_DIMM_CERTIFICATION;
  }
}

VOID PutByte(UINT8 *Block, UINTN Offset, UINT8 Value) { Block[Offset] = Value; }

// The memory map data block the memory map HOB points to.
VOID BuildMemoryMapData(CONST QOR_RIG_MACHINE *Machine, UINT8 *Block) {
  QorZeroMem(Block, QOR_MEMMAP_DATA_SIZE);
  UINT32 Sockets = SocketsOf(Machine);
  PutByte(Block, QOR_MEMMAP_DDR_VOLTAGE_OFFSET, QOR_RIG_DDR_VOLTAGE);
  PutByte(Block, QOR_MEMMAP_ECC_ENABLED_OFFSET, 1);
  for (UINT32 S = 0; S < Sockets; S++) PutByte(Block, QOR_MEMMAP_SOCKET_BASE(S) + QOR_MEMMAP_SOCKET_ENABLED, 1);
  for (UINT32 K = 0; K < PlacedDimms(Machine); K++) {
    UINT32 Socket, Channel, Dimm;
    DimmPlace(K, Sockets, &Socket, &Channel, &Dimm);
    UINTN D = QOR_MEMMAP_DIMM_BASE(Socket, Channel, Dimm);
    PutByte(Block, QOR_MEMMAP_CHANNEL_BASE(Socket, Channel) + QOR_MEMMAP_CHANNEL_FLAG, 1);
    PutByte(Block, D + QOR_MEMMAP_DIMM_PRESENT, 1);
    PutByte(Block, D + QOR_MEMMAP_DIMM_KEY_TYPE, QOR_DRAM_KEY_TYPE_DDR5);
    PutByte(Block, D + QOR_MEMMAP_DIMM_MODULE_TYPE, QOR_RIG_DIMM_MODULE_TYPE);
    PutByte(Block, D + QOR_MEMMAP_DIMM_VENDOR_ID, (UINT8)(QOR_RIG_DIMM_VENDOR_ID & 0xFF));
    PutByte(Block, D + QOR_MEMMAP_DIMM_VENDOR_ID + 1, (UINT8)(QOR_RIG_DIMM_VENDOR_ID >> 8));
  }
}

// Every slot of the board's sockets, in the order socket, channel, DIMM;
// labels and printed numbers as the board's silk screen would have them.
UINTN BuildDimmMap(CONST QOR_RIG_MACHINE *Machine, QOR_DIMM_MAP_ENTRY *Map) {
  UINTN N = 0;
  for (UINT32 S = 0; S < SocketsOf(Machine); S++) {
    for (UINT32 C = 0; C < QOR_MRC_CHANNELS_PER_SOCKET; C++) {
      for (UINT32 D = 0; D < QOR_MRC_MAX_DIMMS_PER_CHANNEL; D++) {
        QOR_DIMM_MAP_ENTRY *Entry = &Map[N];
        QorZeroMem(Entry, sizeof(*Entry));
        UINT32 Number = D == 0 ? C + 1 : C + 9;
        Entry->Location = QOR_DIMM_MAP_LOCATION(S, C, D);
        Entry->SlotIndex = (UINT8)(S * 16 + C * 2 + D);
        Entry->Slot = (UINT8)(QOR_DIMM_MAP_SLOT_PRESENT | Number);
        Entry->Label[0] = (S % 2 == 0) ? 'A' : 'B';
        if (Number >= 10) {
          Entry->Label[1] = '1';
          Entry->Label[2] = (CHAR8)('0' + Number - 10);
        } else {
          Entry->Label[1] = (CHAR8)('0' + Number);
        }
        N++;
      }
    }
  }
  QorZeroMem(&Map[N], sizeof(Map[N]));
  Map[N].SlotIndex = QOR_DIMM_MAP_END_SLOT_INDEX;
  QorCopyMem(Map[N].Label, "END", 3);
  return N + 1;
}

// Five stacks per socket, for at least the two sockets the IIO section
// reports. The root ports, in PCI order, stand for the stacks one after
// another: each stack shows one port (letter A) with its negotiated width.
UINTN BuildIioPortEntries(CONST QOR_RIG_MACHINE *Machine, QOR_IIO_PORT_HOB_ENTRY *Entries, UINTN MaxEntries) {
  UINT32 Sockets = SocketsOf(Machine) < 2 ? 2 : SocketsOf(Machine);
  UINTN Count = Sockets * QOR_IIO_STACKS_PER_SOCKET;
  if (Count > MaxEntries) Count = MaxEntries;
  QorZeroMem(Entries, Count * sizeof(Entries[0]));
  UINTN Next = 0;
  for (UINTN I = 0; I < Machine->PciCount && Next < Count; I++) {
    if (Machine->Pci[I].PortType != QOR_RIG_PCIE_PORT_TYPE_ROOT_PORT) continue;
    Entries[Next].Bifurcation = QOR_RIG_IIO_BIFURCATION;
    Entries[Next].Port[0] = Machine->Pci[I].LinkWidth;
    Next++;
  }
  return Count;
}

// Storage of the HOB data; the memory map block must outlive the boot
// services phase of the driver, so it comes from pool and is never freed.
QOR_MRC_DATA gMrcData;
UINT8 gProcessorSpeed[QOR_MRC_MAX_SOCKETS];
QOR_DIMM_MAP_ENTRY gDimmMap[kDimmSlots + 1];
UINT64 gMemoryMapPointer;
QOR_IIO_PORT_HOB_ENTRY gIioPorts[QOR_MRC_MAX_SOCKETS * QOR_IIO_STACKS_PER_SOCKET];

VOID *FirmwareHobList() {
  for (UINTN I = 0; I < gST->NumberOfTableEntries; I++) {
    if (QorCompareGuid(&gST->ConfigurationTable[I].VendorGuid, &gEfiHobListGuid)) {
      return gST->ConfigurationTable[I].VendorTable;
    }
  }
  return nullptr;
}

}  // namespace

EFI_STATUS QorRigInstallHobList(CONST QOR_RIG_MACHINE *Machine) {
  VOID *Original = FirmwareHobList();
  UINTN OriginalSize = QorRigHobListSize(Original, kMaxHobListBytes);
  if (OriginalSize == 0) {
    QorRigWarn("the firmware's HOB list is missing or has no end");
    return EFI_NOT_FOUND;
  }

  BuildMrcData(Machine, &gMrcData);
  for (UINT32 S = 0; S < QOR_MRC_MAX_SOCKETS; S++) {
    gProcessorSpeed[S] = S < SocketsOf(Machine) ? (UINT8)(Machine->MaxSpeedMhz / 100) : 0;
  }
  UINTN DimmMapEntries = BuildDimmMap(Machine, gDimmMap);
  UINT8 *MemoryMapData = (UINT8 *)QorAllocateZeroPool(QOR_MEMMAP_DATA_SIZE);
  if (MemoryMapData == nullptr) return EFI_OUT_OF_RESOURCES;
  BuildMemoryMapData(Machine, MemoryMapData);
  gMemoryMapPointer = (UINT64)(UINTN)MemoryMapData;
  UINTN IioEntries = BuildIioPortEntries(Machine, gIioPorts, sizeof(gIioPorts) / sizeof(gIioPorts[0]));

  QOR_RIG_GUID_HOB Hobs[] = {
      {&gQorMrcDataHobGuid, &gMrcData, sizeof(gMrcData)},
      {&gQorProcessorSpeedHobGuid, gProcessorSpeed, sizeof(gProcessorSpeed)},
      {&gQorDimmMapHobGuid, gDimmMap, DimmMapEntries * sizeof(gDimmMap[0])},
      {&gQorMemoryMapHobGuid, &gMemoryMapPointer, sizeof(gMemoryMapPointer)},
      {&gQorIioPortHobGuid, gIioPorts, IioEntries * sizeof(gIioPorts[0])},
  };
  UINTN Count = sizeof(Hobs) / sizeof(Hobs[0]);
  UINTN Size = QorRigExtendedHobListSize(OriginalSize, Hobs, Count);
  VOID *List = Size != 0 ? QorAllocateZeroPool(Size) : nullptr;
  if (List == nullptr || QorRigBuildHobList(Original, OriginalSize, Hobs, Count, List, Size) != Size) {
    return EFI_OUT_OF_RESOURCES;
  }
  return gBS->InstallConfigurationTable((EFI_GUID *)&gEfiHobListGuid, List);
}
