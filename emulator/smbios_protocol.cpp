#include "emulator/smbios_protocol.h"

#include <cstring>
#include <set>

#include "emulator/firmware.h"
#include "emulator/smbios_table.h"

namespace qor::emu {

namespace {

// Strings set through UpdateString are limited to this many characters.
constexpr size_t kMaxStringLength = 64;
// An added structure larger than this is taken as one without its double NUL.
constexpr size_t kMaxStructureSize = 0x10000;

void CountCall(const char *Member) {
  if (Firmware::Current() != nullptr) Firmware::Current()->Count(Member);
}

EFI_STATUS EFIAPI SmbiosAdd(CONST EFI_SMBIOS_PROTOCOL *This, EFI_HANDLE ProducerHandle,
                            EFI_SMBIOS_HANDLE *SmbiosHandle, EFI_SMBIOS_TABLE_HEADER *Record) {
  CountCall("Smbios.Add");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return SmbiosStore::From(This)->Add(ProducerHandle, SmbiosHandle, Record);
}

EFI_STATUS EFIAPI SmbiosUpdateString(CONST EFI_SMBIOS_PROTOCOL *This, EFI_SMBIOS_HANDLE *SmbiosHandle,
                                     UINTN *StringNumber, CHAR8 *String) {
  CountCall("Smbios.UpdateString");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return SmbiosStore::From(This)->UpdateString(SmbiosHandle, StringNumber, String);
}

EFI_STATUS EFIAPI SmbiosRemove(CONST EFI_SMBIOS_PROTOCOL *This, EFI_SMBIOS_HANDLE SmbiosHandle) {
  CountCall("Smbios.Remove");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return SmbiosStore::From(This)->Remove(SmbiosHandle);
}

EFI_STATUS EFIAPI SmbiosGetNext(CONST EFI_SMBIOS_PROTOCOL *This, EFI_SMBIOS_HANDLE *SmbiosHandle,
                                EFI_SMBIOS_TYPE *Type, EFI_SMBIOS_TABLE_HEADER **Record,
                                EFI_HANDLE *ProducerHandle) {
  CountCall("Smbios.GetNext");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return SmbiosStore::From(This)->GetNext(SmbiosHandle, Type, Record, ProducerHandle);
}

uint16_t HandleOf(const std::vector<uint8_t> &Bytes) { return static_cast<uint16_t>(Bytes[2] | (Bytes[3] << 8)); }

}  // namespace

SmbiosStore::SmbiosStore(const SmbiosDef &Def) {
  Interface_.Owner = this;
  Interface_.Protocol.Add = SmbiosAdd;
  Interface_.Protocol.UpdateString = SmbiosUpdateString;
  Interface_.Protocol.Remove = SmbiosRemove;
  Interface_.Protocol.GetNext = SmbiosGetNext;
  Interface_.Protocol.MajorVersion = Def.MajorVersion;
  Interface_.Protocol.MinorVersion = Def.MinorVersion;
  std::set<uint16_t> Seen;
  for (const auto &Bytes : Def.Records) {
    uint16_t Handle = HandleOf(Bytes);
    if (!Seen.insert(Handle).second) {
      throw BoardError("board.smbios: two structures use handle " + std::to_string(Handle));
    }
    Entries_.push_back(std::make_unique<Entry>(Entry{Handle, nullptr, Bytes}));
  }
}

SmbiosStore *SmbiosStore::From(const EFI_SMBIOS_PROTOCOL *This) {
  return reinterpret_cast<const Interface *>(This)->Owner;
}

std::vector<std::vector<uint8_t>> SmbiosStore::Records() const {
  std::vector<std::vector<uint8_t>> Out;
  for (const auto &E : Entries_) Out.push_back(E->Bytes);
  return Out;
}

SmbiosStore::Entry *SmbiosStore::Find(EFI_SMBIOS_HANDLE Handle) {
  for (auto &E : Entries_) {
    if (E->Handle == Handle) return E.get();
  }
  return nullptr;
}

EFI_STATUS SmbiosStore::Add(EFI_HANDLE Producer, EFI_SMBIOS_HANDLE *Handle, const EFI_SMBIOS_TABLE_HEADER *Record) {
  if (Handle == nullptr || Record == nullptr || Record->Length < sizeof(EFI_SMBIOS_TABLE_HEADER)) {
    return EFI_INVALID_PARAMETER;
  }
  const uint8_t *Bytes = reinterpret_cast<const uint8_t *>(Record);
  size_t Size = 0;
  for (size_t At = Record->Length; At + 1 < kMaxStructureSize; At++) {
    if (Bytes[At] == 0 && Bytes[At + 1] == 0) {
      Size = At + 2;
      break;
    }
  }
  if (Size == 0) return EFI_INVALID_PARAMETER;
  if (*Handle == SMBIOS_HANDLE_PI_RESERVED) {
    EFI_SMBIOS_HANDLE Free = 0;
    while (Find(Free) != nullptr && Free < SMBIOS_HANDLE_PI_RESERVED) Free++;
    if (Free >= SMBIOS_HANDLE_PI_RESERVED) return EFI_OUT_OF_RESOURCES;
    *Handle = Free;
  } else if (*Handle > SMBIOS_HANDLE_PI_RESERVED || Find(*Handle) != nullptr) {
    return EFI_ALREADY_STARTED;
  }
  auto Added = std::make_unique<Entry>(Entry{*Handle, Producer, std::vector<uint8_t>(Bytes, Bytes + Size)});
  Added->Bytes[2] = static_cast<uint8_t>(*Handle);
  Added->Bytes[3] = static_cast<uint8_t>(*Handle >> 8);
  Entries_.push_back(std::move(Added));
  return EFI_SUCCESS;
}

EFI_STATUS SmbiosStore::UpdateString(const EFI_SMBIOS_HANDLE *Handle, const UINTN *StringNumber,
                                     const CHAR8 *String) {
  if (Handle == nullptr || StringNumber == nullptr || String == nullptr || *StringNumber == 0) {
    return EFI_INVALID_PARAMETER;
  }
  size_t Length = strnlen(String, kMaxStringLength + 1);
  if (Length > kMaxStringLength) return EFI_UNSUPPORTED;
  Entry *E = Find(*Handle);
  if (E == nullptr) return EFI_INVALID_PARAMETER;
  std::vector<uint8_t> &Bytes = E->Bytes;
  size_t Start = Bytes[1];
  UINTN Number = 1;
  // Walk the string area: strings end at NUL, the area at the second NUL.
  while (Start < Bytes.size() - 1 && Bytes[Start] != 0) {
    size_t End = Start;
    while (Bytes[End] != 0) End++;
    if (Number == *StringNumber) {
      if (Length == 0) return EFI_INVALID_PARAMETER;
      std::vector<uint8_t> Updated(Bytes.begin(), Bytes.begin() + static_cast<std::ptrdiff_t>(Start));
      Updated.insert(Updated.end(), String, String + Length);
      Updated.insert(Updated.end(), Bytes.begin() + static_cast<std::ptrdiff_t>(End), Bytes.end());
      Bytes = std::move(Updated);
      return EFI_SUCCESS;
    }
    Number++;
    Start = End + 1;
  }
  return EFI_NOT_FOUND;
}

EFI_STATUS SmbiosStore::Remove(EFI_SMBIOS_HANDLE Handle) {
  for (size_t I = 0; I < Entries_.size(); I++) {
    if (Entries_[I]->Handle == Handle) {
      Entries_.erase(Entries_.begin() + static_cast<std::ptrdiff_t>(I));
      return EFI_SUCCESS;
    }
  }
  return EFI_INVALID_PARAMETER;
}

// From SMBIOS_HANDLE_PI_RESERVED the first structure (of Type, when given);
// otherwise the first one after the structure with *Handle. At the end, or
// when *Handle names no structure, *Handle becomes SMBIOS_HANDLE_PI_RESERVED
// and the result is EFI_NOT_FOUND.
EFI_STATUS SmbiosStore::GetNext(EFI_SMBIOS_HANDLE *Handle, const EFI_SMBIOS_TYPE *Type,
                                EFI_SMBIOS_TABLE_HEADER **Record, EFI_HANDLE *Producer) {
  if (Handle == nullptr || Record == nullptr) return EFI_INVALID_PARAMETER;
  bool Started = *Handle == SMBIOS_HANDLE_PI_RESERVED;
  for (auto &E : Entries_) {
    if (!Started) {
      Started = E->Handle == *Handle;
      continue;
    }
    if (Type != nullptr && E->Bytes[0] != *Type) continue;
    *Handle = E->Handle;
    *Record = reinterpret_cast<EFI_SMBIOS_TABLE_HEADER *>(E->Bytes.data());
    if (Producer != nullptr) *Producer = E->Producer;
    return EFI_SUCCESS;
  }
  *Handle = SMBIOS_HANDLE_PI_RESERVED;
  return EFI_NOT_FOUND;
}

}  // namespace qor::emu
