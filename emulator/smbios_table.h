// SMBIOS structures on the emulator side: building a structure from its
// fields and strings, splitting a raw structure table, assembling the table
// that was served, and the binary dump file that `dmidecode --from-dump`
// reads (an entry point at offset 0, the table at offset 0x20).
#ifndef QOR_EMULATOR_SMBIOS_TABLE_H_
#define QOR_EMULATOR_SMBIOS_TABLE_H_

#include <cstdint>
#include <string>
#include <vector>

namespace qor::emu {

// Builds one structure: a formatted area of Length bytes (header included)
// and its strings.
class SmbiosRecordBuilder {
 public:
  SmbiosRecordBuilder(uint8_t Type, uint8_t Length);
  void Set8(size_t Offset, uint8_t Value);
  void Set16(size_t Offset, uint16_t Value);
  void Set32(size_t Offset, uint32_t Value);
  void SetBytes(size_t Offset, const std::vector<uint8_t> &Bytes);
  // Adds a string and returns its number; an empty text gives 0 (none).
  uint8_t AddString(const std::string &Text);
  // Adds the string and stores its number at Offset.
  void SetString(size_t Offset, const std::string &Text) { Set8(Offset, AddString(Text)); }
  std::vector<uint8_t> Build(uint16_t Handle) const;

 private:
  std::vector<uint8_t> Formatted_;
  std::vector<std::string> Strings_;
};

// Size of a structure (formatted area, strings, double NUL) starting at
// Bytes[Offset], or 0 when it does not end inside Bytes.
size_t SmbiosStructureSize(const std::vector<uint8_t> &Bytes, size_t Offset);

// Splits a structure table into its structures, up to the end-of-table
// structure (type 127, not included) or the end of the bytes. Throws
// std::invalid_argument naming the byte offset of a malformed structure.
std::vector<std::vector<uint8_t>> SplitSmbiosTable(const std::vector<uint8_t> &Table);

// The structures followed by an end-of-table structure (type 127) with a
// handle no other structure uses.
std::vector<uint8_t> AssembleSmbiosTable(const std::vector<std::vector<uint8_t>> &Records);

// A dump file: the 64-bit (SMBIOS 3.x) or 32-bit (2.x) entry point at offset
// 0 pointing to the table at offset 0x20, then the table.
std::vector<uint8_t> SmbiosDumpFile(const std::vector<std::vector<uint8_t>> &Records, uint8_t MajorVersion,
                                    uint8_t MinorVersion);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_SMBIOS_TABLE_H_
