// The two PCD protocols as the driver expects them. OVMF has both, but its
// token numbers mean other things; the rig puts its own tables in front:
// calls from the driver image are answered from the rig's values, every
// other caller is handed to OVMF's original members, so the firmware keeps
// working with its own configuration.
#include "platform/base_lib.h"
#include "platform/guids.h"
#include "platform/pcd_lib.h"
#include "platform/pcd_protocol.h"
#include "platform/uefi_lib.h"
#include "uefi/rig/rig.h"
#include "uefi/rig/rig_platform_values.h"
#include "uefi/rig/serial_channel.h"

namespace {

// Tokens the PCIe walk reads that have no name in the platform layer.
constexpr UINTN kTokenIpmiBootMode = 40;
constexpr UINTN kExTokenDpuNicSlot = 177;          // CustomerId token space
constexpr UINTN kExTokenOnboardSlotConfig = 6;     // on-board slot token space

struct PCD_ENTRY {
  CONST EFI_GUID *Space;  // NULL: a token of the platform database (PCD_PROTOCOL)
  UINTN Token;
  UINT64 Value;
  CONST VOID *Pointer;  // pointer tokens
};

constexpr UINTN kMaxEntries = 32;
PCD_ENTRY gEntries[kMaxEntries];
UINTN gEntryCount = 0;

PCD_PROTOCOL gOriginalPcd;
EFI_PCD_PROTOCOL gOriginalPiPcd;
BOOLEAN gHaveOriginalPcd = FALSE;
BOOLEAN gHaveOriginalPiPcd = FALSE;
PCD_PROTOCOL gPcd;
EFI_PCD_PROTOCOL gPiPcd;

VOID Add(CONST EFI_GUID *Space, UINTN Token, UINT64 Value, CONST VOID *Pointer = nullptr) {
  if (gEntryCount == kMaxEntries) return;
  gEntries[gEntryCount++] = {Space, Token, Value, Pointer};
}

BOOLEAN SameSpace(CONST EFI_GUID *A, CONST EFI_GUID *B) {
  if (A == nullptr || B == nullptr) return A == B;
  return QorCompareGuid(A, B);
}

PCD_ENTRY *Find(CONST EFI_GUID *Space, UINTN Token) {
  for (UINTN I = 0; I < gEntryCount; I++) {
    if (gEntries[I].Token == Token && SameSpace(gEntries[I].Space, Space)) return &gEntries[I];
  }
  return nullptr;
}

// A token the driver reads that the rig does not serve reads as 0 and is
// reported once.
constexpr UINTN kMaxReported = 16;
PCD_ENTRY gReported[kMaxReported];
UINTN gReportedCount = 0;

PCD_ENTRY *Lookup(CONST EFI_GUID *Space, UINTN Token) {
  PCD_ENTRY *Entry = Find(Space, Token);
  if (Entry != nullptr) return Entry;
  for (UINTN I = 0; I < gReportedCount; I++) {
    if (gReported[I].Token == Token && SameSpace(gReported[I].Space, Space)) return nullptr;
  }
  if (gReportedCount < kMaxReported) gReported[gReportedCount++] = {Space, Token, 0, nullptr};
  if (Space == nullptr) {
    QorRigWarn("the driver read PCD token %u, which the rig does not serve (it reads 0)", (UINT32)Token);
  } else {
    QorRigWarn("the driver read PCD token %g:%u, which the rig does not serve (it reads 0)", Space, (UINT32)Token);
  }
  return nullptr;
}

UINT64 Value(CONST EFI_GUID *Space, UINTN Token) {
  PCD_ENTRY *Entry = Lookup(Space, Token);
  return Entry != nullptr ? Entry->Value : 0;
}

VOID *Pointer(CONST EFI_GUID *Space, UINTN Token) {
  PCD_ENTRY *Entry = Lookup(Space, Token);
  return Entry != nullptr ? (VOID *)Entry->Pointer : nullptr;
}

EFI_STATUS Set(CONST EFI_GUID *Space, UINTN Token, UINT64 NewValue) {
  PCD_ENTRY *Entry = Find(Space, Token);
  if (Entry == nullptr) {
    if (gEntryCount == kMaxEntries) return EFI_OUT_OF_RESOURCES;
    Add(Space, Token, NewValue);
    return EFI_SUCCESS;
  }
  Entry->Value = NewValue;
  return EFI_SUCCESS;
}

// The rig answers the driver, and everybody when the firmware has no PCD
// protocol of its own.
#define SERVE_PCD() (!gHaveOriginalPcd || QorRigCalledFromDriver(__builtin_return_address(0)))
#define SERVE_PI_PCD() (!gHaveOriginalPiPcd || QorRigCalledFromDriver(__builtin_return_address(0)))

// ---- PCD_PROTOCOL members (no interface pointer in this protocol)
UINT8 EFIAPI Get8(UINTN T) { return SERVE_PCD() ? (UINT8)Value(nullptr, T) : gOriginalPcd.Get8(T); }
UINT16 EFIAPI Get16(UINTN T) { return SERVE_PCD() ? (UINT16)Value(nullptr, T) : gOriginalPcd.Get16(T); }
UINT32 EFIAPI Get32(UINTN T) { return SERVE_PCD() ? (UINT32)Value(nullptr, T) : gOriginalPcd.Get32(T); }
UINT64 EFIAPI Get64(UINTN T) { return SERVE_PCD() ? Value(nullptr, T) : gOriginalPcd.Get64(T); }
VOID *EFIAPI GetPtr(UINTN T) { return SERVE_PCD() ? Pointer(nullptr, T) : gOriginalPcd.GetPtr(T); }
BOOLEAN EFIAPI GetBool(UINTN T) { return SERVE_PCD() ? (BOOLEAN)(Value(nullptr, T) != 0) : gOriginalPcd.GetBool(T); }
UINT8 EFIAPI Get8Ex(CONST EFI_GUID *G, UINTN T) { return SERVE_PCD() ? (UINT8)Value(G, T) : gOriginalPcd.Get8Ex(G, T); }
UINT16 EFIAPI Get16Ex(CONST EFI_GUID *G, UINTN T) {
  return SERVE_PCD() ? (UINT16)Value(G, T) : gOriginalPcd.Get16Ex(G, T);
}
UINT32 EFIAPI Get32Ex(CONST EFI_GUID *G, UINTN T) {
  return SERVE_PCD() ? (UINT32)Value(G, T) : gOriginalPcd.Get32Ex(G, T);
}
UINT64 EFIAPI Get64Ex(CONST EFI_GUID *G, UINTN T) { return SERVE_PCD() ? Value(G, T) : gOriginalPcd.Get64Ex(G, T); }
VOID *EFIAPI GetPtrEx(CONST EFI_GUID *G, UINTN T) { return SERVE_PCD() ? Pointer(G, T) : gOriginalPcd.GetPtrEx(G, T); }
EFI_STATUS EFIAPI Set8(UINTN T, UINT8 V) { return SERVE_PCD() ? Set(nullptr, T, V) : gOriginalPcd.Set8(T, V); }
EFI_STATUS EFIAPI Set32(UINTN T, UINT32 V) { return SERVE_PCD() ? Set(nullptr, T, V) : gOriginalPcd.Set32(T, V); }
EFI_STATUS EFIAPI Set8Ex(CONST EFI_GUID *G, UINTN T, UINT8 V) {
  return SERVE_PCD() ? Set(G, T, V) : gOriginalPcd.Set8Ex(G, T, V);
}

// ---- EFI_PCD_PROTOCOL members (every token by token space)
UINT8 EFIAPI PiGet8(CONST EFI_GUID *G, UINTN T) { return SERVE_PI_PCD() ? (UINT8)Value(G, T) : gOriginalPiPcd.Get8(G, T); }
UINT16 EFIAPI PiGet16(CONST EFI_GUID *G, UINTN T) {
  return SERVE_PI_PCD() ? (UINT16)Value(G, T) : gOriginalPiPcd.Get16(G, T);
}
UINT32 EFIAPI PiGet32(CONST EFI_GUID *G, UINTN T) {
  return SERVE_PI_PCD() ? (UINT32)Value(G, T) : gOriginalPiPcd.Get32(G, T);
}
UINT64 EFIAPI PiGet64(CONST EFI_GUID *G, UINTN T) { return SERVE_PI_PCD() ? Value(G, T) : gOriginalPiPcd.Get64(G, T); }
VOID *EFIAPI PiGetPtr(CONST EFI_GUID *G, UINTN T) { return SERVE_PI_PCD() ? Pointer(G, T) : gOriginalPiPcd.GetPtr(G, T); }
EFI_STATUS EFIAPI PiSet8(CONST EFI_GUID *G, UINTN T, UINT8 V) {
  return SERVE_PI_PCD() ? Set(G, T, V) : gOriginalPiPcd.Set8(G, T, V);
}

VOID FillTable(CONST QOR_RIG_CONFIG *Config, CONST QOR_RIG_MACHINE *Machine) {
  gEntryCount = 0;
  Add(nullptr, QOR_PCD_TOKEN_SOCKET_COUNT, Machine->Sockets);
  Add(nullptr, QOR_PCD_TOKEN_VMD_FW_VERSION_SWITCH, 1);
  Add(nullptr, QOR_PCD_TOKEN_CODE, 0, QOR_RIG_PCD_CODE_TEXT);
  Add(nullptr, QOR_PCD_TOKEN_INT_VERSION, 0, QOR_RIG_PCD_INT_VERSION_TEXT);
  Add(nullptr, QOR_PCD_TOKEN_EXT_VERSION, 0, QOR_RIG_PCD_EXT_VERSION_TEXT);
  Add(nullptr, QOR_PCD_TOKEN_EXT_VERSION_ALT, 0, QOR_RIG_PCD_EXT_VERSION_ALT_TEXT);
  Add(nullptr, QOR_PCD_TOKEN_HIDE_VERSION, 0, QOR_RIG_PCD_HIDE_VERSION_TEXT);
  Add(nullptr, QOR_PCD_TOKEN_SATA_DRIVE_COUNT, Machine->SataCount);
  Add(nullptr, kTokenIpmiBootMode, 0);
  // Mode 3 with divisor 1: buses 0-127 belong to socket 0, 128-255 to socket 1.
  Add(nullptr, QOR_PCD_TOKEN_BUS_PARTITION_MODE, 3);
  Add(nullptr, QOR_PCD_TOKEN_BUS_PARTITION_DIVISOR, 1);
  Add(&gQorCustomerIdTokenSpaceGuid, QOR_PCD_EX_TOKEN_CUSTOMER_ID, Config->CustomerId);
  Add(&gQorCustomerIdTokenSpaceGuid, QOR_PCD_EX_TOKEN_MAX_SATA, QOR_RIG_MAX_SATA);
  Add(&gQorCustomerIdTokenSpaceGuid, kExTokenDpuNicSlot, 0xFF);  // no DPU slot configured
  Add(&gQorOnboardPcdTokenSpaceGuid, kExTokenOnboardSlotConfig, 0);
}

// Puts Ours in front of the firmware's instance of Guid: the firmware's is
// taken off its handle, ours installed, the firmware's put back, so
// LocateProtocol finds ours first and handle searches still see both.
EFI_STATUS InstallInFront(CONST EFI_GUID *Guid, VOID *Ours, VOID **Original) {
  EFI_HANDLE *Handles = nullptr;
  UINTN Count = 0;
  *Original = nullptr;
  EFI_HANDLE FirmwareHandle = nullptr;
  if (!EFI_ERROR(gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)Guid, nullptr, &Count, &Handles)) && Count > 0) {
    FirmwareHandle = Handles[0];
    gBS->HandleProtocol(FirmwareHandle, (EFI_GUID *)Guid, Original);
    gBS->FreePool(Handles);
  }
  if (*Original != nullptr) {
    EFI_STATUS Status = gBS->UninstallProtocolInterface(FirmwareHandle, (EFI_GUID *)Guid, *Original);
    if (EFI_ERROR(Status)) return Status;
  }
  EFI_STATUS Status = QorRigInstallOnNewHandle(Guid, Ours);
  if (*Original != nullptr) {
    // The firmware's handle may have gone with its last protocol.
    EFI_STATUS Back = gBS->InstallProtocolInterface(&FirmwareHandle, (EFI_GUID *)Guid, EFI_NATIVE_INTERFACE, *Original);
    if (EFI_ERROR(Back)) {
      FirmwareHandle = nullptr;
      gBS->InstallProtocolInterface(&FirmwareHandle, (EFI_GUID *)Guid, EFI_NATIVE_INTERFACE, *Original);
    }
  }
  return Status;
}

}  // namespace

