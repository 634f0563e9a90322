// qor-capture-host: writes a board describing the running Linux machine
// (tools/host_capture.h) for qor-emu --board.
#include <cstdio>
#include <string>

#include "tools/host_capture.h"

namespace {

constexpr char kHelp[] =
    "Usage: qor-capture-host [--root DIR] FILE\n"
    "Writes a board describing this machine to FILE, and its PCI functions as an\n"
    "lspci -xxxx dump beside it (FILE's name without extension + .lspci.txt):\n"
    "PCI functions and BAR sizes from /sys/bus/pci/devices, SMBIOS from\n"
    "/sys/firmware/dmi/tables, the memory map from /sys/firmware/memmap. What\n"
    "cannot be read stays as in the built-in board and is listed on stderr.\n"
    "  --root DIR  read sysfs below DIR instead of / (default: /).\n"
    "Exit status 1 when FILE cannot be written or the arguments are wrong.\n";

int Usage(const std::string &Message) {
  std::fprintf(stderr, "qor-capture-host: %s\nTry 'qor-capture-host --help'.\n", Message.c_str());
  return 1;
}

}  // namespace

int main(int Argc, char **Argv) {
  std::string Root = "/", File;
  for (int I = 1; I < Argc; I++) {
    std::string Arg = Argv[I];
    if (Arg == "--help" || Arg == "-h") {
      std::fputs(kHelp, stdout);
      return 0;
    } else if (Arg == "--root") {
      if (I + 1 >= Argc) return Usage("--root needs a folder");
      Root = Argv[++I];
    } else if (!Arg.empty() && Arg[0] == '-') {
      return Usage("unknown option " + Arg);
    } else if (File.empty()) {
      File = Arg;
    } else {
      return Usage("one board file only");
    }
  }
  if (File.empty()) return Usage("no board file given");
  qor::emu::HostCapture Capture;
  std::string Error = qor::emu::WriteHostCapture(Root, File, &Capture);
  for (const std::string &Note : Capture.Notes) std::fprintf(stderr, "qor-capture-host: %s\n", Note.c_str());
  if (!Error.empty()) {
    std::fprintf(stderr, "qor-capture-host: %s\n", Error.c_str());
    return 1;
  }
  std::printf("%s: %zu PCI functions, %zu bytes of SMBIOS, %zu memory ranges\n", File.c_str(), Capture.Functions,
              Capture.SmbiosBytes, Capture.MemoryRanges);
  return 0;
}
