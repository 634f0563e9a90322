#include "tests/firmware/rig_capture.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "emulator/board_json.h"
#include "emulator/boot_report.h"
#include "uefi/rig/rig_channel.h"

namespace qor::rig {

namespace {

using Writer = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

uint64_t Little(const std::vector<uint8_t> &Bytes, size_t Offset, size_t Size) {
  uint64_t Value = 0;
  for (size_t I = 0; I < Size && Offset + I < Bytes.size(); I++) Value |= static_cast<uint64_t>(Bytes[Offset + I]) << (8 * I);
  return Value;
}

// A name the guest chose, made safe as a file name in the output folder.
std::string SafeFileName(const std::string &Name) {
  std::string Safe;
  for (char C : Name) Safe += (C == '/' || C == '\\' || static_cast<unsigned char>(C) < 0x20) ? '_' : C;
  if (Safe.empty() || Safe == "." || Safe == "..") Safe = "_" + Safe;
  return Safe;
}

// The first use of a name keeps it, later ones are numbered: NAME.2.EXT.
template <typename T>
std::string StoredName(const std::vector<T> &Earlier, const std::string &Name) {
  size_t Count = 0;
  for (const T &Item : Earlier) Count += Item.Name == Name ? 1 : 0;
  std::string Safe = SafeFileName(Name);
  if (Count == 0) return Safe;
  size_t Dot = Safe.rfind('.');
  std::string Stem = Dot == std::string::npos ? Safe : Safe.substr(0, Dot);
  std::string Extension = Dot == std::string::npos ? "" : Safe.substr(Dot);
  return Stem + "." + std::to_string(Count + 1) + Extension;
}

// Texts from the guest (log lines, names) may hold any bytes.
void Str(Writer &W, const std::string &Text) {
  const std::string Valid = emu::ValidUtf8(Text);
  W.String(Valid.c_str(), static_cast<rapidjson::SizeType>(Valid.size()));
}

// A measurement as a number when it is one, else as its text.
void Measurement(Writer &W, const std::string &Text) {
  char *End = nullptr;
  unsigned long long Value = std::strtoull(Text.c_str(), &End, 10);
  if (!Text.empty() && End != nullptr && *End == '\0') {
    W.Uint64(Value);
  } else {
    Str(W, Text);
  }
}

void WriteFile(const std::filesystem::path &Path, const void *Data, size_t Size) {
  std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
  if (!Out) throw std::runtime_error("cannot write " + Path.string());
  Out.write(static_cast<const char *>(Data), static_cast<std::streamsize>(Size));
  if (!Out) throw std::runtime_error("cannot write " + Path.string());
}

}  // namespace

std::string RigBoot::ReportValue(const std::string &Key) const {
  std::string Value;
  for (const auto &[Name, Text] : Reports) {
    if (Name == Key) Value = Text;
  }
  return Value;
}

std::string RigBoot::DebugLog() const {
  std::string Log;
  for (const emu::DebugLine &Line : DebugLines) Log += Line.Text;
  return Log;
}

RigBoot CollectBoot(const std::vector<Frame> &Frames) {
  RigBoot Boot;
  for (const Frame &F : Frames) {
    switch (F.Kind) {
      case QOR_RIG_FRAME_START:
        Boot.Starts++;
        Boot.Version.assign(F.Data.begin(), F.Data.end());
        break;
      case QOR_RIG_FRAME_FILE: {
        emu::Upload Upload;
        Upload.Name = F.Name;
        Upload.StoredName = StoredName(Boot.Uploads, F.Name);
        Upload.Bytes = F.Data;
        Upload.Status = EFI_SUCCESS;
        Boot.Uploads.push_back(std::move(Upload));
        break;
      }
      case QOR_RIG_FRAME_LOG:
        if (F.Data.size() < 8) {
          Boot.RigWarnings.push_back("a log frame shorter than its level");
          break;
        }
        Boot.DebugLines.push_back({Little(F.Data, 0, 8), std::string(F.Data.begin() + 8, F.Data.end())});
        break;
      case QOR_RIG_FRAME_REPORT:
        Boot.Reports.emplace_back(F.Name, std::string(F.Data.begin(), F.Data.end()));
        break;
      case QOR_RIG_FRAME_BLOB: {
        Blob Item{F.Name, StoredName(Boot.Blobs, F.Name) + ".bin", F.Data};
        Boot.Blobs.push_back(std::move(Item));
        break;
      }
      case QOR_RIG_FRAME_VARIABLE: {
        constexpr size_t kFixed = sizeof(EFI_GUID) + 4 + 8;
        if (F.Data.size() < kFixed) {
          Boot.RigWarnings.push_back("a variable frame shorter than its header");
          break;
        }
        VariableWrite Write;
        Write.Name = F.Name;
        std::memcpy(&Write.Guid, F.Data.data(), sizeof(EFI_GUID));
        Write.Attributes = static_cast<uint32_t>(Little(F.Data, sizeof(EFI_GUID), 4));
        Write.Status = Little(F.Data, sizeof(EFI_GUID) + 4, 8);
        Write.Data.assign(F.Data.begin() + kFixed, F.Data.end());
        Boot.VariableWrites.push_back(std::move(Write));
        break;
      }
      case QOR_RIG_FRAME_RESET:
        Boot.Reset = ResetRecord{static_cast<uint32_t>(Little(F.Data, 0, 4)), Little(F.Data, 4, 8), F.Name};
        break;
      case QOR_RIG_FRAME_WARNING:
        Boot.RigWarnings.emplace_back(F.Data.begin(), F.Data.end());
        break;
      case QOR_RIG_FRAME_END:
        Boot.Completed = true;
        break;
      default:
        Boot.RigWarnings.push_back(std::string("a frame of unknown kind '") + F.Kind + "'");
        break;
    }
  }
  return Boot;
}

std::string RigBootReportJson(const RigBoot &Boot, const DecodedChannel &Channel, double WallSeconds) {
  rapidjson::StringBuffer Buffer;
  Writer W(Buffer);
  W.StartObject();
  W.Key("rig");
  Str(W, Boot.Version);
  W.Key("completed");
  W.Bool(Boot.Completed);
  W.Key("entryStatus");
  Str(W, Boot.ReportValue("entryStatus"));

  W.Key("machine");
  W.StartObject();
  for (const char *Key : {"customerId", "sockets", "processors", "dimms", "pciFunctions", "sataDrives", "jdNic"}) {
    std::string Value = Boot.ReportValue(Key);
    if (Value.empty()) continue;
    W.Key(Key);
    Measurement(W, Value);
  }
  W.Key("nics");
  W.StartArray();
  for (const auto &[Key, Value] : Boot.Reports) {
    if (Key == "nic") Str(W, Value);
  }
  W.EndArray();
  W.EndObject();

  // "trigger" reports read "NAME TICKS", one per installation, in order.
  W.Key("triggersInstalled");
  W.StartArray();
  for (const auto &[Key, Value] : Boot.Reports) {
    if (Key == "trigger") Str(W, Value.substr(0, Value.find(' ')));
  }
  W.EndArray();

  W.Key("uploads");
  W.StartArray();
  for (const emu::Upload &Upload : Boot.Uploads) {
    W.StartObject();
    W.Key("name");
    Str(W, Upload.Name);
    W.Key("file");
    Str(W, Upload.StoredName);
    W.Key("size");
    W.Uint64(Upload.Bytes.size());
    W.Key("crc32");
    char Crc[16];
    std::snprintf(Crc, sizeof(Crc), "0x%08X", emu::Crc32Of(Upload.Bytes));
    Str(W, Crc);
    W.EndObject();
  }
  W.EndArray();

  emu::BootResult ForStates;
  ForStates.DebugLines = Boot.DebugLines;
  W.Key("sections");
  W.StartArray();
  for (const emu::SectionState &State : emu::SectionStates(ForStates)) {
    W.StartObject();
    W.Key("name");
    Str(W, State.Name);
    W.Key("state");
    Str(W, State.State);
    W.EndObject();
  }
  W.EndArray();

  W.Key("reset");
  if (!Boot.Reset) {
    W.Null();
  } else {
    W.StartObject();
    W.Key("type");
    Str(W, emu::ResetTypeName(static_cast<EFI_RESET_TYPE>(Boot.Reset->Type)));
    W.Key("status");
    Str(W, emu::StatusText(Boot.Reset->Status));
    W.Key("by");
    Str(W, Boot.Reset->By);
    W.EndObject();
  }

  W.Key("variablesWritten");
  W.StartArray();
  for (const VariableWrite &Write : Boot.VariableWrites) {
    W.StartObject();
    W.Key("name");
    Str(W, Write.Name);
    W.Key("guid");
    Str(W, emu::GuidToText(Write.Guid));
    W.Key("attributes");
    W.Uint(Write.Attributes);
    W.Key("data");
    Str(W, emu::BytesHex(Write.Data));
    W.Key("status");
    Str(W, emu::StatusText(Write.Status));
    W.EndObject();
  }
  W.EndArray();

  W.Key("timing");
  W.StartObject();
  for (const char *Key : {"tscPerMillisecond", "entryTicks", "ticksFirstTriggerToUpload"}) {
    std::string Value = Boot.ReportValue(Key);
    if (Value.empty()) continue;
    W.Key(Key);
    Measurement(W, Value);
  }
  double TicksPerMs = std::strtod(Boot.ReportValue("tscPerMillisecond").c_str(), nullptr);
  double ToUpload = std::strtod(Boot.ReportValue("ticksFirstTriggerToUpload").c_str(), nullptr);
  if (TicksPerMs > 0 && ToUpload > 0) {
    W.Key("millisecondsFirstTriggerToUpload");
    W.Double(ToUpload / TicksPerMs);
  }
  W.Key("triggerTicks");
  W.StartObject();
  for (const auto &[Key, Value] : Boot.Reports) {
    size_t Space = Value.find(' ');
    if (Key != "trigger" || Space == std::string::npos) continue;
    W.Key(Value.substr(0, Space).c_str());
    Measurement(W, Value.substr(Space + 1));
  }
  W.EndObject();
  W.Key("wallSeconds");
  W.Double(WallSeconds);
  W.EndObject();

  W.Key("pool");
  W.StartObject();
  const std::pair<const char *, const char *> kPool[] = {
      {"allocations", "poolAllocations"},     {"failedAllocations", "poolFailedAllocations"},
      {"bytesAllocated", "poolBytesAllocated"}, {"frees", "poolFrees"},
      {"foreignFrees", "poolForeignFrees"},   {"untracked", "poolUntracked"},
      {"peakBytesHeld", "poolPeakBytes"},     {"bytesHeldAtEnd", "poolHeldBytes"},
      {"allocationsHeldAtEnd", "poolHeldBuffers"},
  };
  for (const auto &[Name, Key] : kPool) {
    std::string Value = Boot.ReportValue(Key);
    if (Value.empty()) continue;
    W.Key(Name);
    Measurement(W, Value);
  }
  W.EndObject();

  W.Key("channel");
  W.StartObject();
  W.Key("frames");
  W.Uint64(Channel.Frames.size());
  W.Key("badFrames");
  W.Uint64(Channel.BadFrames);
  W.Key("skippedBytes");
  W.Uint64(Channel.SkippedBytes);
  W.Key("truncated");
  W.Bool(Channel.Truncated);
  W.EndObject();

  W.Key("warnings");
  W.StartArray();
  for (const std::string &Warning : Boot.RigWarnings) Str(W, "rig: " + Warning);
  for (const emu::DebugLine &Line : Boot.DebugLines) {
    if ((Line.Level & 0x80000000ULL) != 0) Str(W, Line.Text);
  }
  W.EndArray();
  W.EndObject();
  return std::string(Buffer.GetString()) + "\n";
}

void WriteRigBootOutputs(const std::string &Directory, const RigBoot &Boot, const DecodedChannel &Channel,
                         double WallSeconds) {
  std::filesystem::path Dir(Directory);
  std::error_code Error;
  std::filesystem::create_directories(Dir, Error);
  if (Error) throw std::runtime_error("cannot create " + Directory + ": " + Error.message());
  for (const emu::Upload &Upload : Boot.Uploads) WriteFile(Dir / Upload.StoredName, Upload.Bytes.data(), Upload.Bytes.size());
  for (const Blob &Item : Boot.Blobs) WriteFile(Dir / Item.StoredName, Item.Bytes.data(), Item.Bytes.size());
  std::string Log = Boot.DebugLog();
  WriteFile(Dir / "debug.log", Log.data(), Log.size());
  std::string Report = RigBootReportJson(Boot, Channel, WallSeconds);
  WriteFile(Dir / "boot.json", Report.data(), Report.size());
}

}  // namespace qor::rig