EFI_STATUS QorRigInstallPcdProtocols(CONST QOR_RIG_CONFIG *Config, CONST QOR_RIG_MACHINE *Machine) {
  FillTable(Config, Machine);

  // Members the rig does not answer itself stay the firmware's.
  VOID *Original = nullptr;
  PCD_PROTOCOL *FirmwarePcd = nullptr;
  QorLocateProtocol(&gPcdProtocolGuid, (VOID **)&FirmwarePcd);
  if (FirmwarePcd != nullptr) {
    gOriginalPcd = *FirmwarePcd;
    gHaveOriginalPcd = TRUE;
    gPcd = *FirmwarePcd;
  }
  gPcd.Get8 = Get8;
  gPcd.Get16 = Get16;
  gPcd.Get32 = Get32;
  gPcd.Get64 = Get64;
  gPcd.GetPtr = GetPtr;
  gPcd.GetBool = GetBool;
  gPcd.Get8Ex = Get8Ex;
  gPcd.Get16Ex = Get16Ex;
  gPcd.Get32Ex = Get32Ex;
  gPcd.Get64Ex = Get64Ex;
  gPcd.GetPtrEx = GetPtrEx;
  gPcd.Set8 = Set8;
  gPcd.Set32 = Set32;
  gPcd.Set8Ex = Set8Ex;

  EFI_PCD_PROTOCOL *FirmwarePiPcd = nullptr;
  QorLocateProtocol(&gEfiPcdProtocolGuid, (VOID **)&FirmwarePiPcd);
  if (FirmwarePiPcd != nullptr) {
    gOriginalPiPcd = *FirmwarePiPcd;
    gHaveOriginalPiPcd = TRUE;
    gPiPcd = *FirmwarePiPcd;
  }
  gPiPcd.Get8 = PiGet8;
  gPiPcd.Get16 = PiGet16;
  gPiPcd.Get32 = PiGet32;
  gPiPcd.Get64 = PiGet64;
  gPiPcd.GetPtr = PiGetPtr;
  gPiPcd.Set8 = PiSet8;

  EFI_STATUS Status = InstallInFront(&gPcdProtocolGuid, &gPcd, &Original);
  if (EFI_ERROR(Status)) return Status;
  return InstallInFront(&gEfiPcdProtocolGuid, &gPiPcd, &Original);
}
