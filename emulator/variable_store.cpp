#include "emulator/variable_store.h"

#include <cstring>

namespace qor::emu {

std::u16string ToU16(const std::string &Text) { return std::u16string(Text.begin(), Text.end()); }

std::string FromU16(const std::u16string &Text) {
  std::string Out;
  for (char16_t C : Text) Out.push_back(C < 0x80 ? static_cast<char>(C) : '?');
  return Out;
}

VariableStore::Key VariableStore::MakeKey(const std::u16string &Name, const EFI_GUID &Guid) {
  return {Name, std::string(reinterpret_cast<const char *>(&Guid), sizeof(Guid))};
}

void VariableStore::Put(const Variable &Value) { Store_[MakeKey(Value.Name, Value.Guid)] = Value; }

const Variable *VariableStore::Find(const std::u16string &Name, const EFI_GUID &Guid) const {
  auto It = Store_.find(MakeKey(Name, Guid));
  return It == Store_.end() ? nullptr : &It->second;
}

std::vector<Variable> VariableStore::All() const {
  std::vector<Variable> Out;
  for (const auto &Entry : Store_) Out.push_back(Entry.second);
  return Out;
}

std::vector<Variable> VariableStore::NonVolatile() const {
  std::vector<Variable> Out;
  for (const auto &Entry : Store_) {
    if ((Entry.second.Attributes & EFI_VARIABLE_NON_VOLATILE) != 0) Out.push_back(Entry.second);
  }
  return Out;
}

EFI_STATUS VariableStore::Get(const CHAR16 *Name, const EFI_GUID *Guid, UINT32 *Attributes, UINTN *DataSize,
                              void *Data) {
  Reads_++;
  if (Name == nullptr || Guid == nullptr || DataSize == nullptr || Name[0] == 0) return EFI_INVALID_PARAMETER;
  std::u16string Key(Name);
  if (FailGet_.count(Key) != 0) return EFI_DEVICE_ERROR;
  const Variable *Found = Find(Key, *Guid);
  if (Found == nullptr) return EFI_NOT_FOUND;
  if (*DataSize < Found->Data.size()) {
    *DataSize = Found->Data.size();
    return EFI_BUFFER_TOO_SMALL;
  }
  if (Data == nullptr) return EFI_INVALID_PARAMETER;
  std::memcpy(Data, Found->Data.data(), Found->Data.size());
  *DataSize = Found->Data.size();
  if (Attributes != nullptr) *Attributes = Found->Attributes;
  return EFI_SUCCESS;
}

EFI_STATUS VariableStore::Set(const CHAR16 *Name, const EFI_GUID *Guid, UINT32 Attributes, UINTN DataSize,
                              const void *Data) {
  if (Name == nullptr || Guid == nullptr || Name[0] == 0) return EFI_INVALID_PARAMETER;
  std::u16string Key(Name);
  VariableWrite Write{Key, *Guid, Attributes, {}, EFI_SUCCESS};
  auto Finish = [&](EFI_STATUS Status) {
    Write.Status = Status;
    Writes_.push_back(Write);
    return Status;
  };
  if (DataSize != 0 && Data == nullptr) return Finish(EFI_INVALID_PARAMETER);
  if (DataSize != 0) {
    const auto *Bytes = static_cast<const uint8_t *>(Data);
    Write.Data.assign(Bytes, Bytes + DataSize);
  }
  if (FailSet_.count(Key) != 0) return Finish(EFI_DEVICE_ERROR);
  // Runtime access requires boot-service access.
  if ((Attributes & EFI_VARIABLE_RUNTIME_ACCESS) != 0 && (Attributes & EFI_VARIABLE_BOOTSERVICE_ACCESS) == 0) {
    return Finish(EFI_INVALID_PARAMETER);
  }
  auto It = Store_.find(MakeKey(Key, *Guid));
  if (DataSize == 0 || Attributes == 0) {
    if (It == Store_.end()) return Finish(EFI_NOT_FOUND);
    Store_.erase(It);
    Write.Data.clear();
    return Finish(EFI_SUCCESS);
  }
  // An existing variable keeps its attributes; a rewrite with others fails.
  if (It != Store_.end() && It->second.Attributes != Attributes) return Finish(EFI_INVALID_PARAMETER);
  Variable Value{Key, *Guid, Attributes, Write.Data};
  Store_[MakeKey(Key, *Guid)] = Value;
  return Finish(EFI_SUCCESS);
}

EFI_STATUS VariableStore::GetNextName(UINTN *NameSize, CHAR16 *Name, EFI_GUID *Guid) {
  if (NameSize == nullptr || Name == nullptr || Guid == nullptr) return EFI_INVALID_PARAMETER;
  auto It = Store_.begin();
  if (Name[0] != 0) {
    It = Store_.find(MakeKey(std::u16string(Name), *Guid));
    if (It == Store_.end()) return EFI_INVALID_PARAMETER;
    ++It;
  }
  if (It == Store_.end()) return EFI_NOT_FOUND;
  UINTN Needed = (It->second.Name.size() + 1) * sizeof(CHAR16);
  if (*NameSize < Needed) {
    *NameSize = Needed;
    return EFI_BUFFER_TOO_SMALL;
  }
  std::memcpy(Name, It->second.Name.c_str(), Needed);
  *Guid = It->second.Guid;
  *NameSize = Needed;
  return EFI_SUCCESS;
}

}  // namespace qor::emu
