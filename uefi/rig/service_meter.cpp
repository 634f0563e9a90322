// Wraps the boot and runtime services whose use by the driver the rig
// reports: pool allocations (count, bytes, peak and what is still held),
// GetMemoryMap (the map the driver was given goes to the host, so the
// MemoryMap section can be checked against it), SetVariable and
// ResetSystem (each call goes to the host before it takes effect). A call
// is the driver's when its return address lies in the driver's image.
#include "platform/base_lib.h"
#include "platform/uefi_lib.h"
#include "uefi/rig/rig.h"
#include "uefi/rig/rig_channel.h"
#include "uefi/rig/serial_channel.h"

namespace {

CONST UINT8 *gDriverBase = nullptr;
UINT64 gDriverSize = 0;

EFI_ALLOCATE_POOL gAllocatePool = nullptr;
EFI_FREE_POOL gFreePool = nullptr;
EFI_GET_MEMORY_MAP gGetMemoryMap = nullptr;
EFI_SET_VARIABLE gSetVariable = nullptr;
EFI_RESET_SYSTEM gResetSystem = nullptr;

// Live allocations of the driver: open addressing on the pointer, linear
// probing, deletion by shifting the following run back.
struct POOL_SLOT {
  VOID *Pointer;
  UINTN Size;
};
constexpr UINTN kSlotCount = 1 << 16;
POOL_SLOT *gSlots = nullptr;
UINTN gLive = 0;

struct POOL_USE {
  UINT64 Allocations;
  UINT64 Failed;
  UINT64 Bytes;
  UINT64 Frees;
  UINT64 ForeignFrees;  // buffers the firmware allocated on the driver's behalf
  UINT64 Untracked;     // allocations past the table's capacity
  UINT64 Current;
  UINT64 Peak;
} gPool;

UINTN SlotOf(VOID *Pointer) { return (UINTN)((((UINT64)(UINTN)Pointer >> 3) * 0x9E3779B97F4A7C15ULL) >> 48); }

BOOLEAN Track(VOID *Pointer, UINTN Size) {
  if (gSlots == nullptr || gLive + 1 >= kSlotCount / 2) return FALSE;  // keep the table at most half full
  UINTN I = SlotOf(Pointer);
  while (gSlots[I].Pointer != nullptr) I = (I + 1) & (kSlotCount - 1);
  gSlots[I] = {Pointer, Size};
  gLive++;
  return TRUE;
}

BOOLEAN Untrack(VOID *Pointer, UINTN *Size) {
  if (gSlots == nullptr || Pointer == nullptr) return FALSE;
  UINTN I = SlotOf(Pointer);
  while (gSlots[I].Pointer != Pointer) {
    if (gSlots[I].Pointer == nullptr) return FALSE;
    I = (I + 1) & (kSlotCount - 1);
  }
  *Size = gSlots[I].Size;
  gSlots[I].Pointer = nullptr;
  gLive--;
  // Move back every entry of the run that would no longer be found.
  for (UINTN J = (I + 1) & (kSlotCount - 1); gSlots[J].Pointer != nullptr; J = (J + 1) & (kSlotCount - 1)) {
    UINTN Home = SlotOf(gSlots[J].Pointer);
    BOOLEAN MustMove = (I <= J) ? (Home <= I || Home > J) : (Home <= I && Home > J);
    if (MustMove) {
      gSlots[I] = gSlots[J];
      gSlots[J].Pointer = nullptr;
      I = J;
    }
  }
  return TRUE;
}

#define FROM_DRIVER() QorRigCalledFromDriver(__builtin_return_address(0))

EFI_STATUS EFIAPI MeteredAllocatePool(EFI_MEMORY_TYPE Type, UINTN Size, VOID **Buffer) {
  EFI_STATUS Status = gAllocatePool(Type, Size, Buffer);
  if (!FROM_DRIVER()) return Status;
  if (EFI_ERROR(Status)) {
    gPool.Failed++;
    return Status;
  }
  gPool.Allocations++;
  gPool.Bytes += Size;
  if (Track(*Buffer, Size)) {
    gPool.Current += Size;
    if (gPool.Current > gPool.Peak) gPool.Peak = gPool.Current;
  } else {
    gPool.Untracked++;
  }
  return Status;
}

EFI_STATUS EFIAPI MeteredFreePool(VOID *Buffer) {
  UINTN Size = 0;
  if (Untrack(Buffer, &Size)) {
    gPool.Frees++;
    gPool.Current -= Size;
  } else if (FROM_DRIVER()) {
    gPool.ForeignFrees++;
  }
  return gFreePool(Buffer);
}

EFI_STATUS EFIAPI MeteredGetMemoryMap(UINTN *MapSize, EFI_MEMORY_DESCRIPTOR *Map, UINTN *MapKey, UINTN *DescriptorSize,
                                      UINT32 *DescriptorVersion) {
  EFI_STATUS Status = gGetMemoryMap(MapSize, Map, MapKey, DescriptorSize, DescriptorVersion);
  if (FROM_DRIVER() && !EFI_ERROR(Status) && Map != nullptr && DescriptorSize != nullptr) {
    UINT64 Stride = *DescriptorSize;
    QOR_RIG_PIECE Pieces[2] = {{&Stride, sizeof(Stride)}, {Map, *MapSize}};
    QorRigSendFrame(QOR_RIG_FRAME_BLOB, QOR_RIG_BLOB_MEMORY_MAP, Pieces, 2);
  }
  return Status;
}

EFI_STATUS EFIAPI MeteredSetVariable(CHAR16 *Name, EFI_GUID *Guid, UINT32 Attributes, UINTN DataSize, VOID *Data) {
  EFI_STATUS Status = gSetVariable(Name, Guid, Attributes, DataSize, Data);
  if (FROM_DRIVER() && Name != nullptr && Guid != nullptr) {
    CHAR8 AsciiName[128];
    UINTN N = 0;
    for (; N + 1 < sizeof(AsciiName) && Name[N] != 0; N++) AsciiName[N] = Name[N] < 0x80 ? (CHAR8)Name[N] : '?';
    AsciiName[N] = '\0';
    UINT64 Status64 = Status;
    QOR_RIG_PIECE Pieces[4] = {{Guid, sizeof(*Guid)},
                               {&Attributes, sizeof(Attributes)},
                               {&Status64, sizeof(Status64)},
                               {Data, Data != nullptr ? DataSize : 0}};
    QorRigSendFrame(QOR_RIG_FRAME_VARIABLE, AsciiName, Pieces, 4);
  }
  return Status;
}

VOID EFIAPI MeteredResetSystem(EFI_RESET_TYPE Type, EFI_STATUS ResetStatus, UINTN DataSize, VOID *ResetData) {
  // The boot ends here: what the driver used so far goes out first.
  QorRigReportPoolUse();
  UINT32 Type32 = (UINT32)Type;
  UINT64 Status64 = ResetStatus;
  QOR_RIG_PIECE Pieces[2] = {{&Type32, sizeof(Type32)}, {&Status64, sizeof(Status64)}};
  QorRigSendFrame(QOR_RIG_FRAME_RESET, FROM_DRIVER() ? "driver" : "firmware", Pieces, 2);
  gResetSystem(Type, ResetStatus, DataSize, ResetData);
}

VOID UpdateCrc(EFI_TABLE_HEADER *Header) {
  UINT32 Crc = 0;
  Header->CRC32 = 0;
  gBS->CalculateCrc32(Header, Header->HeaderSize, &Crc);
  Header->CRC32 = Crc;
}

}  // namespace

