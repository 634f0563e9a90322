// qor-gen-board: writes a board of a chosen size (tools/board_generator.h).
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tools/board_generator.h"

namespace {

const char kHelp[] =
    "Usage: qor-gen-board --functions N [--sockets S] [--dimms D] [--memory-descriptors M] [--out FILE]\n"
    "\n"
    "Writes a board description (JSON, laid over the built-in board) of a server\n"
    "with exactly N PCI functions, for qor-emu --board FILE. The same arguments\n"
    "always give the same bytes.\n"
    "\n"
    "  --functions N           PCI functions, bridges and the PCH's LPC bridge at\n"
    "                          00:1f.0 counted (1 to 4096, as far as the sockets'\n"
    "                          buses reach: 128 per socket).\n"
    "  --sockets S             processor sockets, 1 to 4 (default 2). Socket s has\n"
    "                          segment s/2, buses from (s%2)*128, up to four IIO\n"
    "                          stacks of up to four root ports.\n"
    "  --dimms D               installed DIMMs of 32 GiB, at most 16 per socket\n"
    "                          (default 8 per socket: one per channel).\n"
    "  --memory-descriptors M  UEFI memory map descriptors, 10 to 65536 (default 64).\n"
    "  --out FILE              where to write (default: standard output).\n"
    "  --help                  this text.\n"
    "\n"
    "Below the root ports: NVMe drives, NICs (nic db entries, firmware versions),\n"
    "GPUs with an audio function, accelerators, an FPGA, a device the driver\n"
    "excludes, a card of several identical chips behind its own switch, a\n"
    "PCIe-to-PCI bridge with a conventional card, and switches of up to three\n"
    "levels. BAR bases are left to the emulator, which assigns them and opens the\n"
    "bridge windows as a PCI bus driver does. See docs/board-generator.md.\n"
    "\n"
    "Exit status: 0 when the board was written, 1 when the shape cannot be built\n"
    "or FILE cannot be written, 2 on bad command-line arguments.\n";

int Usage(const std::string &Message) {
  std::fprintf(stderr, "qor-gen-board: %s\nTry 'qor-gen-board --help'.\n", Message.c_str());
  return 2;
}

bool ParseCount(const char *Text, uint32_t *Out) {
  if (Text == nullptr || *Text < '0' || *Text > '9') return false;
  errno = 0;
  char *End = nullptr;
  unsigned long long Value = std::strtoull(Text, &End, 10);
  if (errno != 0 || *End != '\0' || Value > 0xFFFFFFFFull) return false;
  *Out = static_cast<uint32_t>(Value);
  return true;
}

}  // namespace

int main(int Argc, char **Argv) {
  qor::tool::BoardShape Shape;
  bool HaveFunctions = false, HaveDimms = false;
  std::string OutPath;
  for (int I = 1; I < Argc; I++) {
    std::string Arg = Argv[I];
    const char *Value = I + 1 < Argc ? Argv[I + 1] : nullptr;
    uint32_t *Count = Arg == "--functions" ? &Shape.Functions
                      : Arg == "--sockets" ? &Shape.Sockets
                      : Arg == "--dimms" ? &Shape.Dimms
                      : Arg == "--memory-descriptors" ? &Shape.MemoryDescriptors
                                                      : nullptr;
    if (Arg == "--help" || Arg == "-h") {
      std::fputs(kHelp, stdout);
      return 0;
    } else if (Count != nullptr) {
      if (!ParseCount(Value, Count)) return Usage(Arg + " needs a number");
      HaveFunctions |= Count == &Shape.Functions;
      HaveDimms |= Count == &Shape.Dimms;
      I++;
    } else if (Arg == "--out") {
      if (Value == nullptr) return Usage("--out needs a file");
      OutPath = Value;
      I++;
    } else {
      return Usage("unknown argument '" + Arg + "'");
    }
  }
  if (!HaveFunctions) return Usage("--functions is required");
  if (!HaveDimms) Shape.Dimms = 8 * Shape.Sockets;

  std::string Board;
  try {
    Board = qor::tool::GenerateBoard(Shape);
  } catch (const qor::tool::ShapeError &Error) {
    std::fprintf(stderr, "qor-gen-board: %s\n", Error.what());
    return 1;
  }
  if (OutPath.empty()) {
    std::fwrite(Board.data(), 1, Board.size(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
  }
  std::ofstream File(OutPath, std::ios::binary | std::ios::trunc);
  if (File) File << Board;
  if (!File || !File.flush()) {
    std::fprintf(stderr, "qor-gen-board: %s: cannot be written\n", OutPath.c_str());
    return 1;
  }
  return 0;
}
