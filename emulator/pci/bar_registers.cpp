#include "emulator/pci/bar_registers.h"

#include "emulator/pci/board_pci.h"

namespace qor::emu {

namespace {

uint32_t Dword(const std::vector<uint8_t> &Config, size_t Offset) {
  return Config[Offset] | Config[Offset + 1] << 8 | Config[Offset + 2] << 16 |
         static_cast<uint32_t>(Config[Offset + 3]) << 24;
}

void PutDword(std::vector<uint8_t> *Config, size_t Offset, uint32_t Value) {
  for (int I = 0; I < 4; I++) (*Config)[Offset + I] = static_cast<uint8_t>(Value >> (8 * I));
}

}  // namespace

std::vector<BarRegister> BarsOf(const PciFunctionDef &Function) {
  std::vector<BarRegister> Out;
  const std::vector<uint8_t> &Config = Function.Config;
  uint8_t Layout = Config[0x0E] & 0x7F;
  int Registers = Layout == 0 ? 6 : Layout == 1 ? 2 : 0;
  for (int I = 0; I < Registers; I++) {
    uint32_t Low = Dword(Config, 0x10 + 4 * I);
    BarRegister Bar;
    Bar.Index = I;
    Bar.Size = Function.Bars.Size[I];
    Bar.Io = (Low & 1) != 0;
    Bar.Wide = !Bar.Io && ((Low >> 1) & 3) == 2 && (I + 1 < Registers || Layout == 0);
    Bar.Prefetchable = !Bar.Io && (Low & 0x8) != 0;
    Bar.Base = Bar.Io ? Low & ~uint64_t{3} : Low & ~uint64_t{0xF};
    if (Bar.Wide) Bar.Base |= uint64_t{Dword(Config, 0x10 + 4 * (I + 1))} << 32;
    if (Bar.Size != 0) Out.push_back(Bar);
    if (Bar.Wide) I++;
  }
  return Out;
}

void WriteBarBase(const BarRegister &Bar, uint64_t Base, PciFunctionDef *Function) {
  std::vector<uint8_t> &Config = Function->Config;
  size_t Offset = 0x10 + 4 * static_cast<size_t>(Bar.Index);
  uint32_t TypeBits = Dword(Config, Offset) & (Bar.Io ? 0x3u : 0xFu);
  PutDword(&Config, Offset, (static_cast<uint32_t>(Base) & (Bar.Io ? ~0x3u : ~0xFu)) | TypeBits);
  if (Bar.Wide) PutDword(&Config, Offset + 4, static_cast<uint32_t>(Base >> 32));
}

}  // namespace qor::emu
