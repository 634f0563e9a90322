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

}  // namespace

TEST(FirmwareImage, IsAPe32PlusX64BootServiceDriver) {
  std::ifstream In(QOR_BINARY_DIR "/QorUploadDataDxe.efi", std::ios::binary);
  if (!In) GTEST_SKIP() << "the firmware image was not built (clang++ or lld-link missing)";
  std::vector<uint8_t> Bytes((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());

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
