// Reading a finished rig run (scripts/firmware-test.sh --out DIR, given to
// the checks as QOR_RIG_OUT): one boot's output folder and the machine the
// script asked QEMU for.
#ifndef QOR_TESTS_FIRMWARE_RIG_RUN_H_
#define QOR_TESTS_FIRMWARE_RIG_RUN_H_

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qor::rig {

// The run folder, or "" when QOR_RIG_OUT is not set.
std::string RunFolder();

std::vector<uint8_t> ReadBytes(const std::string &Path);
std::string ReadText(const std::string &Path);
bool FileExists(const std::string &Path);

// Parses JSON text; the test fails (and the value is null) when it is not.
rapidjson::Document ParseJson(const std::string &Text, const std::string &What);

// One boot's output folder.
struct BootFolder {
  std::string Dir;
  rapidjson::Document Report;  // boot.json
  std::string Log;             // debug.log

  explicit BootFolder(const std::string &Directory);
  bool Has(const std::string &File) const { return FileExists(Dir + "/" + File); }
  std::vector<uint8_t> Bytes(const std::string &File) const { return ReadBytes(Dir + "/" + File); }
  // Sends of this file name recorded in boot.json.
  size_t Sends(const std::string &Name) const;
};

// The driver logs "Invalid Type N" when the event of section N fires and the
// section has no filler: the section is not built yet.
bool FillerMissing(const std::string &Log, int SectionIndex);

// Section indices of the registry.
enum : int {
  kBiosVersion = 0, kPchInfo, kCpuInfo, kDimmResultInfo, kDimmInfo, kVmdInfo, kTpmInfo, kOnBoardSataInfo,
  kPcieDevice, kPcieTopology, kMiscInfo, kPcieResource, kMemoryMap, kIioInfo
};
extern const std::vector<std::string> kSections;

// "pending: NAME has no filler yet" when the section's filler is missing.
std::string PendingReason(const std::string &Log, int SectionIndex);

const rapidjson::Value *Member(const rapidjson::Value &Object, const char *Name);
std::string HexText(uint64_t Value);  // "0x%llx"

}  // namespace qor::rig

#endif  // QOR_TESTS_FIRMWARE_RIG_RUN_H_
