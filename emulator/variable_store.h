// UEFI variable store with the semantics of GetVariable / SetVariable:
// attributes, EFI_BUFFER_TOO_SMALL with the needed size, delete by size 0,
// volatile variables dropped across a reset.
#ifndef QOR_EMULATOR_VARIABLE_STORE_H_
#define QOR_EMULATOR_VARIABLE_STORE_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/uefi_tables.h"

namespace qor::emu {

struct Variable {
  std::u16string Name;
  EFI_GUID Guid;
  uint32_t Attributes = 0;
  std::vector<uint8_t> Data;
};

struct VariableWrite {
  std::u16string Name;
  EFI_GUID Guid;
  uint32_t Attributes;
  std::vector<uint8_t> Data;  // empty for a delete
  EFI_STATUS Status;
};

class VariableStore {
 public:
  EFI_STATUS Get(const CHAR16 *Name, const EFI_GUID *Guid, UINT32 *Attributes, UINTN *DataSize, void *Data);
  EFI_STATUS Set(const CHAR16 *Name, const EFI_GUID *Guid, UINT32 Attributes, UINTN DataSize, const void *Data);
  EFI_STATUS GetNextName(UINTN *NameSize, CHAR16 *Name, EFI_GUID *Guid);

  // Board set-up: stores without checks or logging.
  void Put(const Variable &Value);
  void Clear() { Store_.clear(); }
  const Variable *Find(const std::u16string &Name, const EFI_GUID &Guid) const;
  std::vector<Variable> All() const;
  // What survives a reset: the non-volatile variables.
  std::vector<Variable> NonVolatile() const;

  void FailGet(const std::u16string &Name) { FailGet_.insert(Name); }
  void FailSet(const std::u16string &Name) { FailSet_.insert(Name); }
  const std::vector<VariableWrite> &Writes() const { return Writes_; }
  uint64_t Reads() const { return Reads_; }

 private:
  using Key = std::pair<std::u16string, std::string>;
  static Key MakeKey(const std::u16string &Name, const EFI_GUID &Guid);
  std::map<Key, Variable> Store_;
  std::set<std::u16string> FailGet_;
  std::set<std::u16string> FailSet_;
  std::vector<VariableWrite> Writes_;
  uint64_t Reads_ = 0;
};

std::u16string ToU16(const std::string &Text);
std::string FromU16(const std::u16string &Text);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_VARIABLE_STORE_H_
