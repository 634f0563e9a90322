// A board describing the running Linux machine, read from sysfs under a
// root folder ("/" for this machine, a fixture tree in tests):
// - PCI functions from bus/pci/devices/*/config, their BAR sizes from the
//   "resource" file beside it;
// - the SMBIOS structure table from firmware/dmi/tables/DMI;
// - the memory map from firmware/memmap/*/{start,end,type}.
// The PCI functions also go to an lspci -xxxx style dump beside the board,
// which the board imports so that its host bridges and tree come out as for
// any imported dump; the functions themselves are listed with their BAR
// sizes, which replace the sizes the import would estimate.
#ifndef QOR_TOOLS_HOST_CAPTURE_H_
#define QOR_TOOLS_HOST_CAPTURE_H_

#include <cstddef>
#include <string>
#include <vector>

namespace qor::emu {

struct HostCapture {
  std::string BoardJson;          // the board (laid over the built-in one when loaded)
  std::string LspciDump;          // lspci -xxxx text of the functions; empty without any
  size_t Functions = 0;
  size_t SmbiosBytes = 0;         // 0: no readable SMBIOS table
  size_t MemoryRanges = 0;
  std::vector<std::string> Notes;  // what could not be read, one line each
};

// Reads the machine below Root. DumpName is the file name the board uses
// to import LspciDump (resolved beside the board). Never throws for
// unreadable or missing pieces: they are left out and named in Notes.
HostCapture CaptureHost(const std::string &Root, const std::string &DumpName);

// Writes the capture to BoardPath and its dump beside it (BoardPath's stem
// + ".lspci.txt"). Returns an empty string or a message saying what failed.
std::string WriteHostCapture(const std::string &Root, const std::string &BoardPath, HostCapture *Out);

}  // namespace qor::emu

#endif  // QOR_TOOLS_HOST_CAPTURE_H_
