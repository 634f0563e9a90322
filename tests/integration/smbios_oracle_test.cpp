// An independent decoder as oracle: the SMBIOS table the emulated firmware
// served, written as smbios.bin and decoded by `dmidecode --from-dump`,
// must agree with CpuInfo and DimmInfo on every field both report.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "emulator/boot.h"
#include "emulator/boot_report.h"

namespace {

struct DecodedRecord {
  unsigned Handle = 0;
  unsigned Type = 0;
  std::map<std::string, std::string> Fields;
  std::map<std::string, std::vector<std::string>> Lists;  // "Characteristics:" and its indented items
};

std::string Trim(const std::string &Text) {
  size_t First = Text.find_first_not_of(" \t");
  if (First == std::string::npos) return "";
  return Text.substr(First, Text.find_last_not_of(" \t") - First + 1);
}

std::vector<DecodedRecord> Decode(const std::string &Output) {
  std::vector<DecodedRecord> Records;
  std::istringstream In(Output);
  std::string Line, ListKey;
  while (std::getline(In, Line)) {
    unsigned Handle = 0, Type = 0;
    if (std::sscanf(Line.c_str(), "Handle 0x%x, DMI type %u", &Handle, &Type) == 2) {
      Records.push_back({Handle, Type, {}, {}});
      continue;
    }
    if (Records.empty()) continue;
    if (Line.rfind("\t\t", 0) == 0) {
      if (!ListKey.empty()) Records.back().Lists[ListKey].push_back(Trim(Line));
    } else if (Line.rfind("\t", 0) == 0) {
      size_t Colon = Line.find(':');
      if (Colon == std::string::npos) continue;
      std::string Key = Line.substr(1, Colon - 1);
      std::string Value = Colon + 2 <= Line.size() ? Line.substr(Colon + 2) : "";
      Records.back().Fields[Key] = Value;  // part numbers keep their padding here
      ListKey = Value.empty() ? Key : "";
    }
  }
  return Records;
}

// "2560 kB", "64 MB", "32 GB" in units of Unit ("kB" or "MB").
uint64_t SizeIn(const std::string &Text, const std::string &Unit) {
  static const std::vector<std::string> kUnits = {"bytes", "kB", "MB", "GB", "TB"};
  uint64_t Value = 0;
  char Name[8] = {};
  if (std::sscanf(Text.c_str(), "%llu %7s", reinterpret_cast<unsigned long long *>(&Value), Name) != 2) return 0;
  int From = -1, To = -1;
  for (int I = 0; I < static_cast<int>(kUnits.size()); I++) {
    if (kUnits[I] == Name) From = I;
    if (kUnits[I] == Unit) To = I;
  }
  if (From < To) return 0;
  for (int I = To; I < From; I++) Value *= 1024;
  return Value;
}

unsigned Number(const std::string &Text) { return static_cast<unsigned>(std::strtoul(Text.c_str(), nullptr, 0)); }

std::string RunCommand(const std::string &Command) {
  std::string Output;
  FILE *Pipe = popen(Command.c_str(), "r");
  if (Pipe == nullptr) return Output;
  char Buffer[4096];
  size_t Read;
  while ((Read = fread(Buffer, 1, sizeof(Buffer), Pipe)) > 0) Output.append(Buffer, Read);
  pclose(Pipe);
  return Output;
}

class SmbiosOracle : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::system("command -v dmidecode >/dev/null 2>&1") != 0) {
      GTEST_SKIP() << "dmidecode is not installed (Debian package dmidecode); the SMBIOS oracle cannot run";
    }
    qor::emu::Board Board = qor::emu::BuiltInBoard();
    Result = qor::emu::RunBoot(Board);
    Directory = std::filesystem::temp_directory_path() / ("qor-smbios-oracle-" + std::to_string(getpid()));
    qor::emu::WriteBootOutputs(Directory.string(), Board, Result, 1);
    std::filesystem::path Dump = Directory / "smbios.bin";
    ASSERT_TRUE(std::filesystem::exists(Dump));
    std::string Output = RunCommand("dmidecode --from-dump '" + Dump.string() + "' 2>&1");
    // The entry point is accepted and the table walks cleanly to its end.
    ASSERT_NE(Output.find("SMBIOS 3.6.0 present."), std::string::npos) << Output.substr(0, 400);
    EXPECT_NE(Output.find("End Of Table"), std::string::npos);
    for (const char *Complaint : {"Invalid", "Wrong", "truncated", "No SMBIOS"}) {
      EXPECT_EQ(Output.find(Complaint), std::string::npos) << Complaint;
    }
    Records = Decode(Output);
    const qor::emu::Upload *Upload = Result.FindUpload("push_BiosBeforeBoot.json");
    ASSERT_NE(Upload, nullptr);
    Document.Parse(std::string(Upload->Bytes.begin(), Upload->Bytes.end()).c_str());
    ASSERT_FALSE(Document.HasParseError());
  }
  void TearDown() override {
    std::error_code Ignored;
    if (!Directory.empty()) std::filesystem::remove_all(Directory, Ignored);
  }
  std::vector<const DecodedRecord *> OfType(unsigned Type) const {
    std::vector<const DecodedRecord *> Out;
    for (const auto &Record : Records) {
      if (Record.Type == Type) Out.push_back(&Record);
    }
    return Out;
  }
  const DecodedRecord *ByHandle(const std::string &Text) const {
    unsigned Handle = Number(Text);
    for (const auto &Record : Records) {
      if (Record.Handle == Handle) return &Record;
    }
    return nullptr;
  }

  qor::emu::BootResult Result;
  std::filesystem::path Directory;
  std::vector<DecodedRecord> Records;
  rapidjson::Document Document;
};

