// One boot of the firmware rig as the host received it: the frames of the
// serial channel sorted into the files the BMC was sent, the driver's
// debug log, the rig's measurements, the variables the driver wrote and the
// reset that ended the boot; and the output folder made from them.
#ifndef QOR_TESTS_FIRMWARE_RIG_CAPTURE_H_
#define QOR_TESTS_FIRMWARE_RIG_CAPTURE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "emulator/platform.h"
#include "tests/firmware/rig_frames.h"

namespace qor::rig {

struct Blob {
  std::string Name;
  std::string StoredName;  // file name in the output folder
  std::vector<uint8_t> Bytes;
};

struct VariableWrite {
  std::string Name;
  EFI_GUID Guid{};
  uint32_t Attributes = 0;
  uint64_t Status = 0;
  std::vector<uint8_t> Data;
};

struct ResetRecord {
  uint32_t Type = 0;
  uint64_t Status = 0;
  std::string By;  // "driver" or "firmware"
};

struct RigBoot {
  std::string Version;      // from the start frame; empty when the rig never started
  bool Completed = false;   // the rig reached its end frame
  std::vector<emu::Upload> Uploads;
  std::vector<emu::DebugLine> DebugLines;
  std::vector<std::pair<std::string, std::string>> Reports;  // measurements, in order
  std::vector<std::string> RigWarnings;
  std::vector<Blob> Blobs;
  std::vector<VariableWrite> VariableWrites;
  std::optional<ResetRecord> Reset;
  size_t Starts = 0;  // start frames: more than one means the machine rebooted

  // The value of the last report with this key, or "".
  std::string ReportValue(const std::string &Key) const;
  std::string DebugLog() const;
};

// Sorts decoded frames into a boot. Unknown frame kinds become warnings.
RigBoot CollectBoot(const std::vector<Frame> &Frames);

// The boot report (boot.json) as JSON text.
std::string RigBootReportJson(const RigBoot &Boot, const DecodedChannel &Channel, double WallSeconds);

// Writes the boot's outputs into Directory: the files sent, debug.log,
// boot.json and the snapshots (memory-map.bin). Throws std::runtime_error
// when a file cannot be written.
void WriteRigBootOutputs(const std::string &Directory, const RigBoot &Boot, const DecodedChannel &Channel,
                         double WallSeconds);

}  // namespace qor::rig

#endif  // QOR_TESTS_FIRMWARE_RIG_CAPTURE_H_
