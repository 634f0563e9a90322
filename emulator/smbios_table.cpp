#include "emulator/smbios_table.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <stdexcept>

namespace qor::emu {

namespace {
constexpr uint8_t kEndOfTableType = 127;
constexpr size_t kDumpTableOffset = 0x20;

void Put16(std::vector<uint8_t> &Bytes, size_t Offset, uint16_t Value) {
  Bytes[Offset] = static_cast<uint8_t>(Value);
  Bytes[Offset + 1] = static_cast<uint8_t>(Value >> 8);
}

void Put32(std::vector<uint8_t> &Bytes, size_t Offset, uint32_t Value) {
  for (int I = 0; I < 4; I++) Bytes[Offset + I] = static_cast<uint8_t>(Value >> (8 * I));
}

// The byte that makes Bytes[Start, Start + Length) sum to 0.
uint8_t Checksum(const std::vector<uint8_t> &Bytes, size_t Start, size_t Length) {
  uint8_t Sum = 0;
  for (size_t I = 0; I < Length; I++) Sum = static_cast<uint8_t>(Sum + Bytes[Start + I]);
  return static_cast<uint8_t>(0x100 - Sum);
}
}  // namespace

SmbiosRecordBuilder::SmbiosRecordBuilder(uint8_t Type, uint8_t Length) : Formatted_(Length, 0) {
  if (Length < 4) throw std::invalid_argument("an SMBIOS structure is at least 4 bytes");
  Formatted_[0] = Type;
  Formatted_[1] = Length;
}

void SmbiosRecordBuilder::Set8(size_t Offset, uint8_t Value) { Formatted_.at(Offset) = Value; }
void SmbiosRecordBuilder::Set16(size_t Offset, uint16_t Value) {
  Set8(Offset, static_cast<uint8_t>(Value));
  Set8(Offset + 1, static_cast<uint8_t>(Value >> 8));
}
void SmbiosRecordBuilder::Set32(size_t Offset, uint32_t Value) {
  for (int I = 0; I < 4; I++) Set8(Offset + I, static_cast<uint8_t>(Value >> (8 * I)));
}
void SmbiosRecordBuilder::SetBytes(size_t Offset, const std::vector<uint8_t> &Bytes) {
  for (size_t I = 0; I < Bytes.size(); I++) Set8(Offset + I, Bytes[I]);
}

uint8_t SmbiosRecordBuilder::AddString(const std::string &Text) {
  if (Text.empty()) return 0;
  if (Text.find('\0') != std::string::npos) throw std::invalid_argument("an SMBIOS string without NUL characters");
  if (Strings_.size() >= 255) throw std::invalid_argument("at most 255 strings in one SMBIOS structure");
  Strings_.push_back(Text);
  return static_cast<uint8_t>(Strings_.size());
}

std::vector<uint8_t> SmbiosRecordBuilder::Build(uint16_t Handle) const {
  std::vector<uint8_t> Bytes = Formatted_;
  Put16(Bytes, 2, Handle);
  for (const std::string &Text : Strings_) {
    Bytes.insert(Bytes.end(), Text.begin(), Text.end());
    Bytes.push_back(0);
  }
  if (Strings_.empty()) Bytes.push_back(0);
  Bytes.push_back(0);
  return Bytes;
}

size_t SmbiosStructureSize(const std::vector<uint8_t> &Bytes, size_t Offset) {
  if (Offset + 4 > Bytes.size()) return 0;
  size_t Length = Bytes[Offset + 1];
  if (Length < 4 || Offset + Length > Bytes.size()) return 0;
  for (size_t At = Offset + Length; At + 1 < Bytes.size(); At++) {
    if (Bytes[At] == 0 && Bytes[At + 1] == 0) return At + 2 - Offset;
  }
  return 0;
}

std::vector<std::vector<uint8_t>> SplitSmbiosTable(const std::vector<uint8_t> &Table) {
  std::vector<std::vector<uint8_t>> Records;
  size_t Offset = 0;
  while (Offset < Table.size()) {
    size_t Size = SmbiosStructureSize(Table, Offset);
    if (Size == 0) {
      throw std::invalid_argument("a complete SMBIOS structure (header, formatted area, strings ended by two NULs) "
                                  "at byte " + std::to_string(Offset));
    }
    if (Table[Offset] == kEndOfTableType) break;
    Records.emplace_back(Table.begin() + static_cast<std::ptrdiff_t>(Offset),
                         Table.begin() + static_cast<std::ptrdiff_t>(Offset + Size));
    Offset += Size;
  }
  return Records;
}

std::vector<uint8_t> AssembleSmbiosTable(const std::vector<std::vector<uint8_t>> &Records) {
  std::vector<uint8_t> Table;
  std::set<uint16_t> Used;
  for (const auto &Record : Records) {
    Table.insert(Table.end(), Record.begin(), Record.end());
    Used.insert(static_cast<uint16_t>(Record[2] | (Record[3] << 8)));
  }
  uint16_t EndHandle = 0xFEFF;
  while (Used.count(EndHandle) != 0) EndHandle--;
  SmbiosRecordBuilder End(kEndOfTableType, 4);
  std::vector<uint8_t> EndBytes = End.Build(EndHandle);
  Table.insert(Table.end(), EndBytes.begin(), EndBytes.end());
  return Table;
}

std::vector<uint8_t> SmbiosDumpFile(const std::vector<std::vector<uint8_t>> &Records, uint8_t MajorVersion,
                                    uint8_t MinorVersion) {
  std::vector<uint8_t> Table = AssembleSmbiosTable(Records);
  std::vector<uint8_t> File(kDumpTableOffset, 0);
  if (MajorVersion >= 3) {
    // SMBIOS 3.x entry point: "_SM3_", checksum, length 0x18, version,
    // docrev, entry point revision 1, table maximum size, table address.
    std::memcpy(File.data(), "_SM3_", 5);
    File[0x06] = 0x18;
    File[0x07] = MajorVersion;
    File[0x08] = MinorVersion;
    File[0x09] = 0;
    File[0x0A] = 1;
    Put32(File, 0x0C, static_cast<uint32_t>(Table.size()));
    Put32(File, 0x10, static_cast<uint32_t>(kDumpTableOffset));
    File[0x05] = Checksum(File, 0, 0x18);
  } else {
    // SMBIOS 2.x entry point: "_SM_" part and the "_DMI_" intermediate part,
    // each with its own checksum.
    size_t MaxStructure = 0;
    for (const auto &Record : Records) MaxStructure = std::max(MaxStructure, Record.size());
    if (Table.size() > 0xFFFF) throw std::invalid_argument("an SMBIOS 2.x table is at most 65535 bytes");
    std::memcpy(File.data(), "_SM_", 4);
    File[0x05] = 0x1F;
    File[0x06] = MajorVersion;
    File[0x07] = MinorVersion;
    Put16(File, 0x08, static_cast<uint16_t>(MaxStructure));
    std::memcpy(File.data() + 0x10, "_DMI_", 5);
    Put16(File, 0x16, static_cast<uint16_t>(Table.size()));
    Put32(File, 0x18, static_cast<uint32_t>(kDumpTableOffset));
    Put16(File, 0x1C, static_cast<uint16_t>(Records.size() + 1));
    File[0x1E] = static_cast<uint8_t>(((MajorVersion & 0xF) << 4) | (MinorVersion & 0xF));
    File[0x15] = Checksum(File, 0x10, 0x0F);
    File[0x04] = Checksum(File, 0, 0x1F);
  }
  File.insert(File.end(), Table.begin(), Table.end());
  return File;
}

}  // namespace qor::emu
