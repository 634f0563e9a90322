#include "emulator/pci/lspci_dump.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace qor::emu {

namespace {

constexpr size_t kRowBytes = 16;
constexpr size_t kMaxFunctionBytes = 4096;

int HexDigit(char C) {
  if (C >= '0' && C <= '9') return C - '0';
  if (C >= 'a' && C <= 'f') return C - 'a' + 10;
  if (C >= 'A' && C <= 'F') return C - 'A' + 10;
  return -1;
}

// Reads exactly Count hex digits at Line[At]; -1 when they are not there.
int64_t HexField(std::string_view Line, size_t At, size_t Count) {
  if (At + Count > Line.size()) return -1;
  int64_t Value = 0;
  for (size_t I = 0; I < Count; I++) {
    int Digit = HexDigit(Line[At + I]);
    if (Digit < 0) return -1;
    Value = Value * 16 + Digit;
  }
  return Value;
}

size_t HexRun(std::string_view Line, size_t At) {
  size_t End = At;
  while (End < Line.size() && HexDigit(Line[End]) >= 0) End++;
  return End - At;
}

std::string Quoted(std::string_view Line) {
  constexpr size_t kShown = 48;
  std::string Text(Line.substr(0, kShown));
  if (Line.size() > kShown) Text += "...";
  return "\"" + Text + "\"";
}

struct Header {
  bool Found = false;
  bool HasDomain = false;
  uint64_t Domain = 0;
  int64_t Bus = 0, Device = 0, Function = 0;
};

// "BB:DD.F", optionally preceded by a domain of 4 to 8 hex digits and a
// colon, then the end of the line or a space and the description.
Header ParseHeader(std::string_view Line) {
  Header H;
  size_t At = 0;
  size_t Lead = HexRun(Line, 0);
  if (Lead >= 4 && Lead <= 8 && Lead < Line.size() && Line[Lead] == ':') {
    H.Domain = static_cast<uint64_t>(HexField(Line, 0, Lead));
    H.HasDomain = true;
    At = Lead + 1;
  }
  if (HexRun(Line, At) != 2 || At + 7 > Line.size() || Line[At + 2] != ':' || HexRun(Line, At + 3) != 2 ||
      Line[At + 5] != '.' || HexRun(Line, At + 6) != 1) {
    return H;
  }
  if (At + 7 < Line.size() && Line[At + 7] != ' ') return H;
  H.Bus = HexField(Line, At, 2);
  H.Device = HexField(Line, At + 3, 2);
  H.Function = HexField(Line, At + 6, 1);
  H.Found = true;
  return H;
}

// "OO: XX XX ... XX" (16 bytes), offset of 2 or 3 hex digits; the offset,
// or -1 when the line is not such a row.
int64_t ParseRow(std::string_view Line, uint8_t Bytes[kRowBytes]) {
  size_t Digits = HexRun(Line, 0);
  if ((Digits != 2 && Digits != 3) || Line.size() != Digits + 1 + 3 * kRowBytes || Line[Digits] != ':') return -1;
  for (size_t I = 0; I < kRowBytes; I++) {
    size_t At = Digits + 1 + 3 * I;
    int64_t Byte = HexField(Line, At + 1, 2);
    if (Line[At] != ' ' || Byte < 0) return -1;
    Bytes[I] = static_cast<uint8_t>(Byte);
  }
  return HexField(Line, 0, Digits);
}

struct OpenFunction {
  DumpedFunction Function;
  size_t HeaderLine = 0;
  bool WithDomain = false;
};

void Close(const OpenFunction &Open, std::vector<DumpedFunction> *Out) {
  size_t Size = Open.Function.Config.size();
  if (Size != 64 && Size != 256 && Size != kMaxFunctionBytes) {
    throw LspciDumpError(Open.HeaderLine, "function " + LspciLocationText(Open.Function.Location, Open.WithDomain) +
                                              " holds " + std::to_string(Size) +
                                              " bytes; a function holds 64, 256 or 4096");
  }
  Out->push_back(Open.Function);
}

}  // namespace

LspciDumpError::LspciDumpError(size_t Line, const std::string &Message)
    : std::runtime_error("line " + std::to_string(Line) + ": " + Message), Line_(Line) {}

std::string LspciLocationText(const PciLocation &L, bool WithDomain) {
  if (WithDomain) return L.Text();
  char Text[16];
  std::snprintf(Text, sizeof(Text), "%02x:%02x.%x", L.Bus, L.Device, L.Function);
  return Text;
}

