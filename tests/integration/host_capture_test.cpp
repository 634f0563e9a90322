// A captured machine boots and reports what its sysfs tree holds: the BAR
// sizes of the resource file, the bridge's tree, the memmap ranges with
// their types; broken pieces are left out with a note and never stop the
// capture; and this machine, when it has sysfs, captures and boots.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <string>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "tests/integration/boot_helpers.h"
#include "tools/host_capture.h"

namespace {

const std::string kTrees = QOR_SOURCE_DIR "/tests/data/capture-host/";

std::string MakeTempDir() {
  std::string Pattern = (std::filesystem::temp_directory_path() / "qor-capture-XXXXXX").string();
  return mkdtemp(Pattern.data()) != nullptr ? Pattern : "";
}

// Captures Root into a fresh folder and boots the board written there.
qor::emu::BootResult CaptureAndBoot(const std::string &Root, qor::emu::HostCapture *Capture) {
  std::string Dir = MakeTempDir();
  EXPECT_FALSE(Dir.empty());
  std::string Board = Dir + "/machine.json";
  EXPECT_EQ(qor::emu::WriteHostCapture(Root, Board, Capture), "");
  qor::emu::BootResult Result = qor::emu::RunBoot(qor::emu::LoadBoardFile(Board));
  std::filesystem::remove_all(Dir);
  return Result;
}

TEST(HostCapture, FixtureTreeBootsWithItsDevicesAndMemory) {
  qor::emu::HostCapture Capture;
  qor::emu::BootResult Result = CaptureAndBoot(kTrees + "two-functions", &Capture);
  EXPECT_EQ(Capture.Functions, 2u);
  EXPECT_EQ(Capture.MemoryRanges, 5u);
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
  rapidjson::Document Doc = qortest::OnlyDocument(Result);
  ASSERT_TRUE(Doc.IsObject());

  // The NIC's BARs span exactly what its resource file says: 128 KiB of
  // 64-bit memory and 32 bytes of I/O.
  bool Mmio = false, Io = false;
  for (const auto &R : Doc["PcieResource"]["PCIMemIoResources"].GetArray()) {
    if (std::string(R["ResourceDetail"]["DeviceID"].GetString()) != "0x1533") continue;
    std::string Range = std::string(R["StartAddress"].GetString()) + "-" + R["EndAddress"].GetString();
    if (Range == "0xf0000000-0xf001ffff") Mmio = true;
    if (Range == "0xe000-0xe01f") Io = true;
  }
  EXPECT_TRUE(Mmio);
  EXPECT_TRUE(Io);

  // The NIC sits below the bridge on the root bus (beside the built-in
  // board's PCH, which the capture has no function for).
  const auto &Tree = Doc["PcieTopology"]["PciTree"];
  ASSERT_GE(Tree.Size(), 1u);
  EXPECT_STREQ(Tree[0]["DeviceID"].GetString(), "0x1234");
  ASSERT_EQ(Tree[0]["ChildDevice"].Size(), 1u);
  EXPECT_STREQ(Tree[0]["ChildDevice"][0]["DeviceID"].GetString(), "0x1533");

  // Each memmap range, widened to whole pages, with its type.
  const auto &Map = Doc["MemoryMap"]["MemoryMap"];
  ASSERT_EQ(Map.Size(), 5u);
  const char *Types[] = {"Available", "Reserved", "Available", "ACPIReclaimMemory", "ACPIMemoryNVS"};
  const char *Starts[] = {"0x0", "0x9f000", "0x100000", "0x7ff00000", "0x7ff10000"};
  for (size_t I = 0; I < 5; I++) {
    EXPECT_STREQ(Map[I]["Type"].GetString(), Types[I]) << I;
    EXPECT_STREQ(Map[I]["StartAddress"].GetString(), Starts[I]) << I;
  }
  EXPECT_STREQ(Map[2]["Pages"].GetString(), "0x7ff00");
}

TEST(HostCapture, BrokenPiecesAreLeftOutAndNamed) {
  qor::emu::HostCapture Capture;
  qor::emu::BootResult Result = CaptureAndBoot(kTrees + "broken", &Capture);
  // Only the 64-byte function is whole; the 4-byte config and the 17-bit
  // domain are left out, as are both memmap ranges and the missing DMI.
  EXPECT_EQ(Capture.Functions, 1u);
  EXPECT_EQ(Capture.MemoryRanges, 0u);
  EXPECT_EQ(Capture.SmbiosBytes, 0u);
  std::string Notes;
  for (const std::string &Note : Capture.Notes) Notes += Note + "\n";
  for (const char *Named : {"0000:00:02.0/config: 4 bytes", "10000:00:00.0: not a location", "memmap/0: start, end or type",
                            "memmap/1: start \"0x5000\" and end \"0x1000\"", "dmi/tables/DMI: cannot be read"}) {
    EXPECT_NE(Notes.find(Named), std::string::npos) << Named << " in\n" << Notes;
  }
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
  EXPECT_EQ(qortest::UploadsNamed(Result.Uploads, qortest::kDocumentName).size(), 1u);
}

TEST(HostCapture, MissingRootKeepsTheBuiltInBoard) {
  qor::emu::HostCapture Capture;
  qor::emu::BootResult Result = CaptureAndBoot(kTrees + "no-such-tree", &Capture);
  EXPECT_EQ(Capture.Functions, 0u);
  EXPECT_EQ(Capture.Notes.size(), 3u);
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
}

TEST(HostCapture, ThisMachineCapturesAndBoots) {
  if (!std::filesystem::is_directory("/sys/bus/pci/devices")) {
    GTEST_SKIP() << "no /sys/bus/pci/devices on this machine";
  }
  qor::emu::HostCapture Capture;
  qor::emu::BootResult Result = CaptureAndBoot("/", &Capture);
  std::printf("this machine: %zu PCI functions, %zu bytes of SMBIOS, %zu memory ranges\n", Capture.Functions,
              Capture.SmbiosBytes, Capture.MemoryRanges);
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
}

}  // namespace
