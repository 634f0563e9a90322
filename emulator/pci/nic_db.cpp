#include "emulator/pci/nic_db.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "emulator/firmware.h"

namespace qor::emu {

namespace {

VOID *EFIAPI GetNicEntry(QOR_NIC_DB_PROTOCOL *This, UINT32 Slot) {
  if (Firmware::Current() != nullptr) Firmware::Current()->Count("NicDb.GetNicEntry");
  if (This == nullptr) return nullptr;
  return NicDb::From(This)->Entry(Slot);
}

uint32_t Dword(const std::vector<uint8_t> &Bytes, uint32_t Offset) {
  uint32_t Value = 0;
  std::memcpy(&Value, Bytes.data() + Offset, 4);
  return Value;
}

}  // namespace

long SlotAbove(const std::vector<EnumeratedFunction> &Functions, size_t Index) {
  for (int At = Functions[Index].Parent; At >= 0; At = Functions[At].Parent) {
    const std::vector<uint8_t> &Config = Functions[At].Function->Bytes();
    uint32_t Express = FindPciCapability(Config, 0x10);
    if (Express == 0 || (Config[0x0E] & 0x7F) == 0) continue;
    if ((Config[Express + 3] & 0x01) != 0) return static_cast<long>(Dword(Config, Express + 0x14) >> 19);
  }
  return -1;
}

NicDb::NicDb(const PciDef &Pci, const std::vector<EnumeratedFunction> &Functions) {
  Interface_.Owner = this;
  Interface_.Protocol.GetNicEntry = qor::emu::GetNicEntry;
  for (const NicEntryDef &Def : Pci.NicDb) Add(*Def.Slot, Def, nullptr);
  std::map<PciLocation, const NicEntryDef *> Nics;
  for (const PciFunctionDef &F : Pci.Functions) {
    if (F.Nic) Nics[F.Location()] = &*F.Nic;
  }
  for (size_t I = 0; I < Functions.size(); I++) {
    PciLocation Location = Functions[I].Function->Location();
    auto It = Nics.find(Location);
    if (It == Nics.end()) continue;
    long Slot = It->second->Slot ? static_cast<long>(*It->second->Slot) : SlotAbove(Functions, I);
    if (Slot >= 0) Add(static_cast<uint32_t>(Slot), *It->second, &Location);
  }
}

void NicDb::Add(uint32_t Slot, const NicEntryDef &Def, const PciLocation *Function) {
  // Room for every port the driver may read (it stops at 16).
  size_t Ports = std::max<size_t>(Def.Ports.size(), 16);
  std::vector<uint8_t> Entry(QOR_NIC_ENTRY_SIZE(Ports), 0);
  Entry[QOR_NIC_ENTRY_ONBOARD_OFFSET] = Def.OnBoard ? 1 : 0;
  uint32_t Count = Def.PortCount.value_or(static_cast<uint32_t>(Def.Ports.size()));
  std::memcpy(Entry.data() + QOR_NIC_ENTRY_PORT_COUNT_OFFSET, &Count, 4);
  for (size_t I = 0; I < Def.Ports.size(); I++) {
    const NicPortDef &Port = Def.Ports[I];
    PciLocation At{};
    if (Port.Location) {
      At = *Port.Location;
    } else if (Function != nullptr) {
      At = *Function;
      At.Function = static_cast<uint8_t>(I & 7);
    }
    uint32_t Location = uint32_t{At.Bus} << 16 | uint32_t{At.Device} << 8 | At.Function;
    size_t Base = QOR_NIC_ENTRY_PORT_STRIDE * I;
    std::memcpy(Entry.data() + Base + QOR_NIC_PORT_LOCATION_OFFSET, &Location, 4);
    std::memcpy(Entry.data() + Base + QOR_NIC_PORT_DESC_OFFSET, Port.Description.data(),
                std::min<size_t>(Port.Description.size(), QOR_NIC_PORT_DESC_SIZE - 1));
    std::memcpy(Entry.data() + Base + QOR_NIC_PORT_MAC_OFFSET, Port.Mac.data(), 6);
  }
  Entries_.emplace_back(Slot, std::move(Entry));
}

uint8_t *NicDb::Entry(uint32_t Slot) {
  for (auto &[Key, Bytes] : Entries_) {
    if (Key == Slot) return Bytes.data();
  }
  return nullptr;
}

NicDb *NicDb::From(QOR_NIC_DB_PROTOCOL *This) { return reinterpret_cast<Interface *>(This)->Owner; }

}  // namespace qor::emu
