// The firmware build's QorUploadDataDxe.efi is a PE32+ image for x64 that
// UEFI firmware loads as a boot-service driver.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

uint16_t Read16(const std::vector<uint8_t> &Bytes, size_t Offset) {
  return static_cast<uint16_t>(Bytes[Offset] | Bytes[Offset + 1] << 8);
}
uint32_t Read32(const std::vector<uint8_t> &Bytes, size_t Offset) {
  return static_cast<uint32_t>(Read16(Bytes, Offset)) | static_cast<uint32_t>(Read16(Bytes, Offset + 2)) << 16;
}

// The image's bytes; empty when it was not built.
std::vector<uint8_t> ReadImage() {
  std::ifstream In(QOR_BINARY_DIR "/QorUploadDataDxe.efi", std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
}

constexpr char kNotBuilt[] = "the firmware image was not built (clang++ or lld-link missing)";

}  // namespace

TEST(FirmwareImage, IsAPe32PlusX64BootServiceDriver) {
  std::vector<uint8_t> Bytes = ReadImage();
  if (Bytes.empty()) GTEST_SKIP() << kNotBuilt;

  ASSERT_GE(Bytes.size(), 0x40u);
  EXPECT_EQ(Bytes[0], 'M');
  EXPECT_EQ(Bytes[1], 'Z');
  const size_t Pe = Read32(Bytes, 0x3C);  // e_lfanew
  ASSERT_GE(Bytes.size(), Pe + 24 + 70);
  EXPECT_EQ(std::memcmp(&Bytes[Pe], "PE\0\0", 4), 0);
  EXPECT_EQ(Read16(Bytes, Pe + 4), 0x8664) << "machine";
  const size_t Optional = Pe + 24;
  EXPECT_EQ(Read16(Bytes, Optional), 0x20B) << "PE32+ magic";
  EXPECT_EQ(Read16(Bytes, Optional + 68), 11) << "subsystem: EFI boot service driver";
}

// Firmware resolves no imports: every routine the driver calls, the memcpy
// and memset the compiler emits included, must be inside the image, and the
// firmware's services come only through its tables.
TEST(FirmwareImage, ImportsNothing) {
  std::vector<uint8_t> Bytes = ReadImage();
  if (Bytes.empty()) GTEST_SKIP() << kNotBuilt;
  ASSERT_GE(Bytes.size(), 0x40u);
  const size_t Optional = Read32(Bytes, 0x3C) + 24;
  ASSERT_GE(Bytes.size(), Optional + 112);
  const uint32_t Directories = Read32(Bytes, Optional + 108);  // NumberOfRvaAndSizes
  const struct {
    uint32_t Index;
    const char *Name;
  } kImportDirectories[] = {{1, "import table"}, {12, "import address table"}, {13, "delay import table"}};
  for (const auto &Directory : kImportDirectories) {
    if (Directory.Index >= Directories) continue;
    const size_t Entry = Optional + 112 + 8 * Directory.Index;
    ASSERT_GE(Bytes.size(), Entry + 8);
    EXPECT_EQ(Read32(Bytes, Entry), 0u) << Directory.Name << " address";
    EXPECT_EQ(Read32(Bytes, Entry + 4), 0u) << Directory.Name << " size";
  }
}
