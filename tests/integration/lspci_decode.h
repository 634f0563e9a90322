// What `lspci -F DUMP` decodes of each function of a dump (-vvv, -xxxx and
// -PP): the oracle the PCI tests compare the emulated bus and the driver's
// sections with.
#ifndef QOR_TESTS_INTEGRATION_LSPCI_DECODE_H_
#define QOR_TESTS_INTEGRATION_LSPCI_DECODE_H_

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/integration/lspci_tool.h"

namespace qortest {

struct LspciWindow {
  bool Io = false;
  bool Prefetchable = false;
  uint64_t First = 0, Last = 0;
};

struct LspciRegion {
  int Index = 0;  // the register: "Region N"
  bool Io = false;
  bool Wide = false;          // "(64-bit, ...)"
  bool Prefetchable = false;  // "prefetchable)"
  uint64_t Address = 0;       // 0: "<unassigned>"
};

// What lspci decodes of one function.
struct LspciFunction {
  std::string Key;  // "SSSS:BB:DD.F"
  std::map<std::string, uint32_t> Caps;  // capability name -> offset
  std::vector<LspciWindow> Windows;      // the open ones
  std::optional<std::array<unsigned, 3>> Buses;
  std::vector<LspciRegion> Regions;
  std::optional<unsigned> Slot;  // "Slot #N" of an implemented slot
  std::vector<uint8_t> Bytes;    // from -xxxx
  std::string Parent;            // key of the bridge above, from -PP
};

inline std::string LspciKey(const std::string &Shown) {
  // "BB:DD.F" or "DDDD:BB:DD.F"
  return Shown.size() > 7 ? Shown : "0000:" + Shown;
}

inline const char *const kLspciCapNames[] = {"Power Management",       "Express",
                                             "Advanced Error Reporting", "Device Serial Number",
                                             "Secondary PCI Express",    "Downstream Port Containment",
                                             "Access Control Services"};

inline std::map<std::string, LspciFunction> DecodeLspci(const std::string &File) {
  std::map<std::string, LspciFunction> Out;
  std::string Key;
  std::istringstream Verbose(Lspci(File, "-vvv"));
  const std::regex Cap(R"(^\tCapabilities: \[([0-9a-f]+)(?: v\d+)?\] (.*)$)");
  const std::regex Behind(R"(^\t(I/O|Memory|Prefetchable memory) behind bridge: ([0-9a-f]+)-([0-9a-f]+)(.*)$)");
  const std::regex Bus(R"(^\tBus: primary=([0-9a-f]+), secondary=([0-9a-f]+), subordinate=([0-9a-f]+))");
  const std::regex Bar(R"(^\tRegion (\d+): (Memory at|I/O ports at) ([0-9a-f]+|<unassigned>)(.*)$)");
  const std::regex Slot(R"(^\t\t\tSlot #(\d+),)");
  std::smatch M;
  for (std::string Line; std::getline(Verbose, Line);) {
    if (Line.empty()) continue;
    if (Line[0] != '\t') {
      Key = LspciKey(Line.substr(0, Line.find(' ')));
      Out[Key].Key = Key;
      continue;
    }
    LspciFunction &D = Out[Key];
    if (std::regex_match(Line, M, Cap)) {
      for (const char *Name : kLspciCapNames) {
        if (M[2].str().rfind(Name, 0) == 0 && D.Caps.count(Name) == 0) D.Caps[Name] = std::stoul(M[1], nullptr, 16);
      }
    } else if (std::regex_match(Line, M, Behind)) {
      if (M[4].str().find("[disabled]") != std::string::npos) continue;
      D.Windows.push_back({M[1] == "I/O", M[1] == "Prefetchable memory", std::stoull(M[2], nullptr, 16),
                           std::stoull(M[3], nullptr, 16)});
    } else if (std::regex_search(Line, M, Bus)) {
      D.Buses = std::array<unsigned, 3>{static_cast<unsigned>(std::stoul(M[1], nullptr, 16)),
                                        static_cast<unsigned>(std::stoul(M[2], nullptr, 16)),
                                        static_cast<unsigned>(std::stoul(M[3], nullptr, 16))};
    } else if (std::regex_match(Line, M, Bar)) {
      LspciRegion R;
      R.Index = std::stoi(M[1]);
      R.Io = M[2] == "I/O ports at";
      R.Address = M[3] == "<unassigned>" ? 0 : std::stoull(M[3], nullptr, 16);
      R.Wide = M[4].str().find("64-bit") != std::string::npos;
      R.Prefetchable = M[4].str().find(", prefetchable") != std::string::npos;
      D.Regions.push_back(R);
    } else if (std::regex_search(Line, M, Slot)) {
      D.Slot = static_cast<unsigned>(std::stoul(M[1]));
    }
  }
  std::istringstream Hex(Lspci(File, "-xxxx"));
  for (std::string Line; std::getline(Hex, Line);) {
    if (Line.empty()) continue;
    std::string First = Line.substr(0, Line.find(' '));
    if (First.find('.') != std::string::npos) {  // a function's header; rows start "00:"
      Key = LspciKey(First);
      continue;
    }
    std::istringstream Row(Line.substr(First.size()));
    for (std::string Byte; Row >> Byte;) Out[Key].Bytes.push_back(static_cast<uint8_t>(std::stoul(Byte, nullptr, 16)));
  }
  std::istringstream Paths(Lspci(File, "-PP"));
  for (std::string Line; std::getline(Paths, Line);) {
    std::string Path = Line.substr(0, Line.find(' '));
    // Inside a path lspci gives the domain only with the first function;
    // the others are in the same domain.
    std::string First = Path.substr(0, Path.find('/'));
    std::string Domain = LspciKey(First).substr(0, 5);
    auto Full = [&Domain](const std::string &Shown) { return Shown.size() > 7 ? Shown : Domain + Shown; };
    size_t Slash = Path.rfind('/');
    std::string Own = Full(Slash == std::string::npos ? Path : Path.substr(Slash + 1));
    if (Slash != std::string::npos) {
      std::string Above = Path.substr(0, Slash);
      size_t Previous = Above.rfind('/');
      Out[Own].Parent = Full(Previous == std::string::npos ? Above : Above.substr(Previous + 1));
    }
  }
  return Out;
}

// Little-endian bytes of a dumped function.
inline uint64_t RawBytes(const std::vector<uint8_t> &Bytes, uint32_t Offset, int Width) {
  uint64_t Value = 0;
  for (int I = Width - 1; I >= 0; I--) Value = Value << 8 | Bytes.at(Offset + I);
  return Value;
}

// The windows of a bridge as the driver reports them in PcieResource: the
// ones lspci decodes as open, with the driver's documented departures: a
// window whose base register (I/O Base, Memory Base, Prefetchable Base) is
// zero is not reported, and the prefetchable window's base/limit test
// reads only the low 16-bit registers, so a 64-bit window whose low halves
// are out of order is dropped (it crosses a 4 GiB boundary) and one whose
// full bounds are out of order but low halves in order is reported (the
// I/O window's test, too, reads only its low registers).
inline std::vector<LspciWindow> DriverReportedWindows(const LspciFunction &F) {
  std::vector<LspciWindow> Out;
  if (F.Bytes.size() < 0x40 || (F.Bytes[0x0E] & 0x7F) != 1) return Out;
  uint64_t Base = RawBytes(F.Bytes, 0x24, 2), Limit = RawBytes(F.Bytes, 0x26, 2);
  bool PrefetchableInOrder = Base != 0 && (Base & 0xFFF0) <= (Limit & 0xFFF0);
  bool PrefetchableShown = false;
  for (const LspciWindow &W : F.Windows) {
    if (W.Io && (F.Bytes[0x1C] == 0 || (F.Bytes[0x1C] & 0xF0) > (F.Bytes[0x1D] & 0xF0))) continue;
    if (!W.Io && !W.Prefetchable && RawBytes(F.Bytes, 0x20, 2) == 0) continue;
    if (W.Prefetchable && !PrefetchableInOrder) continue;
    PrefetchableShown |= W.Prefetchable;
    Out.push_back(W);
  }
  if (PrefetchableInOrder && !PrefetchableShown) {
    uint64_t First = (Base & 0xFFF0) << 16, Last = (Limit & 0xFFF0) << 16 | 0xFFFFF;
    if ((Base & 0xF) == 1) {
      First |= RawBytes(F.Bytes, 0x28, 4) << 32;
      Last |= RawBytes(F.Bytes, 0x2C, 4) << 32;
    }
    Out.push_back({false, true, First, Last});
  }
  return Out;
}

}  // namespace qortest

#endif  // QOR_TESTS_INTEGRATION_LSPCI_DECODE_H_
