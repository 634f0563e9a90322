#include "tools/host_capture.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <system_error>

namespace qor::emu {
namespace {

namespace fs = std::filesystem;

bool ReadWhole(const fs::path &Path, std::string *Out) {
  std::ifstream In(Path, std::ios::binary);
  if (!In) return false;
  Out->assign(std::istreambuf_iterator<char>(In), std::istreambuf_iterator<char>());
  return !In.bad();
}

std::string Hex(uint64_t Value) {
  char Text[32];
  std::snprintf(Text, sizeof Text, "0x%" PRIx64, Value);
  return Text;
}

std::string HexBytes(const std::string &Bytes, size_t Count) {
  std::string Out;
  Out.reserve(Count * 3);
  char Byte[4];
  for (size_t I = 0; I < Count; I++) {
    std::snprintf(Byte, sizeof Byte, "%02x", static_cast<unsigned char>(Bytes[I]));
    if (I != 0) Out += ' ';
    Out += Byte;
  }
  return Out;
}

// The entries of a folder, sorted by name; empty when it cannot be listed.
std::vector<fs::path> Entries(const fs::path &Folder) {
  std::vector<fs::path> Out;
  std::error_code Error;
  for (fs::directory_iterator It(Folder, Error), End; !Error && It != End; It.increment(Error)) {
    Out.push_back(It->path());
  }
  std::sort(Out.begin(), Out.end());
  return Out;
}

struct Location {
  unsigned Segment, Bus, Device, Function;
};

// "DDDD:BB:DD.F" as sysfs names a function.
bool ParseLocation(const std::string &Name, Location *Out) {
  char Tail = 0;
  if (std::sscanf(Name.c_str(), "%x:%x:%x.%x%c", &Out->Segment, &Out->Bus, &Out->Device, &Out->Function, &Tail) != 4) {
    return false;
  }
  return Out->Segment <= 0xFFFF && Out->Bus <= 0xFF && Out->Device <= 0x1F && Out->Function <= 7;
}

uint64_t RoundUpToPowerOfTwo(uint64_t Value) {
  uint64_t Power = 1;
  while (Power < Value && Power != 0) Power <<= 1;
  return Power;
}

// Sizes of the BAR registers from a "resource" file: one "start end flags"
// line per resource, the first six being the BARs (a 64-bit BAR's second
// line reads zero). Only as many as the header type has BAR registers.
std::vector<uint64_t> BarSizes(const std::string &Resource, uint8_t HeaderType) {
  size_t Registers = (HeaderType & 0x7F) == 0 ? 6 : (HeaderType & 0x7F) == 1 ? 2 : 1;
  std::vector<uint64_t> Sizes(Registers, 0);
  std::istringstream In(Resource);
  std::string Line;
  for (size_t I = 0; I < Registers && std::getline(In, Line); I++) {
    unsigned long long Start = 0, End = 0;
    if (std::sscanf(Line.c_str(), "%llx %llx", &Start, &End) != 2) continue;
    if (End == 0 || End < Start) continue;
    Sizes[I] = RoundUpToPowerOfTwo(static_cast<uint64_t>(End - Start) + 1);
  }
  return Sizes;
}

void CapturePci(const fs::path &Root, HostCapture *Out, std::string *Functions) {
  fs::path Devices = Root / "sys/bus/pci/devices";
  std::error_code Error;
  if (!fs::is_directory(Devices, Error)) {
    Out->Notes.push_back(Devices.string() + ": not found; the built-in board's PCI bus stays");
    return;
  }
  for (const fs::path &Folder : Entries(Devices)) {
    std::string Name = Folder.filename().string();
    Location L{};
    if (!ParseLocation(Name, &L)) {
      Out->Notes.push_back(Folder.string() + ": not a location a PCI segment holds; left out");
      continue;
    }
    std::string Config;
    if (!ReadWhole(Folder / "config", &Config)) {
      Out->Notes.push_back((Folder / "config").string() + ": cannot be read; left out");
      continue;
    }
    size_t Size = Config.size() >= 4096 ? 4096 : Config.size() >= 256 ? 256 : Config.size() >= 64 ? 64 : 0;
    if (Size == 0) {
      Out->Notes.push_back((Folder / "config").string() + ": " + std::to_string(Config.size()) +
                           " bytes, fewer than a header; left out");
      continue;
    }
    std::string Resource;
    if (!ReadWhole(Folder / "resource", &Resource)) {
      Out->Notes.push_back((Folder / "resource").string() + ": cannot be read; no BAR sizes");
    }
    std::vector<uint64_t> Sizes = BarSizes(Resource, static_cast<uint8_t>(Config[0x0E]));

    char Bdf[20];
    std::snprintf(Bdf, sizeof Bdf, "%04x:%02x:%02x.%x", L.Segment, L.Bus, L.Device, L.Function);
    Out->LspciDump += std::string(Bdf) + " captured\n";
    for (size_t Row = 0; Row < Size; Row += 16) {
      char Offset[8];
      std::snprintf(Offset, sizeof Offset, Row < 0x100 ? "%02zx: " : "%03zx: ", Row);
      Out->LspciDump += Offset + HexBytes(Config.substr(Row, 16), 16) + "\n";
    }
    Out->LspciDump += "\n";

    std::string Entry = std::string("      { \"bdf\": \"") + Bdf + "\", \"config\": \"" + HexBytes(Config, Size) +
                        "\", \"barSizes\": [";
    for (size_t I = 0; I < Sizes.size(); I++) Entry += (I ? ", " : "") + std::string("\"") + Hex(Sizes[I]) + "\"";
    Entry += "] }";
    if (!Functions->empty()) *Functions += ",\n";
    *Functions += Entry;
    Out->Functions++;
  }
}

const char *MemoryTypeOf(const std::string &Type) {
  if (Type == "System RAM") return "EfiConventionalMemory";
  if (Type == "ACPI Tables") return "EfiACPIReclaimMemory";
  if (Type == "ACPI Non-volatile Storage") return "EfiACPIMemoryNVS";
  return "EfiReservedMemoryType";
}

std::string Trimmed(std::string Text) {
  while (!Text.empty() && (Text.back() == '\n' || Text.back() == '\r' || Text.back() == ' ')) Text.pop_back();
  return Text;
}

// The ranges of firmware/memmap, in order of their start; each becomes a
// descriptor widened to whole 4 KiB pages.
std::string CaptureMemoryMap(const fs::path &Root, HostCapture *Out) {
  fs::path Folder = Root / "sys/firmware/memmap";
  std::error_code Error;
  if (!fs::is_directory(Folder, Error)) {
    Out->Notes.push_back(Folder.string() + ": not found; the built-in board's memory map stays");
    return "";
  }
  std::multimap<uint64_t, std::string> Descriptors;
  for (const fs::path &Range : Entries(Folder)) {
    std::string Start, End, Type;
    if (!ReadWhole(Range / "start", &Start) || !ReadWhole(Range / "end", &End) || !ReadWhole(Range / "type", &Type)) {
      Out->Notes.push_back(Range.string() + ": start, end or type cannot be read; left out");
      continue;
    }
    char *StartEnd = nullptr, *EndEnd = nullptr;
    Start = Trimmed(Start);
    End = Trimmed(End);
    uint64_t First = std::strtoull(Start.c_str(), &StartEnd, 16);
    uint64_t Last = std::strtoull(End.c_str(), &EndEnd, 16);
    if (Start.empty() || End.empty() || *StartEnd != 0 || *EndEnd != 0 || Last < First) {
      Out->Notes.push_back(Range.string() + ": start \"" + Start + "\" and end \"" + End + "\" are no range; left out");
      continue;
    }
    uint64_t Base = First & ~uint64_t{0xFFF};
    uint64_t Pages = (Last - Base) / 4096 + 1;
    Descriptors.emplace(Base, std::string("      { \"type\": \"") + MemoryTypeOf(Trimmed(Type)) + "\", \"start\": \"" +
                                  Hex(Base) + "\", \"pages\": \"" + Hex(Pages) + "\" }");
  }
  std::string Json;
  for (const auto &[Base, Descriptor] : Descriptors) Json += (Json.empty() ? "" : ",\n") + Descriptor;
  Out->MemoryRanges = Descriptors.size();
  if (Descriptors.empty()) Out->Notes.push_back(Folder.string() + ": no readable range; the built-in map stays");
  return Json;
}

std::string CaptureSmbios(const fs::path &Root, HostCapture *Out) {
  fs::path Table = Root / "sys/firmware/dmi/tables/DMI";
  std::string Bytes;
  if (!ReadWhole(Table, &Bytes) || Bytes.empty()) {
    Out->Notes.push_back(Table.string() + ": cannot be read; the built-in board's SMBIOS stays");
    return "";
  }
  Out->SmbiosBytes = Bytes.size();
  return HexBytes(Bytes, Bytes.size());
}

}  // namespace

HostCapture CaptureHost(const std::string &Root, const std::string &DumpName) {
  HostCapture Out;
  fs::path RootPath(Root.empty() ? "/" : Root);
  std::string Functions;
  CapturePci(RootPath, &Out, &Functions);
  std::string Smbios = CaptureSmbios(RootPath, &Out);
  std::string Memory = CaptureMemoryMap(RootPath, &Out);

  std::string Json = "{\n  \"name\": \"captured host\"";
  if (Out.Functions != 0) {
    Json += ",\n  \"pci\": {\n    \"import\": \"" + DumpName + "\",\n    \"functions\": [\n" + Functions + "\n    ]\n  }";
  }
  if (!Smbios.empty()) Json += ",\n  \"smbios\": { \"raw\": \"" + Smbios + "\" }";
  if (!Memory.empty()) Json += ",\n  \"memoryMap\": { \"descriptors\": [\n" + Memory + "\n  ] }";
  Json += "\n}\n";
  Out.BoardJson = std::move(Json);
  return Out;
}

std::string WriteHostCapture(const std::string &Root, const std::string &BoardPath, HostCapture *Out) {
  fs::path Board(BoardPath);
  std::string DumpName = Board.stem().string() + ".lspci.txt";
  *Out = CaptureHost(Root, DumpName);
  auto Write = [](const fs::path &Path, const std::string &Text) -> std::string {
    std::ofstream File(Path, std::ios::binary | std::ios::trunc);
    if (File) File << Text;
    if (!File || !File.flush()) return Path.string() + ": cannot be written";
    return "";
  };
  if (Out->Functions != 0) {
    std::string Error = Write(Board.parent_path() / DumpName, Out->LspciDump);
    if (!Error.empty()) return Error;
  }
  return Write(Board, Out->BoardJson);
}

}  // namespace qor::emu
