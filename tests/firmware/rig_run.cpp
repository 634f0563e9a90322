#include "tests/firmware/rig_run.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace qor::rig {

const std::vector<std::string> kSections = {
    "BiosVersion", "PchInfo",      "CpuInfo",  "DimmResultInfo", "DimmInfo",  "VmdInfo",  "TpmInfo",
    "OnBoardSataInfo", "PcieDevice", "PcieTopology", "MiscInfo", "PcieResource", "MemoryMap", "IioInfo",
};

std::string RunFolder() {
  const char *Dir = std::getenv("QOR_RIG_OUT");
  return Dir != nullptr ? Dir : "";
}

std::vector<uint8_t> ReadBytes(const std::string &Path) {
  std::ifstream In(Path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
}

std::string ReadText(const std::string &Path) {
  std::vector<uint8_t> Bytes = ReadBytes(Path);
  return std::string(Bytes.begin(), Bytes.end());
}

bool FileExists(const std::string &Path) { return std::filesystem::is_regular_file(Path); }

rapidjson::Document ParseJson(const std::string &Text, const std::string &What) {
  rapidjson::Document Document;
  Document.Parse(Text.c_str(), Text.size());
  if (Document.HasParseError()) {
    ADD_FAILURE() << What << " is not valid JSON (offset " << Document.GetErrorOffset() << ")";
    Document.SetNull();
  }
  return Document;
}

BootFolder::BootFolder(const std::string &Directory) : Dir(Directory) {
  Log = ReadText(Dir + "/debug.log");
  Report = ParseJson(ReadText(Dir + "/boot.json"), Dir + "/boot.json");
}

size_t BootFolder::Sends(const std::string &Name) const {
  size_t Count = 0;
  const rapidjson::Value *Uploads = Report.IsObject() ? Member(Report, "uploads") : nullptr;
  if (Uploads == nullptr || !Uploads->IsArray()) return 0;
  for (const auto &Upload : Uploads->GetArray()) {
    const rapidjson::Value *Sent = Member(Upload, "name");
    Count += Sent != nullptr && Sent->IsString() && Name == Sent->GetString() ? 1 : 0;
  }
  return Count;
}

bool FillerMissing(const std::string &Log, int SectionIndex) {
  return Log.find("Invalid Type " + std::to_string(SectionIndex) + "\n") != std::string::npos;
}

std::string PendingReason(const std::string &Log, int SectionIndex) {
  if (!FillerMissing(Log, SectionIndex)) return "";
  return "pending: " + kSections[static_cast<size_t>(SectionIndex)] + " has no filler yet";
}

const rapidjson::Value *Member(const rapidjson::Value &Object, const char *Name) {
  if (!Object.IsObject()) return nullptr;
  auto It = Object.FindMember(Name);
  return It == Object.MemberEnd() ? nullptr : &It->value;
}

std::string HexText(uint64_t Value) {
  char Text[24];
  std::snprintf(Text, sizeof(Text), "0x%llx", static_cast<unsigned long long>(Value));
  return Text;
}

}  // namespace qor::rig