TEST_F(SmbiosOracle, ProcessorRecordsAgreeWithCpuInfo) {
  const auto &List = Document["CpuInfo"]["InfoList"];
  std::vector<const DecodedRecord *> Populated;
  for (const DecodedRecord *Record : OfType(4)) {
    if (Record->Fields.at("Status").rfind("Populated", 0) == 0) Populated.push_back(Record);
  }
  ASSERT_EQ(Populated.size(), List.Size());
  // Processor characteristics as dmidecode names them, by bit.
  const std::map<std::string, unsigned> kCharacteristics = {
      {"Unknown", 1},           {"64-bit capable", 2},          {"Multi-Core", 3},
      {"Hardware Thread", 4},   {"Execute Protection", 5},      {"Enhanced Virtualization", 6},
      {"Power/Performance Control", 7}, {"128-bit Capable", 8}, {"Arm64 SoC ID", 9}};
  for (size_t I = 0; I < Populated.size(); I++) {
    const DecodedRecord &Cpu = *Populated[I];
    const auto &Entry = List[static_cast<rapidjson::SizeType>(I)];
    SCOPED_TRACE("processor " + Cpu.Fields.at("Socket Designation"));
    EXPECT_EQ(Cpu.Fields.at("Version"), Entry["Name"].GetString());
    std::string Id = Cpu.Fields.at("ID");
    Id.erase(std::remove(Id.begin(), Id.end(), ' '), Id.end());
    EXPECT_EQ(Id, Entry["ProcessorID"].GetString());
    EXPECT_EQ(Number(Cpu.Fields.at("External Clock")), Entry["ExternalClock"].GetUint());
    EXPECT_EQ(Number(Cpu.Fields.at("Current Speed")), Entry["CurrentSpeed"].GetUint());
    EXPECT_EQ(Number(Cpu.Fields.at("Core Count")), Entry["TotalCores"].GetUint());
    EXPECT_EQ(Number(Cpu.Fields.at("Core Enabled")), Entry["EnableCores"].GetUint());
    EXPECT_EQ(Number(Cpu.Fields.at("Thread Count")), Entry["TotalThreads"].GetUint());
    // Designations CPU0, CPU1: the first processed fixes base 0.
    EXPECT_EQ(Number(Cpu.Fields.at("Socket Designation").substr(3)), Entry["Index"].GetUint());
    unsigned Characteristics = 0;
    for (const std::string &Name : Cpu.Lists.at("Characteristics")) Characteristics |= 1U << kCharacteristics.at(Name);
    EXPECT_EQ(Characteristics, Entry["DimmTech"].GetUint());
    const char *CacheKeys[3][2] = {{"L1 Cache Handle", "L1Cache"}, {"L2 Cache Handle", "L2Cache"},
                                   {"L3 Cache Handle", "L3Cache"}};
    for (const auto &Keys : CacheKeys) {
      const DecodedRecord *Cache = ByHandle(Cpu.Fields.at(Keys[0]));
      ASSERT_NE(Cache, nullptr) << Keys[0];
      EXPECT_EQ(Cache->Type, 7u);
      EXPECT_EQ(SizeIn(Cache->Fields.at("Maximum Size"), "kB"), Entry[Keys[1]].GetUint()) << Keys[1];
    }
  }
}