VOID QorRigSetDriverImage(CONST VOID *Base, UINT64 Size) {
  gDriverBase = (CONST UINT8 *)Base;
  gDriverSize = Size;
}

BOOLEAN QorRigCalledFromDriver(CONST VOID *ReturnAddress) {
  CONST UINT8 *Address = (CONST UINT8 *)ReturnAddress;
  return gDriverBase != nullptr && Address >= gDriverBase && Address < gDriverBase + gDriverSize;
}

EFI_STATUS QorRigMeterServices(VOID) {
  EFI_STATUS Status = gBS->AllocatePool(EfiBootServicesData, kSlotCount * sizeof(POOL_SLOT), (VOID **)&gSlots);
  if (EFI_ERROR(Status)) return Status;
  QorZeroMem(gSlots, kSlotCount * sizeof(POOL_SLOT));
  QorZeroMem(&gPool, sizeof(gPool));

  EFI_TPL Old = gBS->RaiseTPL(TPL_HIGH_LEVEL);
  gAllocatePool = gBS->AllocatePool;
  gFreePool = gBS->FreePool;
  gGetMemoryMap = gBS->GetMemoryMap;
  gBS->AllocatePool = MeteredAllocatePool;
  gBS->FreePool = MeteredFreePool;
  gBS->GetMemoryMap = MeteredGetMemoryMap;
  UpdateCrc(&gBS->Hdr);
  gSetVariable = gRT->SetVariable;
  gResetSystem = gRT->ResetSystem;
  gRT->SetVariable = MeteredSetVariable;
  gRT->ResetSystem = MeteredResetSystem;
  UpdateCrc(&gRT->Hdr);
  gBS->RestoreTPL(Old);
  return EFI_SUCCESS;
}

VOID QorRigShutdown(VOID) {
  EFI_RESET_SYSTEM Reset = gResetSystem != nullptr ? gResetSystem : gRT->ResetSystem;
  Reset(EfiResetShutdown, EFI_SUCCESS, 0, nullptr);
}

VOID QorRigReportPoolUse(VOID) {
  QorRigReport("poolAllocations", "%lu", gPool.Allocations);
  QorRigReport("poolFailedAllocations", "%lu", gPool.Failed);
  QorRigReport("poolBytesAllocated", "%lu", gPool.Bytes);
  QorRigReport("poolFrees", "%lu", gPool.Frees);
  QorRigReport("poolForeignFrees", "%lu", gPool.ForeignFrees);
  QorRigReport("poolUntracked", "%lu", gPool.Untracked);
  QorRigReport("poolPeakBytes", "%lu", gPool.Peak);
  QorRigReport("poolHeldBytes", "%lu", gPool.Current);
  QorRigReport("poolHeldBuffers", "%lu", (UINT64)gLive);
}
