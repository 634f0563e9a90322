#include "emulator/pci_model.h"

#include <tuple>

#include "emulator/board.h"

namespace qor::emu {

bool PciLocation::operator<(const PciLocation &Other) const {
  return std::tie(Segment, Bus, Device, Function) < std::tie(Other.Segment, Other.Bus, Other.Device, Other.Function);
}

bool PciLocation::operator==(const PciLocation &Other) const {
  return std::tie(Segment, Bus, Device, Function) == std::tie(Other.Segment, Other.Bus, Other.Device, Other.Function);
}

void PciModel::AddFunction(const PciLocation &Location, std::vector<uint8_t> Config) {
  Config.resize(kConfigSize, 0);
  Functions_[Location] = std::move(Config);
}

const std::vector<uint8_t> *PciModel::Config(const PciLocation &Location) const {
  auto It = Functions_.find(Location);
  return It == Functions_.end() ? nullptr : &It->second;
}

uint64_t PciModel::Read(const PciLocation &Location, uint32_t Offset, uint32_t Width) {
  Reads_++;
  const std::vector<uint8_t> *Space = Config(Location);
  uint64_t Value = 0;
  for (uint32_t I = 0; I < Width && I < 8; I++) {
    uint64_t At = uint64_t{Offset} + I;
    uint8_t Byte = (Space != nullptr && At < kConfigSize) ? (*Space)[At] : 0xFF;
    Value |= uint64_t{Byte} << (8 * I);
  }
  return Value;
}

void PciModel::Write(const PciLocation &Location, uint32_t Offset, uint32_t Width, uint64_t Value) {
  Writes_++;
  auto It = Functions_.find(Location);
  if (It == Functions_.end()) return;
  for (uint32_t I = 0; I < Width && I < 8; I++) {
    uint64_t At = uint64_t{Offset} + I;
    if (At < kConfigSize) It->second[At] = static_cast<uint8_t>(Value >> (8 * I));
  }
}

PciModel BuildPciModel(const Board &Board) {
  PciModel Model;
  // The PCH: LPC/eSPI bridge at bus 0, device 31, function 0.
  std::vector<uint8_t> Pch(PciModel::kConfigSize, 0);
  Pch[0x00] = 0x86;
  Pch[0x01] = 0x80;
  Pch[0x02] = static_cast<uint8_t>(Board.PchDeviceId);
  Pch[0x03] = static_cast<uint8_t>(Board.PchDeviceId >> 8);
  Pch[0x08] = Board.PchRevisionId;
  Pch[0x0A] = 0x01;  // ISA bridge
  Pch[0x0B] = 0x06;
  Pch[0x0E] = 0x80;  // multi-function
  Model.AddFunction({0, 0, 31, 0}, Pch);
  for (const PciFunctionDef &F : Board.Pci.Functions) {
    Model.AddFunction({F.Segment, F.Bus, F.Device, F.Function}, F.Config);
  }
  return Model;
}

}  // namespace qor::emu