std::vector<DumpedFunction> ParseLspciDump(std::string_view Text) {
  std::vector<DumpedFunction> Out;
  std::map<PciLocation, size_t> FirstSeen;
  OpenFunction Open;
  bool HaveOpen = false;
  size_t LineNumber = 0;
  size_t Start = 0;
  while (Start < Text.size()) {
    size_t End = Text.find('\n', Start);
    if (End == std::string_view::npos) End = Text.size();
    std::string_view Line = Text.substr(Start, End - Start);
    Start = End + 1;
    LineNumber++;
    while (!Line.empty() && (Line.back() == ' ' || Line.back() == '\t' || Line.back() == '\r')) {
      Line.remove_suffix(1);
    }
    if (Line.empty()) continue;
    if (Line[0] == '\t' || Line[0] == ' ') {
      // The register decode `lspci -v` prints, indented, between header and rows.
      if (!HaveOpen) throw LspciDumpError(LineNumber, "decode line before any function header");
      continue;
    }

    uint8_t Row[kRowBytes];
    int64_t Offset = ParseRow(Line, Row);
    if (Offset >= 0) {
      if (!HaveOpen) throw LspciDumpError(LineNumber, "hex row before any function header");
      size_t Expected = Open.Function.Config.size();
      if (static_cast<size_t>(Offset) != Expected) {
        char Message[96];
        std::snprintf(Message, sizeof(Message), "row at offset %llx where offset %zx was expected",
                      static_cast<unsigned long long>(Offset), Expected);
        throw LspciDumpError(LineNumber, Message);
      }
      if (Expected >= kMaxFunctionBytes) {
        throw LspciDumpError(LineNumber, "row past the 4096 bytes of a configuration space");
      }
      Open.Function.Config.insert(Open.Function.Config.end(), Row, Row + kRowBytes);
      continue;
    }

    Header H = ParseHeader(Line);
    if (!H.Found) {
      throw LspciDumpError(LineNumber, "expected a function header \"BB:DD.F ...\" or a hex row \"OO: XX ...\" (16 bytes), found " +
                                           Quoted(Line));
    }
    if (H.Domain > 0xFFFF) throw LspciDumpError(LineNumber, "domain does not fit a 16-bit PCI segment: " + Quoted(Line));
    if (H.Device > 0x1F) throw LspciDumpError(LineNumber, "device number above 1f: " + Quoted(Line));
    if (H.Function > 7) throw LspciDumpError(LineNumber, "function number above 7: " + Quoted(Line));
    if (HaveOpen) Close(Open, &Out);
    Open = OpenFunction();
    Open.HeaderLine = LineNumber;
    Open.WithDomain = H.HasDomain;
    Open.Function.Location = {static_cast<uint16_t>(H.Domain), static_cast<uint8_t>(H.Bus),
                              static_cast<uint8_t>(H.Device), static_cast<uint8_t>(H.Function)};
    HaveOpen = true;
    auto [It, New] = FirstSeen.emplace(Open.Function.Location, LineNumber);
    if (!New) {
      throw LspciDumpError(LineNumber, "function " + LspciLocationText(Open.Function.Location, true) +
                                           " listed twice (first at line " + std::to_string(It->second) + ")");
    }
  }
  if (HaveOpen) Close(Open, &Out);
  return Out;
}

std::string WriteLspciDump(std::vector<DumpedFunction> Functions) {
  std::stable_sort(Functions.begin(), Functions.end(), [](const DumpedFunction &A, const DumpedFunction &B) {
    return A.Location < B.Location;
  });
  bool WithDomain = std::any_of(Functions.begin(), Functions.end(),
                                [](const DumpedFunction &F) { return F.Location.Segment != 0; });
  std::string Out;
  size_t Bytes = 0;
  for (const DumpedFunction &F : Functions) Bytes += F.Config.size();
  Out.reserve(Bytes / kRowBytes * (4 + 3 * kRowBytes + 1) + Functions.size() * 64);
  char Text[64];
  for (const DumpedFunction &F : Functions) {
    auto Byte = [&F](size_t At) -> unsigned { return At < F.Config.size() ? F.Config[At] : 0xFF; };
    Out += LspciLocationText(F.Location, WithDomain);
    std::snprintf(Text, sizeof(Text), " %02x%02x: %02x%02x:%02x%02x", Byte(0x0B), Byte(0x0A), Byte(0x01), Byte(0x00),
                  Byte(0x03), Byte(0x02));
    Out += Text;
    if (Byte(0x08) != 0) {
      std::snprintf(Text, sizeof(Text), " (rev %02x)", Byte(0x08));
      Out += Text;
    }
    Out += '\n';
    // Every boot writes the whole space (4 KiB a function): hex digits by
    // table, not by a formatted print per byte.
    static const char kDigits[] = "0123456789abcdef";
    for (size_t At = 0; At + kRowBytes <= F.Config.size(); At += kRowBytes) {
      if (At >= 0x100) Out += kDigits[At >> 8];
      Out += kDigits[(At >> 4) & 0xF];
      Out += '0';
      Out += ':';
      char Row[kRowBytes * 3];
      for (size_t I = 0; I < kRowBytes; I++) {
        Row[3 * I] = ' ';
        Row[3 * I + 1] = kDigits[F.Config[At + I] >> 4];
        Row[3 * I + 2] = kDigits[F.Config[At + I] & 0xF];
      }
      Out.append(Row, sizeof(Row));
      Out += '\n';
    }
    Out += '\n';
  }
  return Out;
}

}  // namespace qor::emu
