#include "emulator/pcd_database.h"

#include "emulator/board_json.h"

namespace qor::emu {

namespace {
PcdDatabase *gPcds = nullptr;
PcdDatabase &Db() { return *PcdDatabase::Current(); }

VOID EFIAPI SetSku(UINTN) {}
UINT8 EFIAPI Get8(UINTN Token) { return static_cast<UINT8>(Db().Number(Token)); }
UINT16 EFIAPI Get16(UINTN Token) { return static_cast<UINT16>(Db().Number(Token)); }
UINT32 EFIAPI Get32(UINTN Token) { return static_cast<UINT32>(Db().Number(Token)); }
UINT64 EFIAPI Get64(UINTN Token) { return Db().Number(Token); }
VOID *EFIAPI GetPtr(UINTN Token) { return Db().Pointer(Token); }
BOOLEAN EFIAPI GetBool(UINTN Token) { return Db().Number(Token) != 0; }
UINTN EFIAPI GetSize(UINTN Token) { return 8; }
UINT8 EFIAPI Get8Ex(CONST EFI_GUID *Guid, UINTN Token) { return static_cast<UINT8>(Db().NumberEx(Guid, Token)); }
UINT16 EFIAPI Get16Ex(CONST EFI_GUID *Guid, UINTN Token) { return static_cast<UINT16>(Db().NumberEx(Guid, Token)); }
UINT32 EFIAPI Get32Ex(CONST EFI_GUID *Guid, UINTN Token) { return static_cast<UINT32>(Db().NumberEx(Guid, Token)); }
UINT64 EFIAPI Get64Ex(CONST EFI_GUID *Guid, UINTN Token) { return Db().NumberEx(Guid, Token); }
VOID *EFIAPI GetPtrEx(CONST EFI_GUID *, UINTN) { return nullptr; }
BOOLEAN EFIAPI GetBoolEx(CONST EFI_GUID *Guid, UINTN Token) { return Db().NumberEx(Guid, Token) != 0; }
UINTN EFIAPI GetSizeEx(CONST EFI_GUID *, UINTN) { return 8; }
EFI_STATUS EFIAPI Set8(UINTN Token, UINT8 Value) { return Db().SetNumber(Token, Value, 1); }
EFI_STATUS EFIAPI Set16(UINTN Token, UINT16 Value) { return Db().SetNumber(Token, Value, 2); }
EFI_STATUS EFIAPI Set32(UINTN Token, UINT32 Value) { return Db().SetNumber(Token, Value, 4); }
EFI_STATUS EFIAPI Set64(UINTN Token, UINT64 Value) { return Db().SetNumber(Token, Value, 8); }
EFI_STATUS EFIAPI SetPtr(UINTN, UINTN *, VOID *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI SetBool(UINTN Token, BOOLEAN Value) { return Db().SetNumber(Token, Value, 1); }
EFI_STATUS EFIAPI SetEx8(CONST EFI_GUID *, UINTN, UINT8) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI SetEx16(CONST EFI_GUID *, UINTN, UINT16) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI SetEx32(CONST EFI_GUID *, UINTN, UINT32) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI SetEx64(CONST EFI_GUID *, UINTN, UINT64) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI SetExPtr(CONST EFI_GUID *, UINTN, UINTN *, VOID *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI SetExBool(CONST EFI_GUID *, UINTN, BOOLEAN) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI Callback(CONST EFI_GUID *, UINTN, PCD_PROTOCOL_CALLBACK) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI NextToken(CONST EFI_GUID *, UINTN *) { return EFI_NOT_FOUND; }
EFI_STATUS EFIAPI NextSpace(CONST EFI_GUID **) { return EFI_NOT_FOUND; }
UINT64 EFIAPI PiGet64(CONST EFI_GUID *Guid, UINTN Token) { return Db().NumberEx(Guid, Token); }
EFI_STATUS EFIAPI PiCallback(CONST EFI_GUID *, UINTN, EFI_PCD_PROTOCOL_CALLBACK) { return EFI_UNSUPPORTED; }
}  // namespace

PcdDatabase *PcdDatabase::Current() { return gPcds; }

PcdDatabase::PcdDatabase(const Board &Board) : Values_(Board.Pcds), ExValues_(Board.PcdsEx) {
  Protocol_ = PCD_PROTOCOL{SetSku,  Get8,    Get16,   Get32,     Get64,  GetPtr,  GetBool,   GetSize,
                           Get8Ex,  Get16Ex, Get32Ex, Get64Ex,   GetPtrEx, GetBoolEx, GetSizeEx, Set8,
                           Set16,   Set32,   Set64,   SetPtr,    SetBool, SetEx8,  SetEx16,   SetEx32,
                           SetEx64, SetExPtr, SetExBool, Callback, Callback, NextToken, NextSpace};
  PiProtocol_ = EFI_PCD_PROTOCOL{SetSku, Get8Ex, Get16Ex, Get32Ex, PiGet64, GetPtrEx, GetBoolEx, GetSizeEx,
                                 SetEx8, SetEx16, SetEx32, SetEx64, SetExPtr, SetExBool, PiCallback, PiCallback,
                                 NextToken, NextSpace};
  gPcds = this;
}

PcdDatabase::~PcdDatabase() {
  if (gPcds == this) gPcds = nullptr;
}

uint64_t PcdDatabase::Number(uint64_t Token) {
  auto It = Values_.find(Token);
  if (It == Values_.end() || It->second.IsText) {
    Unknown_.insert(std::to_string(Token));
    return 0;
  }
  return It->second.Number;
}

void *PcdDatabase::Pointer(uint64_t Token) {
  auto It = Values_.find(Token);
  if (It == Values_.end() || !It->second.IsText) {
    Unknown_.insert(std::to_string(Token));
    return nullptr;
  }
  return It->second.Text.data();
}

EFI_STATUS PcdDatabase::SetNumber(uint64_t Token, uint64_t Value, uint32_t Size) {
  if (Values_.find(Token) == Values_.end()) Unknown_.insert(std::to_string(Token));
  Writes_.push_back({Token, Size, Value});
  PcdValue &Entry = Values_[Token];
  Entry.IsText = false;
  Entry.Number = Value;
  return EFI_SUCCESS;
}

uint64_t PcdDatabase::NumberEx(const EFI_GUID *Space, uint64_t Token) {
  if (Space == nullptr) return 0;
  auto It = ExValues_.find({*Space, Token});
  if (It == ExValues_.end()) {
    Unknown_.insert(GuidToText(*Space) + ":" + std::to_string(Token));
    return 0;
  }
  return It->second;
}

}  // namespace qor::emu
