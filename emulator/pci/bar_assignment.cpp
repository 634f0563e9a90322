#include "emulator/pci/bar_assignment.h"

#include <algorithm>
#include <array>
#include <utility>

#include "emulator/pci/bar_registers.h"
#include "emulator/pci/board_pci.h"

namespace qor::emu {

namespace {

enum PoolKind { kIo, kMemory, kPrefetchable, kPoolKinds };

struct Pool {
  uint64_t First, Last, Granule;
};
constexpr Pool kPools[kPoolKinds] = {
    {0x1000, 0xFFFF, 0x1000},
    {0x90000000, 0xFBFFFFFF, 0x100000},
    {0x20000000000, 0x3FFFFFFFFFFF, 0x100000},
};

PoolKind KindOf(const BarRegister &Bar) {
  if (Bar.Io) return kIo;
  return Bar.Prefetchable && Bar.Wide ? kPrefetchable : kMemory;
}

// Saturating: a size past the address space stays UINT64_MAX and fits no pool.
uint64_t AlignUp(uint64_t Value, uint64_t Alignment) {
  if (Value > UINT64_MAX - (Alignment - 1)) return UINT64_MAX;
  return (Value + Alignment - 1) & ~(Alignment - 1);
}
uint64_t Add(uint64_t A, uint64_t B) { return A > UINT64_MAX - B ? UINT64_MAX : A + B; }

// One thing to place in a block: a BAR, or the block of a bridge's
// secondary side (its window).
struct Item {
  uint64_t Size = 0;
  uint64_t Alignment = 1;
  size_t Function = 0;
  int Register = -1;  // -1: the bridge's window
  uint64_t Offset = 0;
};

struct Block {
  std::vector<Item> Items;  // in placement order
  uint64_t Size = 0;
  uint64_t Alignment = 1;
};
using Blocks = std::array<Block, kPoolKinds>;

class Assigner {
 public:
  Assigner(const BarAssignmentPlan &Plan, std::vector<PciFunctionDef> *Functions)
      : Plan_(Plan), Functions_(*Functions) {
    for (size_t I = 0; I < Functions_.size(); I++) {
      const PciFunctionDef &F = Functions_[I];
      OnBus_[{F.Segment, F.Bus}].push_back(I);
      auto Auto = Plan_.Registers.find(F.Location());
      for (const BarRegister &Bar : BarsOf(F)) {
        bool Assigned = Auto != Plan_.Registers.end() && (Auto->second >> Bar.Index & 1) != 0;
        if (!Assigned && Bar.Base != 0) Taken_.emplace_back(Bar.Base, Bar.Base + (Bar.Size - 1));
      }
    }
    for (auto &Entry : OnBus_) {
      std::sort(Entry.second.begin(), Entry.second.end(),
                [this](size_t A, size_t B) { return Functions_[A].Location() < Functions_[B].Location(); });
    }
  }

  void AssignHostBridge(const PciHostBridge &Host) {
    Blocks Root = Measure(Host.Segment, Host.FirstBus);
    for (int Kind = 0; Kind < kPoolKinds; Kind++) {
      const Block &B = Root[Kind];
      if (B.Size == 0) continue;
      uint64_t Base = 0;
      if (Allocate(kPools[Kind], B.Size, B.Alignment, &Base)) {
        Place(B, static_cast<PoolKind>(Kind), Base);
        continue;
      }
      // Not all of it fits: what sits on the root bus (a BAR, or a bridge
      // with everything below it) is placed on its own while room is left.
      for (const Item &I : B.Items) {
        Block One;
        One.Items.push_back(I);
        One.Items.back().Offset = 0;
        if (Allocate(kPools[Kind], I.Size, I.Alignment, &Base)) Place(One, static_cast<PoolKind>(Kind), Base);
      }
    }
  }

