#include "emulator/pci/iio_stack_table.h"

#include <cstring>

#include "emulator/board.h"
#include "platform/system_information.h"

namespace qor::emu {

namespace {
constexpr uint8_t kRootPortType = 4;

std::vector<QOR_IIO_STACK_ENTRY> DerivedStacks(const std::vector<EnumeratedFunction> &Functions) {
  std::vector<QOR_IIO_STACK_ENTRY> Out;
  for (const EnumeratedFunction &Entry : Functions) {
    const std::vector<uint8_t> &Config = Entry.Function->Bytes();
    uint32_t Express = FindPciCapability(Config, 0x10);
    if ((Config[0x0E] & 0x7F) != 1 || Express == 0 || ((Config[Express + 2] >> 4) & 0xF) != kRootPortType) continue;
    if (Out.size() == QOR_SYSINFO_STACK_MAX) break;
    QOR_IIO_STACK_ENTRY Stack{};
    const PciLocation &At = Entry.Function->Location();
    Stack.Valid = 1;
    Stack.Segment = At.Segment;
    Stack.RootPortBus = At.Bus;
    Stack.RootPortDevice = At.Device;
    Stack.RootPortFunction = At.Function;
    Stack.BusBase = Config[0x19];
    Stack.BusLimit = Config[0x1A];
    Out.push_back(Stack);
  }
  return Out;
}
}  // namespace

void WriteIioStackTable(const Board &Board, const std::vector<EnumeratedFunction> &Functions,
                        std::vector<uint8_t> *Block) {
  static_assert(QOR_SYSINFO_STACK_TABLE_END <= kSystemInformationBlockSize, "stack table inside the block");
  std::vector<QOR_IIO_STACK_ENTRY> Stacks;
  if (Board.SystemInformation.Stacks) {
    for (const IioStackDef &Def : *Board.SystemInformation.Stacks) {
      QOR_IIO_STACK_ENTRY Stack{};
      Stack.Valid = Def.Valid;
      Stack.Segment = Def.Segment;
      Stack.RootPortBus = Def.RootPort.Bus;
      Stack.RootPortDevice = Def.RootPort.Device;
      Stack.RootPortFunction = Def.RootPort.Function;
      Stack.BusBase = Def.BusBase;
      Stack.BusLimit = Def.BusLimit;
      Stacks.push_back(Stack);
    }
  } else {
    Stacks = DerivedStacks(Functions);
  }
  (*Block)[QOR_SYSINFO_STACK_COUNT_OFFSET] = static_cast<uint8_t>(Stacks.size());
  // A machine without root ports has no stacks (and Stacks.data() may be null).
  if (!Stacks.empty()) {
    std::memcpy(Block->data() + QOR_SYSINFO_STACK_TABLE_OFFSET, Stacks.data(), Stacks.size() * sizeof(QOR_IIO_STACK_ENTRY));
  }
}

}  // namespace qor::emu
