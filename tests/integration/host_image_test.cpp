// The host image QorUploadDataDxe.so is built freestanding like the firmware
// image: it needs no symbol from another library. A compiler that turns a
// loop of the driver into a call of memset or memcpy shows here, since on
// the host the C library would quietly satisfy it.
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

template <typename Record>
bool ReadRecord(const std::vector<char> &Bytes, size_t Offset, Record *Out) {
  if (Offset > Bytes.size() || Bytes.size() - Offset < sizeof(Record)) return false;
  std::memcpy(Out, Bytes.data() + Offset, sizeof(Record));
  return true;
}

// Toolchain hooks every shared object refers to weakly, and the sanitizer
// runtimes of instrumented builds.
bool IsAllowed(const std::string &Name, unsigned char Binding) {
  if (Binding == STB_WEAK) return true;
  for (const char *Prefix : {"__asan", "__ubsan", "__sanitizer", "__lsan"}) {
    if (Name.rfind(Prefix, 0) == 0) return true;
  }
  return false;
}

}  // namespace

TEST(HostImage, NeedsNoSymbolFromAnotherLibrary) {
  std::ifstream In(QOR_BINARY_DIR "/QorUploadDataDxe.so", std::ios::binary);
  ASSERT_TRUE(In) << "QorUploadDataDxe.so not found in " QOR_BINARY_DIR;
  const std::vector<char> Bytes((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
  Elf64_Ehdr Header{};
  ASSERT_TRUE(ReadRecord(Bytes, 0, &Header));
  ASSERT_EQ(std::memcmp(Header.e_ident, ELFMAG, SELFMAG), 0);
  ASSERT_EQ(Header.e_ident[EI_CLASS], ELFCLASS64);

  std::vector<std::string> Needed;
  bool SawSymbols = false;
  for (size_t I = 0; I < Header.e_shnum; I++) {
    Elf64_Shdr Section{};
    ASSERT_TRUE(ReadRecord(Bytes, Header.e_shoff + I * Header.e_shentsize, &Section));
    if (Section.sh_type != SHT_DYNSYM) continue;
    Elf64_Shdr Strings{};
    ASSERT_TRUE(ReadRecord(Bytes, Header.e_shoff + Section.sh_link * Header.e_shentsize, &Strings));
    SawSymbols = true;
    for (size_t Offset = 0; Offset + sizeof(Elf64_Sym) <= Section.sh_size; Offset += sizeof(Elf64_Sym)) {
      Elf64_Sym Symbol{};
      ASSERT_TRUE(ReadRecord(Bytes, Section.sh_offset + Offset, &Symbol));
      if (Symbol.st_shndx != SHN_UNDEF || Symbol.st_name == 0) continue;
      ASSERT_LT(Strings.sh_offset + Symbol.st_name, Bytes.size());
      const std::string Name(Bytes.data() + Strings.sh_offset + Symbol.st_name);
      if (!IsAllowed(Name, ELF64_ST_BIND(Symbol.st_info))) Needed.push_back(Name);
    }
  }
  EXPECT_TRUE(SawSymbols) << "no dynamic symbol table";
  std::string List;
  for (const auto &Name : Needed) List += " " + Name;
  EXPECT_TRUE(Needed.empty()) << "the host image needs:" << List;
}