TEST_F(SmbiosOracle, MemoryDeviceRecordsAgreeWithDimmInfo) {
  const auto &List = Document["DimmInfo"]["InfoList"];
  std::vector<const DecodedRecord *> Devices = OfType(17);
  ASSERT_EQ(Devices.size(), 32u);
  const std::map<std::string, unsigned> kMemoryTypes = {{"DDR4", 0x1A}, {"DDR5", 0x22},
                                                        {"Logical non-volatile device", 0x1F}};
  // Type detail names by bit, and the bit each lands on in the report.
  const std::vector<std::pair<std::string, unsigned>> kDetails = {
      {"Registered (Buffered)", 13}, {"Unbuffered (Unregistered)", 14}, {"Non-Volatile", 12},
      {"Synchronous", 7}, {"LRDIMM", 15}, {"Unknown", 2}, {"Other", 1}};
  const unsigned kReportedBit[16] = {0x8000, 0x4000, 0, 0x3000, 0x0800, 0x0400, 0x0200, 0x0100,
                                     0x0080, 0x0040, 0x0020, 0x0010, 0x0008, 0x0004, 0x0002, 0x0001};
  ASSERT_GT(List.Size(), 16u);
  for (const auto &Entry : List.GetArray()) {
    // The built-in map numbers its slots in SMBIOS order.
    const DecodedRecord &Dimm = *Devices.at(Entry["Index"].GetUint());
    SCOPED_TRACE("DIMM " + Dimm.Fields.at("Locator"));
    EXPECT_EQ(SizeIn(Dimm.Fields.at("Size"), "MB"), Entry["DimmSize"].GetUint());
    EXPECT_EQ(Trim(Dimm.Fields.at("Part Number")), Entry["PartNumber"].GetString());
    EXPECT_EQ(Trim(Dimm.Fields.at("Serial Number")), Entry["SerialNumber"].GetString());
    EXPECT_EQ(Number(Dimm.Fields.at("Total Width")), Entry["TotalWidth"].GetUint());
    EXPECT_EQ(Number(Dimm.Fields.at("Data Width")), Entry["DataWidth"].GetUint());
    EXPECT_EQ(Number(Dimm.Fields.at("Speed")), Entry["MaxFrequency"].GetUint());
    EXPECT_EQ(Number(Dimm.Fields.at("Configured Memory Speed")), Entry["CurFrequency"].GetUint());
    EXPECT_EQ(Number(Dimm.Fields.at("Rank")), Entry["DimmRanks"].GetUint() & 0x0F);
    EXPECT_EQ(kMemoryTypes.at(Dimm.Fields.at("Type")), Entry["DimmType"].GetUint());
    std::string Names = Dimm.Fields.at("Type Detail");
    unsigned Reported = 0;
    for (const auto &[Name, Bit] : kDetails) {
      size_t At = Names.find(Name);
      if (At == std::string::npos) continue;
      Names.erase(At, Name.size());
      Reported |= kReportedBit[Bit];
    }
    EXPECT_EQ(Trim(Names), "") << "type detail names not understood by this test";
    EXPECT_EQ(Reported, Entry["TypeDetail"].GetUint());
  }
}

}  // namespace
