// Boards of a chosen size, for scaling tests and benchmarks: a multi-socket
// server with exactly N PCI functions (bridges and the PCH's LPC bridge
// counted), D DIMMs and M memory-map descriptors, laid over the built-in
// board (docs/board-generator.md).
//
// The PCI tree: per socket up to four IIO stacks (host bridges), each with
// its own integrated function and up to four root ports with slots; below
// the ports single- and multi-function cards of varied classes (NVMe
// drives, NICs with nic db entries and firmware-management instances, GPUs
// with their audio function, accelerators, an FPGA, a device of the
// driver's exclusion table, a card with several chips of one kind behind
// its own switch, a PCIe-to-PCI bridge with a conventional card), and
// switches of up to three levels, some with slotted downstream ports. BARs
// of every type are left without a base, so the emulator assigns them and
// opens the bridges' windows as a bus driver would.
//
// The output depends only on the shape: the same arguments give the same
// bytes.
#ifndef QOR_TOOLS_BOARD_GENERATOR_H_
#define QOR_TOOLS_BOARD_GENERATOR_H_

#include <cstdint>
#include <stdexcept>
#include <string>

namespace qor::tool {

struct BoardShape {
  uint32_t Functions = 64;
  uint32_t Sockets = 2;
  uint32_t Dimms = 16;
  uint32_t MemoryDescriptors = 64;
};

constexpr uint32_t kMaxGeneratedSockets = 4;       // the platform data describes four sockets
constexpr uint32_t kDimmSlotsPerSocket = 16;       // eight channels of two slots
constexpr uint32_t kMinMemoryDescriptors = 10;     // the fixed ranges below 4 GiB and one above
constexpr uint32_t kMaxMemoryDescriptors = 65536;
constexpr uint32_t kMaxGeneratedFunctions = 4096;  // and what the sockets' buses hold

// A shape that cannot be built; the message says which argument and why.
class ShapeError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// The board as JSON text, starting with a comment that gives the command
// line regenerating it. Throws ShapeError.
std::string GenerateBoard(const BoardShape &Shape);

// "qor-gen-board --functions N --sockets S --dimms D --memory-descriptors M".
std::string GeneratorCommandLine(const BoardShape &Shape);

}  // namespace qor::tool

#endif  // QOR_TOOLS_BOARD_GENERATOR_H_
