#include "emulator/pci/pci_bus.h"

#include "emulator/pci/pci_device_path.h"

namespace qor::emu {

PciFunction &PciBus::AddFunction(const PciLocation &Location, std::vector<uint8_t> Config, const PciBarSizes &Bars) {
  auto &Slot = Functions_[Location];
  Slot = std::make_unique<PciFunction>(Location, std::move(Config), Bars);
  return *Slot;
}

PciFunction *PciBus::Find(const PciLocation &Location) {
  auto It = Functions_.find(Location);
  return It == Functions_.end() ? nullptr : It->second.get();
}

EFI_STATUS PciBus::Read(const PciLocation &Location, uint32_t Offset, uint32_t Width, uint64_t *Value, bool Count) {
  PciFunction *Function = Find(Location);
  if (Function == nullptr) {
    if (Count) Absent_.Reads++;
    *Value = Width >= 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * Width)) - 1;
    return EFI_SUCCESS;
  }
  if (Count) Function->Counts().Reads++;
  return Function->Read(Offset, Width, Value);
}

void PciBus::Write(const PciLocation &Location, uint32_t Offset, uint32_t Width, uint64_t Value, bool Count) {
  PciFunction *Function = Find(Location);
  if (Function == nullptr) {
    if (Count) Absent_.Writes++;
    return;
  }
  if (Count) Function->Counts().Writes++;
  Function->Write(Offset, Width, Value);
}

void PciBus::ScanBus(size_t Bridge, uint8_t Bus, int Parent, const std::vector<uint8_t> &Prefix,
                     std::vector<bool> *Entered, std::vector<EnumeratedFunction> *Out) {
  (*Entered)[Bus] = true;
  const PciHostBridge &Host = HostBridges_[Bridge];
  for (uint8_t Device = 0; Device < 32; Device++) {
    PciFunction *First = Find({Host.Segment, Bus, Device, 0});
    if (First == nullptr) continue;
    uint8_t Functions = First->IsMultiFunction() ? 8 : 1;
    for (uint8_t Number = 0; Number < Functions; Number++) {
      PciFunction *Function = Find({Host.Segment, Bus, Device, Number});
      if (Function == nullptr) continue;
      EnumeratedFunction Entry{Function, Bridge, Parent, AppendPciNode(Prefix, Device, Number)};
      Out->push_back(Entry);
      // PCI-to-PCI (1) and CardBus (2) bridges hold their bus numbers at
      // the same offsets; a bus driver descends into both.
      if (Function->HeaderLayout() != 1 && Function->HeaderLayout() != 2) continue;
      const auto &Bytes = Function->Bytes();
      uint8_t Secondary = Bytes[0x19];
      uint8_t Subordinate = Bytes[0x1A];
      if (Secondary > Bus && Secondary <= Subordinate && Secondary >= Host.FirstBus && Secondary <= Host.LastBus &&
          !(*Entered)[Secondary]) {
        ScanBus(Bridge, Secondary, static_cast<int>(Out->size() - 1), Entry.DevicePath, Entered, Out);
      }
    }
  }
}

std::vector<EnumeratedFunction> PciBus::Enumerate() {
  std::vector<EnumeratedFunction> Out;
  std::map<uint16_t, std::vector<bool>> Entered;  // by segment
  for (size_t I = 0; I < HostBridges_.size(); I++) {
    const PciHostBridge &Host = HostBridges_[I];
    auto &Buses = Entered[Host.Segment];
    Buses.resize(256, false);
    if (Buses[Host.FirstBus] || Host.FirstBus > Host.LastBus) continue;
    ScanBus(I, Host.FirstBus, -1, RootDevicePath(Host), &Buses, &Out);
  }
  return Out;
}

std::vector<PciFunctionSnapshot> PciBus::Snapshot() const {
  std::vector<PciFunctionSnapshot> Out;
  for (const auto &[Location, Function] : Functions_) Out.push_back({Location, Function->View()});
  return Out;
}

void PciBus::TraceAccesses(bool On) {
  for (auto &Entry : Functions_) Entry.second->TraceAccesses(On);
}

uint64_t PciBus::TotalReads() const {
  uint64_t Total = Absent_.Reads;
  for (const auto &Entry : Functions_) Total += Entry.second->Counts().Reads;
  return Total;
}

uint64_t PciBus::TotalWrites() const {
  uint64_t Total = Absent_.Writes;
  for (const auto &Entry : Functions_) Total += Entry.second->Counts().Writes;
  return Total;
}

}  // namespace qor::emu