 private:
  // The blocks of a bus: the BARs to assign on it and the windows of the
  // bridges on it whose windows are derived.
  Blocks Measure(uint16_t Segment, uint8_t Bus) {
    Blocks Out;
    if (!Entered_.insert({Segment, Bus}).second) return Out;
    auto On = OnBus_.find({Segment, Bus});
    if (On == OnBus_.end()) return Out;
    for (size_t Index : On->second) {
      const PciFunctionDef &F = Functions_[Index];
      auto Auto = Plan_.Registers.find(F.Location());
      for (const BarRegister &Bar : BarsOf(F)) {
        if (Auto == Plan_.Registers.end() || (Auto->second >> Bar.Index & 1) == 0) continue;
        Item Own;
        Own.Size = Own.Alignment = Bar.Size;
        Own.Function = Index;
        Own.Register = Bar.Index;
        Out[KindOf(Bar)].Items.push_back(Own);
      }
      uint8_t Secondary = F.Config[0x19], Subordinate = F.Config[0x1A];
      bool Descend = (F.Config[0x0E] & 0x7F) == 1 && Plan_.DerivedWindows.count(F.Location()) != 0 &&
                     Secondary > Bus && Secondary <= Subordinate;
      if (!Descend) continue;
      Blocks Below = Measure(Segment, Secondary);
      for (int Kind = 0; Kind < kPoolKinds; Kind++) {
        if (Below[Kind].Size == 0) continue;
        Item Window;
        Window.Size = AlignUp(Below[Kind].Size, kPools[Kind].Granule);
        Window.Alignment = std::max(Below[Kind].Alignment, kPools[Kind].Granule);
        Window.Function = Index;
        Out[Kind].Items.push_back(Window);
      }
      Windows_[Index] = std::move(Below);
    }
    for (Block &B : Out) Pack(&B);
    return Out;
  }

  // Largest alignment first: with power-of-two alignments nothing but the
  // tail of a window needs padding.
  static void Pack(Block *B) {
    std::stable_sort(B->Items.begin(), B->Items.end(),
                     [](const Item &X, const Item &Y) { return X.Alignment > Y.Alignment; });
    uint64_t Offset = 0;
    for (Item &I : B->Items) {
      I.Offset = AlignUp(Offset, I.Alignment);
      Offset = Add(I.Offset, I.Size);
    }
    B->Size = Offset;
    B->Alignment = B->Items.empty() ? 1 : B->Items.front().Alignment;
  }

  void Place(const Block &B, PoolKind Kind, uint64_t Base) {
    for (const Item &I : B.Items) {
      PciFunctionDef &F = Functions_[I.Function];
      if (I.Register < 0) {
        Place(Windows_[I.Function][Kind], Kind, Base + I.Offset);
        continue;
      }
      for (const BarRegister &Bar : BarsOf(F)) {
        if (Bar.Index == I.Register) WriteBarBase(Bar, Base + I.Offset, &F);
      }
    }
  }

  // The lowest aligned range of the pool that overlaps nothing taken.
  bool Allocate(const Pool &P, uint64_t Size, uint64_t Alignment, uint64_t *Base) {
    uint64_t At = AlignUp(P.First, Alignment);
    for (bool Moved = true; Moved;) {
      if (At > P.Last || Size - 1 > P.Last - At) return false;
      Moved = false;
      for (const auto &[First, Last] : Taken_) {
        if (First <= At + (Size - 1) && Last >= At) {
          if (Last >= P.Last) return false;
          At = AlignUp(Last + 1, Alignment);
          Moved = true;
        }
      }
    }
    Taken_.emplace_back(At, At + (Size - 1));
    *Base = At;
    return true;
  }

  const BarAssignmentPlan &Plan_;
  std::vector<PciFunctionDef> &Functions_;
  std::map<std::pair<uint16_t, uint8_t>, std::vector<size_t>> OnBus_;
  std::set<std::pair<uint16_t, uint8_t>> Entered_;
  std::map<size_t, Blocks> Windows_;  // by bridge: the blocks of its secondary side
  std::vector<std::pair<uint64_t, uint64_t>> Taken_;  // [first, last] in use
};

}  // namespace

void AssignBarBases(const std::vector<PciHostBridge> &Hosts, const BarAssignmentPlan &Plan,
                    std::vector<PciFunctionDef> *Functions) {
  if (Plan.Registers.empty()) return;
  Assigner A(Plan, Functions);
  for (const PciHostBridge &Host : Hosts) A.AssignHostBridge(Host);
}

}  // namespace qor::emu
