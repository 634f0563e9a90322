// The nic db protocol: the platform's network cards by slot. Member 1,
// GetNicEntry(This, Slot), returns the entry of that slot or NULL. Entries
// come from the "nic" of PCI functions (slot: the one the function sits in,
// found as the driver finds it: the first bridge above with a slot
// implemented) and from "nicDb" (slot given).
#ifndef QOR_EMULATOR_PCI_NIC_DB_H_
#define QOR_EMULATOR_PCI_NIC_DB_H_

#include <cstdint>
#include <utility>
#include <vector>

#include "emulator/pci/board_pci.h"
#include "emulator/pci/pci_bus.h"
#include "platform/nic_db.h"

namespace qor::emu {

class NicDb {
 public:
  NicDb(const PciDef &Pci, const std::vector<EnumeratedFunction> &Functions);
  NicDb(const NicDb &) = delete;
  NicDb &operator=(const NicDb &) = delete;

  QOR_NIC_DB_PROTOCOL *Protocol() { return &Interface_.Protocol; }
  // The entry of Slot (the first one given), or nullptr.
  uint8_t *Entry(uint32_t Slot);
  static NicDb *From(QOR_NIC_DB_PROTOCOL *This);

 private:
  void Add(uint32_t Slot, const NicEntryDef &Def, const PciLocation *Function);

  struct Interface {
    QOR_NIC_DB_PROTOCOL Protocol;
    NicDb *Owner;
  };
  Interface Interface_{};
  std::vector<std::pair<uint32_t, std::vector<uint8_t>>> Entries_;
};

// The physical slot number of the first bridge above Functions[Index] whose
// PCI Express Capabilities register says "slot implemented"; -1 when none.
long SlotAbove(const std::vector<EnumeratedFunction> &Functions, size_t Index);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_NIC_DB_H_
