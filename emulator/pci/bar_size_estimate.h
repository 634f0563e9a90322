// BAR sizes for a machine known only from its configuration bytes: a dump
// holds the address each BAR was given, not how much it decodes. Firmware
// aligns every BAR to its size, so the size is taken as the largest power of
// two that divides the base, then bounded:
// - an I/O BAR decodes at most 256 bytes;
// - a BAR inside a window of the bridge above it ends inside that window;
// - a BAR ends before the next higher base of any BAR of the same space
//   (I/O or memory) in the machine, since decoded ranges do not overlap;
// - never below the smallest size a BAR can have: 4 bytes of I/O, 16 of
//   memory (two BARs at one base get that).
// A BAR whose base is 0 is unassigned and counts as absent, as do the BARs
// of reserved memory type 3 and every BAR of a function that reads all ones.
// Expansion ROM registers are not sized.
#ifndef QOR_EMULATOR_PCI_BAR_SIZE_ESTIMATE_H_
#define QOR_EMULATOR_PCI_BAR_SIZE_ESTIMATE_H_

#include <vector>

#include "emulator/pci/lspci_import.h"

namespace qor::emu {

// Fills BarSizes of every function; Parent must already be set.
void EstimateBarSizes(std::vector<ImportedFunction> *Functions);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_BAR_SIZE_ESTIMATE_H_
