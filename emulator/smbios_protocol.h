// EFI_SMBIOS_PROTOCOL of the emulated firmware: the board's SMBIOS
// structures with Add, UpdateString, Remove and GetNext as the PI
// specification defines them. The table as it stands (after any changes
// made through the protocol) is what a boot exports.
#ifndef QOR_EMULATOR_SMBIOS_PROTOCOL_H_
#define QOR_EMULATOR_SMBIOS_PROTOCOL_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "emulator/board.h"
#include "platform/smbios.h"

namespace qor::emu {

class SmbiosStore {
 public:
  explicit SmbiosStore(const SmbiosDef &Def);
  SmbiosStore(const SmbiosStore &) = delete;
  SmbiosStore &operator=(const SmbiosStore &) = delete;

  EFI_SMBIOS_PROTOCOL *Protocol() { return &Interface_.Protocol; }
  // The structures in table order.
  std::vector<std::vector<uint8_t>> Records() const;
  uint8_t MajorVersion() const { return Interface_.Protocol.MajorVersion; }
  uint8_t MinorVersion() const { return Interface_.Protocol.MinorVersion; }

  EFI_STATUS Add(EFI_HANDLE Producer, EFI_SMBIOS_HANDLE *Handle, const EFI_SMBIOS_TABLE_HEADER *Record);
  EFI_STATUS UpdateString(const EFI_SMBIOS_HANDLE *Handle, const UINTN *StringNumber, const CHAR8 *String);
  EFI_STATUS Remove(EFI_SMBIOS_HANDLE Handle);
  EFI_STATUS GetNext(EFI_SMBIOS_HANDLE *Handle, const EFI_SMBIOS_TYPE *Type, EFI_SMBIOS_TABLE_HEADER **Record,
                     EFI_HANDLE *Producer);
  static SmbiosStore *From(const EFI_SMBIOS_PROTOCOL *This);

 private:
  struct Entry {
    EFI_SMBIOS_HANDLE Handle;
    EFI_HANDLE Producer;
    std::vector<uint8_t> Bytes;  // stable while the entry is unchanged
  };
  struct Interface {
    EFI_SMBIOS_PROTOCOL Protocol;
    SmbiosStore *Owner;
  };
  Entry *Find(EFI_SMBIOS_HANDLE Handle);

  Interface Interface_{};
  std::vector<std::unique_ptr<Entry>> Entries_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_SMBIOS_PROTOCOL_H_
