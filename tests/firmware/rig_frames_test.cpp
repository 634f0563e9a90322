// The host end of the rig's serial channel: frames found among console
// bytes, damaged frames skipped without losing the ones after them, and the
// frames of a boot sorted into its outputs.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/firmware/rig_capture.h"
#include "tests/firmware/rig_frames.h"
#include "uefi/rig/rig_channel.h"

namespace qor::rig {
namespace {

std::vector<uint8_t> Bytes(const std::string &Text) { return std::vector<uint8_t>(Text.begin(), Text.end()); }

void Append(std::vector<uint8_t> *Stream, const std::vector<uint8_t> &More) {
  Stream->insert(Stream->end(), More.begin(), More.end());
}

std::vector<uint8_t> LogData(uint64_t Level, const std::string &Text) {
  std::vector<uint8_t> Data(8);
  std::memcpy(Data.data(), &Level, 8);
  Append(&Data, Bytes(Text));
  return Data;
}

TEST(RigFrames, FindsFramesAmongConsoleBytes) {
  std::vector<uint8_t> Stream = Bytes("\x1b[2J BdsDxe: starting Boot0001 QRI");
  Append(&Stream, EncodeFrame('S', "", Bytes("qor-rig 1")));
  Append(&Stream, Bytes("QRIG stray"));
  // Data that itself holds the magic does not split the frame.
  Append(&Stream, EncodeFrame('F', "push_FlashInfo.json", Bytes("{\"QRIG\":1}")));
  DecodedChannel Channel = DecodeFrames(Stream);
  ASSERT_EQ(Channel.Frames.size(), 2u);
  EXPECT_EQ(Channel.Frames[0].Kind, 'S');
  EXPECT_EQ(Channel.Frames[1].Name, "push_FlashInfo.json");
  EXPECT_EQ(Channel.Frames[1].Data, Bytes("{\"QRIG\":1}"));
  EXPECT_EQ(Channel.SkippedBytes, 34u + 10u);
  EXPECT_EQ(Channel.BadFrames, 1u) << "the stray magic reads as a frame with a wrong CRC";
  EXPECT_FALSE(Channel.Truncated);
}

TEST(RigFrames, SkipsADamagedFrameAndKeepsTheNext) {
  std::vector<uint8_t> Damaged = EncodeFrame('L', "", LogData(0x40, "one\n"));
  Damaged[QOR_RIG_FRAME_HEADER_SIZE + 9] ^= 0x20;  // a flipped bit in the text
  std::vector<uint8_t> Stream = Damaged;
  Append(&Stream, EncodeFrame('L', "", LogData(0x40, "two\n")));
  DecodedChannel Channel = DecodeFrames(Stream);
  ASSERT_EQ(Channel.Frames.size(), 1u);
  EXPECT_EQ(Channel.BadFrames, 1u);
  RigBoot Boot = CollectBoot(Channel.Frames);
  EXPECT_EQ(Boot.DebugLog(), "two\n");
}

TEST(RigFrames, ALengthBeyondTheLimitIsNotTrusted) {
  std::vector<uint8_t> Stream = {'Q', 'R', 'I', 'G', 'L', 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
  Append(&Stream, EncodeFrame('E', "", {}));
  DecodedChannel Channel = DecodeFrames(Stream);
  ASSERT_EQ(Channel.Frames.size(), 1u);
  EXPECT_EQ(Channel.Frames[0].Kind, 'E');
  EXPECT_EQ(Channel.BadFrames, 1u);
}

TEST(RigFrames, AStreamCutInsideAFrameIsTruncated) {
  std::vector<uint8_t> Stream = EncodeFrame('S', "", Bytes("qor-rig 1"));
  std::vector<uint8_t> Cut = EncodeFrame('F', "push_BiosBeforeBoot.json", Bytes("{\n}\n"));
  Cut.resize(Cut.size() - 3);
  Append(&Stream, Cut);
  DecodedChannel Channel = DecodeFrames(Stream);
  EXPECT_EQ(Channel.Frames.size(), 1u);
  EXPECT_TRUE(Channel.Truncated);
  RigBoot Boot = CollectBoot(Channel.Frames);
  EXPECT_FALSE(Boot.Completed);
  EXPECT_TRUE(Boot.Uploads.empty());
}

TEST(RigCapture, SortsABootsFramesIntoItsOutputs) {
  std::vector<Frame> Frames;
  auto Add = [&Frames](char Kind, const std::string &Name, const std::vector<uint8_t> &Data) {
    Frames.push_back({Kind, Name, Data});
  };
  Add('S', "", Bytes("qor-rig 1"));
  Add('K', "entryStatus", Bytes("Success"));
  Add('L', "", LogData(0x40, "Some data has not been filled, now force upload\n"));
  Add('L', "", LogData(0x80000000, "Invalid Type 8\n"));
  const char *const kNames[] = {"BiosVersion", "PchInfo",    "CpuInfo",      "DimmResultInfo", "DimmInfo",
                                "VmdInfo",     "TpmInfo",    "OnBoardSataInfo", "PcieDevice", "PcieTopology",
                                "MiscInfo",    "PcieResource", "MemoryMap",  "IioInfo"};
  for (int I = 0; I < 14; I++) {
    Add('L', "", LogData(0x40, "[" + std::to_string(I) + "] [" + kNames[I] + "] [" + (I == 8 ? "0" : "1") + "]\n"));
  }
  Add('F', "push_BiosBeforeBoot.json", Bytes("{}\n"));
  Add('F', "push_BiosBeforeBoot.json", Bytes("{\"a\":1}\n"));
  Add('F', "../evil", Bytes("x"));
  Add('B', QOR_RIG_BLOB_MEMORY_MAP, Bytes("12345678"));
  Add('B', QOR_RIG_BLOB_MEMORY_MAP, Bytes("87654321"));
  std::vector<uint8_t> Variable(16 + 4 + 8, 0);
  Variable[0] = 0x34;              // GUID Data1 low byte
  Variable[16] = 7;                // attributes
  Append(&Variable, {0x03});       // data
  Add('V', "JdNicSlot", Variable);
  std::vector<uint8_t> Reset(12, 0);  // cold, success
  Add('X', "driver", Reset);
  Add('?', "", {});

  RigBoot Boot = CollectBoot(Frames);
  EXPECT_EQ(Boot.Version, "qor-rig 1");
  EXPECT_FALSE(Boot.Completed);
  EXPECT_EQ(Boot.ReportValue("entryStatus"), "Success");
  ASSERT_EQ(Boot.Uploads.size(), 3u);
  EXPECT_EQ(Boot.Uploads[0].StoredName, "push_BiosBeforeBoot.json");
  EXPECT_EQ(Boot.Uploads[1].StoredName, "push_BiosBeforeBoot.2.json");
  EXPECT_EQ(Boot.Uploads[2].StoredName, ".._evil") << "a name from the guest stays inside the folder";
  ASSERT_EQ(Boot.Blobs.size(), 2u);
  EXPECT_EQ(Boot.Blobs[0].StoredName, "memory-map.bin");
  EXPECT_EQ(Boot.Blobs[1].StoredName, "memory-map.2.bin");
  ASSERT_EQ(Boot.DebugLines.size(), 16u);
  EXPECT_EQ(Boot.DebugLines[1].Level, 0x80000000u);
  ASSERT_EQ(Boot.VariableWrites.size(), 1u);
  EXPECT_EQ(Boot.VariableWrites[0].Attributes, 7u);
  EXPECT_EQ(Boot.VariableWrites[0].Guid.Data1, 0x34u);
  EXPECT_EQ(Boot.VariableWrites[0].Data, std::vector<uint8_t>{0x03});
  ASSERT_TRUE(Boot.Reset.has_value());
  EXPECT_EQ(Boot.Reset->By, "driver");
  EXPECT_EQ(Boot.Reset->Type, 0u);
  ASSERT_EQ(Boot.RigWarnings.size(), 1u) << "the unknown frame kind";

  std::string Report = RigBootReportJson(Boot, DecodedChannel{}, 1.5);
  EXPECT_NE(Report.find("\"type\": \"cold\""), std::string::npos);
  EXPECT_NE(Report.find("\"name\": \"PcieDevice\",\n            \"state\": \"unfilled\""), std::string::npos);
  EXPECT_NE(Report.find("\"name\": \"MiscInfo\",\n            \"state\": \"filled\""), std::string::npos);
}

}  // namespace
}  // namespace qor::rig
