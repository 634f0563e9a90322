// The base address registers of a function a board builds, read from its
// configuration bytes and BAR sizes: which registers hold a BAR, its kind
// and its base. Shared by the steps that program a board's bus after it is
// parsed (BAR bases, then bridge windows).
#ifndef QOR_EMULATOR_PCI_BAR_REGISTERS_H_
#define QOR_EMULATOR_PCI_BAR_REGISTERS_H_

#include <cstdint>
#include <vector>

namespace qor::emu {

struct PciFunctionDef;

struct BarRegister {
  int Index = 0;             // register index 0-5 (0x10 + 4 * Index)
  uint64_t Size = 0;         // never 0: registers without a size are left out
  uint64_t Base = 0;         // 0: unassigned
  bool Io = false;
  bool Wide = false;         // 64-bit memory: the next register holds the upper half
  bool Prefetchable = false;
};

// The BARs of a type 0 (six registers) or type 1 header (two); none for
// other headers. A 64-bit BAR in an endpoint's last register takes 0x28 as
// its upper half, as the emulated function does.
std::vector<BarRegister> BarsOf(const PciFunctionDef &Function);

// Writes Base into the BAR's register(s), keeping its type bits.
void WriteBarBase(const BarRegister &Bar, uint64_t Base, PciFunctionDef *Function);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_BAR_REGISTERS_H_
