// Configuration-space dumps in the text format of `lspci -xxxx`: a header
// line per function ("BB:DD.F description" or "DDDD:BB:DD.F description"),
// then rows of 16 bytes prefixed with their offset ("00: 86 80 ..."), 64, 256
// or 4096 bytes per function. Real machines are imported from such dumps and
// every boot exports the machine the driver saw in the same form, so that
// `lspci -F FILE -vvv` decodes it.
#ifndef QOR_EMULATOR_PCI_LSPCI_DUMP_H_
#define QOR_EMULATOR_PCI_LSPCI_DUMP_H_

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/pci/pci_function.h"

namespace qor::emu {

struct DumpedFunction {
  PciLocation Location;
  std::vector<uint8_t> Config;  // 64, 256 or 4096 bytes
};

// A dump that cannot be read; the message starts with "line N: " naming the
// offending line (1-based).
class LspciDumpError : public std::runtime_error {
 public:
  LspciDumpError(size_t Line, const std::string &Message);
  size_t Line() const { return Line_; }

 private:
  size_t Line_;
};

// Parses a dump, functions in file order. Blank lines, trailing white space
// (CR included) and the indented decode lines of `lspci -v -xxxx` (tabs, or
// spaces where a tool replaced them) are skipped; any other line is refused.
// Throws LspciDumpError.
std::vector<DumpedFunction> ParseLspciDump(std::string_view Text);

// The dump `lspci -n -xxxx` prints for these functions: sorted by location,
// domains shown when any function sits in a segment other than 0, each
// function's Config printed whole (its size must be a multiple of 16).
std::string WriteLspciDump(std::vector<DumpedFunction> Functions);

// The formatted location, "BB:DD.F" or "DDDD:BB:DD.F".
std::string LspciLocationText(const PciLocation &Location, bool WithDomain);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_LSPCI_DUMP_H_
