// The IIO topology table of the system information block: one entry per
// root port with its global port index (socket * 57 + port), slot, port
// kind, bus range and the switch levels below it, each level with the
// number of device-path nodes it adds.
//
// Unless the board gives the table ("systemInformation.iioTopology"), it is
// derived from the PCI bus: every PCI Express root port found is one entry,
// in enumeration order, after the annotations of its "iio" member. A range
// starts at the root port's own bus, so the ranges of the ports on one bus
// overlap; the lookup takes the first entry that holds a bus, and with buses
// numbered depth-first enumeration order makes that the port above it. (Only
// the first root port on a bus is then recognised as a root port itself.)
//   socket, port   default socket 0 and the next free port of the socket
//   kind           default 0 (a processor root port); "pch" or 2 for a PCH port
//   slot           default the port's Slot Capabilities number (bits 26:19),
//                  0xFF (onboard) when it implements no slot
//   buses          default [the port's own bus, its subordinate bus]
//   switchLevels   default from the switches below: a level for each
//                  upstream port below a port of the level above (up to
//                  three), adding two nodes (upstream and downstream port)
//   present        default true; "listed": false leaves the port out
// The count byte holds the number of entries, and an entry with port index
// 0xFFFF follows the last one.
#ifndef QOR_EMULATOR_PCI_IIO_TOPOLOGY_H_
#define QOR_EMULATOR_PCI_IIO_TOPOLOGY_H_

#include <array>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "emulator/pci/pci_bus.h"
#include "platform/system_information.h"

namespace qor::emu {

class JsonField;
struct Board;
struct PciFunctionDef;

struct IioPortDef {
  bool Listed = true;
  std::optional<uint8_t> Socket;
  std::optional<uint8_t> Port;
  uint8_t Kind = 0;
  bool Present = true;
  std::optional<uint8_t> Slot;
  std::optional<std::pair<uint8_t, uint8_t>> Buses;
  std::optional<std::array<uint8_t, 3>> SwitchLevels;
};

// The "iio" member of a root port.
IioPortDef ParseIioPort(const JsonField &Iio);
// "systemInformation.iioTopology": the whole table as given.
std::vector<QOR_IIO_TOPOLOGY_ENTRY> ParseIioTopology(const JsonField &Table);

// The entries derived from the enumerated functions and their board
// annotations.
std::vector<QOR_IIO_TOPOLOGY_ENTRY> DeriveIioTopology(const std::vector<PciFunctionDef> &Defs,
                                                      const std::vector<EnumeratedFunction> &Functions);
// Writes the board's table (given or derived) into the block.
void WriteIioTopologyTable(const Board &Board, const std::vector<EnumeratedFunction> &Functions,
                           std::vector<uint8_t> *Block);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_IIO_TOPOLOGY_H_
