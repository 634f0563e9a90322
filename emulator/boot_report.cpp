#include "emulator/boot_report.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "emulator/board_json.h"
#include "platform/print_lib.h"

namespace qor::emu {

const std::vector<std::string> kSectionNames = {
    "BiosVersion",  "PchInfo",  "CpuInfo",      "DimmResultInfo", "DimmInfo",  "VmdInfo",   "TpmInfo",
    "OnBoardSataInfo", "PcieDevice", "PcieTopology", "MiscInfo", "PcieResource", "MemoryMap", "IioInfo",
};

std::string StatusText(EFI_STATUS Status) {
  const char *Text = QorStatusText(Status);
  if (Text != nullptr) return Text;
  char Hex[24];
  std::snprintf(Hex, sizeof(Hex), "0x%llX", static_cast<unsigned long long>(Status));
  return Hex;
}

std::string BytesHex(const std::vector<uint8_t> &Bytes) {
  std::string Out;
  char Pair[3];
  for (uint8_t Byte : Bytes) {
    std::snprintf(Pair, sizeof(Pair), "%02X", Byte);
    Out += Pair;
  }
  return Out;
}

const char *ResetTypeName(EFI_RESET_TYPE Type) {
  switch (Type) {
    case EfiResetCold: return "cold";
    case EfiResetWarm: return "warm";
    case EfiResetShutdown: return "shutdown";
    default: return "platformSpecific";
  }
}

// Text as valid UTF-8: every byte that does not start a well-formed
// sequence becomes U+FFFD. Debug lines and variable data can carry any
// bytes a board put in firmware tables; the report must stay valid JSON.
std::string ValidUtf8(const std::string &Text) {
  std::string Out;
  Out.reserve(Text.size());
  for (size_t I = 0; I < Text.size();) {
    const auto Byte = [&](size_t K) { return static_cast<unsigned char>(Text[I + K]); };
    const unsigned char Lead = Byte(0);
    size_t Length = Lead < 0x80 ? 1 : Lead >= 0xC2 && Lead <= 0xDF ? 2 : Lead >= 0xE0 && Lead <= 0xEF ? 3
                  : Lead >= 0xF0 && Lead <= 0xF4 ? 4 : 0;
    bool Ok = Length != 0 && I + Length <= Text.size();
    for (size_t K = 1; Ok && K < Length; K++) Ok = (Byte(K) & 0xC0) == 0x80;
    // No overlong forms, surrogates or code points above U+10FFFF.
    if (Ok && Length >= 3) {
      const unsigned char Second = Byte(1);
      Ok = !(Lead == 0xE0 && Second < 0xA0) && !(Lead == 0xED && Second > 0x9F) && !(Lead == 0xF0 && Second < 0x90) &&
           !(Lead == 0xF4 && Second > 0x8F);
    }
    if (Ok) {
      Out.append(Text, I, Length);
      I += Length;
    } else {
      Out += "\xEF\xBF\xBD";
      I++;
    }
  }
  return Out;
}

namespace {

using Writer = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

std::string Hex(uint64_t Value, int Digits) {
  char Text[24];
  std::snprintf(Text, sizeof(Text), "0x%0*llX", Digits, static_cast<unsigned long long>(Value));
  return Text;
}

void Key(Writer &W, const char *Name) { W.Key(Name); }
void Str(Writer &W, const std::string &Text) {
  const std::string Valid = ValidUtf8(Text);
  W.String(Valid.c_str(), static_cast<rapidjson::SizeType>(Valid.size()));
}

}  // namespace

uint32_t Crc32Of(const std::vector<uint8_t> &Bytes) {
  uLong Crc = crc32(0L, Z_NULL, 0);
  if (!Bytes.empty()) Crc = crc32(Crc, Bytes.data(), static_cast<uInt>(Bytes.size()));
  return static_cast<uint32_t>(Crc);
}

std::vector<SectionState> SectionStates(const BootResult &Result) {
  std::vector<std::string> Listing;
  bool Collecting = false;
  bool CompleteUpload = false;
  for (const DebugLine &Line : Result.DebugLines) {
    if (Line.Text == "Some data has not been filled, now force upload\n") {
      Collecting = true;
      Listing.clear();
      continue;
    }
    if (Line.Text.rfind("QorUploadInfoData ---start", 0) == 0) {
      // An upload not announced by the force listing starts only when every
      // section is filled.
      if (!Collecting) CompleteUpload = true;
      Collecting = false;
      continue;
    }
    if (Collecting && !Line.Text.empty() && Line.Text[0] == '[') Listing.push_back(Line.Text);
  }
  std::vector<SectionState> States;
  for (size_t I = 0; I < kSectionNames.size(); I++) {
    std::string State = "unknown";
    if (CompleteUpload) {
      State = "filled";
    } else if (Listing.size() == kSectionNames.size()) {
      const std::string &Line = Listing[I];
      State = Line.size() >= 4 && Line.compare(Line.size() - 4, 4, "[1]\n") == 0 ? "filled" : "unfilled";
    }
    States.push_back({kSectionNames[I], State});
  }
  return States;
}

std::string VariablesJson(const std::vector<Variable> &Variables) {
  rapidjson::StringBuffer Buffer;
  Writer W(Buffer);
  W.StartArray();
  for (const Variable &Value : Variables) {
    W.StartObject();
    Key(W, "name");
    Str(W, FromU16(Value.Name));
    Key(W, "guid");
    Str(W, GuidToText(Value.Guid));
    Key(W, "attributes");
    W.Uint(Value.Attributes);
    Key(W, "data");
    Str(W, BytesHex(Value.Data));
    W.EndObject();
  }
  W.EndArray();
  return std::string(Buffer.GetString()) + "\n";
}

std::string BootReportJson(const Board &Board, const BootResult &Result, int BootNumber) {
  rapidjson::StringBuffer Buffer;
  Writer W(Buffer);
  W.StartObject();
  Key(W, "board");
  Str(W, Board.Name);
  Key(W, "boot");
  W.Int(BootNumber);
  Key(W, "entryStatus");
  Str(W, StatusText(Result.EntryStatus));
  Key(W, "triggersInstalled");
  W.StartArray();
  for (const auto &Name : Result.TriggersInstalled) Str(W, Name);
  W.EndArray();

  Key(W, "uploads");
  W.StartArray();
  for (const Upload &Entry : Result.Uploads) {
    W.StartObject();
    Key(W, "name");
    Str(W, Entry.Name);
    Key(W, "file");
    Str(W, Entry.StoredName);
    Key(W, "size");
    W.Uint64(Entry.Bytes.size());
    Key(W, "crc32");
    Str(W, Hex(Crc32Of(Entry.Bytes), 8));
    Key(W, "sendStatus");
    Str(W, StatusText(Entry.Status));
    W.EndObject();
  }
  W.EndArray();

  Key(W, "ipmiRequests");
  W.StartArray();
  for (const IpmiRequest &Request : Result.IpmiRequests) {
    W.StartObject();
    Key(W, "netFunction");
    Str(W, Hex(Request.NetFunction, 2));
    Key(W, "lun");
    W.Uint(Request.Lun);
    Key(W, "command");
    Str(W, Hex(Request.Command, 2));
    Key(W, "size");
    W.Uint64(Request.Data.size());
    Key(W, "data");
    Str(W, BytesHex(Request.Data));
    Key(W, "status");
    Str(W, StatusText(Request.Status));
    W.EndObject();
  }
  W.EndArray();

  Key(W, "sections");
  W.StartArray();
  for (const SectionState &State : SectionStates(Result)) {
    W.StartObject();
    Key(W, "name");
    Str(W, State.Name);
    Key(W, "state");
    Str(W, State.State);
    W.EndObject();
  }
  W.EndArray();

  Key(W, "reset");
  if (Result.Resets.empty()) {
    W.Null();
  } else {
    W.StartObject();
    Key(W, "type");
    Str(W, ResetTypeName(Result.Resets.front().Type));
    Key(W, "status");
    Str(W, StatusText(Result.Resets.front().Status));
    W.EndObject();
  }

  Key(W, "variablesWritten");
  W.StartArray();
  for (const VariableWrite &Write : Result.VariableWrites) {
    W.StartObject();
    Key(W, "name");
    Str(W, FromU16(Write.Name));
    Key(W, "guid");
    Str(W, GuidToText(Write.Guid));
    Key(W, "attributes");
    W.Uint(Write.Attributes);
    Key(W, "data");
    Str(W, BytesHex(Write.Data));
    Key(W, "status");
    Str(W, StatusText(Write.Status));
    W.EndObject();
  }
  W.EndArray();

  Key(W, "costs");
  W.StartObject();
  Key(W, "allocations");
  W.Uint64(Result.Pool.Allocations);
  Key(W, "failedAllocations");
  W.Uint64(Result.Pool.FailedAllocations);
  Key(W, "frees");
  W.Uint64(Result.Pool.Frees);
  Key(W, "badFrees");
  W.Uint64(Result.Pool.BadFrees);
  Key(W, "bytesAllocated");
  W.Uint64(Result.Pool.BytesAllocated);
  Key(W, "peakBytesHeld");
  W.Uint64(Result.Pool.PeakBytesHeld);
  Key(W, "bytesHeldAtEnd");
  W.Uint64(Result.Pool.BytesHeld);
  Key(W, "allocationsHeldAtEnd");
  W.Uint64(Result.AllocationsHeldAtEnd);
  Key(W, "cpuAccesses");
  W.Uint64(Result.CpuAccesses);
  Key(W, "pciConfigReads");
  W.Uint64(Result.PciConfigReads);
  Key(W, "pciConfigWrites");
  W.Uint64(Result.PciConfigWrites);
  Key(W, "pciAbsentFunctionReads");
  W.Uint64(Result.PciAbsentReads);
  Key(W, "pciFunctions");
  W.StartArray();
  for (const auto &Cost : Result.PciFunctionCosts) {
    W.StartObject();
    Key(W, "location");
    Str(W, Cost.Location);
    Key(W, "reads");
    W.Uint64(Cost.Reads);
    Key(W, "writes");
    W.Uint64(Cost.Writes);
    W.EndObject();
  }
  W.EndArray();
  Key(W, "serviceCalls");
  W.StartObject();
  uint64_t Total = 0;
  for (const auto &[Name, Count] : Result.ServiceCalls) {
    Key(W, Name.c_str());
    W.Uint64(Count);
    Total += Count;
  }
  W.EndObject();
  Key(W, "totalServiceCalls");
  W.Uint64(Total);
  W.EndObject();

  Key(W, "warnings");
  W.StartArray();
  for (const DebugLine &Line : Result.DebugLines) {
    if ((Line.Level & 0x80000000ULL) != 0) Str(W, Line.Text);
  }
  for (const auto &Token : Result.UnknownPcdTokens) Str(W, "PCD token not on this board: " + Token);
  W.EndArray();
  W.EndObject();
  return std::string(Buffer.GetString()) + "\n";
}

namespace {
void WriteFile(const std::filesystem::path &Path, const void *Data, size_t Size) {
  std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
  if (!Out) throw std::runtime_error("cannot write " + Path.string());
  Out.write(static_cast<const char *>(Data), static_cast<std::streamsize>(Size));
  if (!Out) throw std::runtime_error("cannot write " + Path.string());
}
void WriteText(const std::filesystem::path &Path, const std::string &Text) { WriteFile(Path, Text.data(), Text.size()); }
}  // namespace

void WriteBootOutputs(const std::string &Directory, const Board &Board, const BootResult &Result, int BootNumber) {
  std::filesystem::path Dir(Directory);
  std::error_code Error;
  std::filesystem::create_directories(Dir, Error);
  if (Error) throw std::runtime_error("cannot create " + Directory + ": " + Error.message());
  for (const Upload &Entry : Result.Uploads) WriteFile(Dir / Entry.StoredName, Entry.Bytes.data(), Entry.Bytes.size());
  WriteText(Dir / "debug.log", Result.DebugLog);
  WriteText(Dir / "boot.json", BootReportJson(Board, Result, BootNumber));
  WriteText(Dir / "variables.json", VariablesJson(Result.VariablesAfter));
  WriteText(Dir / "lspci.txt", Result.LspciDump);
  if (!Result.SmbiosDump.empty()) WriteFile(Dir / "smbios.bin", Result.SmbiosDump.data(), Result.SmbiosDump.size());
}

}  // namespace qor::emu
