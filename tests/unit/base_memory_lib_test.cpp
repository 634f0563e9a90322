// The driver's memory library at every length from 0 to 300 and every
// alignment of its buffers, with the C library as the oracle: the library
// changes strategy at 8-byte boundaries of the destination, at its word
// threshold and at each ragged end, and every one of those is crossed here.
// Guard bytes around each range show a byte written too many.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/base_lib.h"

namespace {

constexpr size_t kMaxLength = 300;
constexpr size_t kAlignments = 16;  // every offset within two 8-byte words
constexpr size_t kGuard = 32;

// Bytes that never repeat within 256, so a copy from the wrong offset shows.
std::vector<UINT8> Pattern(size_t Size, UINT8 Seed) {
  std::vector<UINT8> Bytes(Size);
  for (size_t I = 0; I < Size; I++) Bytes[I] = static_cast<UINT8>(I * 131 + Seed);
  return Bytes;
}

// The first index at which two buffers differ, for failure messages.
size_t FirstDifference(const std::vector<UINT8> &A, const std::vector<UINT8> &B) {
  size_t I = 0;
  while (I < A.size() && A[I] == B[I]) I++;
  return I;
}

// Values: zero, a plain one and two with the top bit set, which a sign
// extension while widening the byte to a word would spoil.
const UINT8 kValues[] = {0x00, 0x5A, 0x80, 0xFF};

}  // namespace

TEST(MemoryLibrary, SetAndZeroFillExactlyTheirRangeAtEveryLengthAndAlignment) {
  for (UINT8 Value : kValues) {
    for (bool ThroughZeroMem : {false, true}) {
      if (ThroughZeroMem && Value != 0) continue;
      for (size_t Offset = 0; Offset < kAlignments; Offset++) {
        for (size_t Length = 0; Length <= kMaxLength; Length++) {
          std::vector<UINT8> Buffer = Pattern(kGuard + kAlignments + kMaxLength + kGuard, 1);
          std::vector<UINT8> Expected = Buffer;
          UINT8 *Target = Buffer.data() + kGuard + Offset;
          std::memset(Expected.data() + kGuard + Offset, Value, Length);
          VOID *Returned = ThroughZeroMem ? QorZeroMem(Target, Length) : QorSetMem(Target, Length, Value);
          ASSERT_EQ(Returned, Target);
          ASSERT_TRUE(Buffer == Expected) << (ThroughZeroMem ? "QorZeroMem" : "QorSetMem") << " value 0x" << std::hex
                                          << unsigned{Value} << std::dec << ", offset " << Offset << ", length "
                                          << Length << ": first wrong byte at "
                                          << FirstDifference(Buffer, Expected) - kGuard - Offset;
        }
      }
    }
  }
}

TEST(MemoryLibrary, CopiesBetweenBuffersAtEveryLengthAndBothAlignments) {
  const std::vector<UINT8> Source = Pattern(kAlignments + kMaxLength, 7);
  for (size_t ToOffset = 0; ToOffset < kAlignments; ToOffset++) {
    for (size_t FromOffset = 0; FromOffset < kAlignments; FromOffset++) {
      for (size_t Length = 0; Length <= kMaxLength; Length++) {
        std::vector<UINT8> Buffer = Pattern(kGuard + kAlignments + kMaxLength + kGuard, 99);
        std::vector<UINT8> Expected = Buffer;
        UINT8 *Target = Buffer.data() + kGuard + ToOffset;
        std::memcpy(Expected.data() + kGuard + ToOffset, Source.data() + FromOffset, Length);
        ASSERT_EQ(QorCopyMem(Target, Source.data() + FromOffset, Length), Target);
        ASSERT_TRUE(Buffer == Expected) << "offsets " << ToOffset << " <- " << FromOffset << ", length " << Length
                                        << ": first wrong byte at "
                                        << FirstDifference(Buffer, Expected) - kGuard - ToOffset;
      }
    }
  }
}

// Overlapping copies within one buffer, the destination above the source
// (copied from the end down) and below it (from the start up), against
// memmove. Distances below 8 put source and destination inside the same
// words; the larger ones straddle the word loop's ends.
TEST(MemoryLibrary, OverlappingCopiesInBothDirectionsMatchMemmove) {
  const size_t kDistances[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 255, 299};
  const size_t Span = kGuard + 8 + 2 * kMaxLength + kGuard;
  for (size_t Distance : kDistances) {
    for (bool Upward : {true, false}) {
      for (size_t Offset = 0; Offset < 8; Offset++) {
        for (size_t Length = 0; Length <= kMaxLength; Length++) {
          std::vector<UINT8> Buffer = Pattern(Span, 3);
          std::vector<UINT8> Expected = Buffer;
          const size_t Low = kGuard + Offset;
          const size_t To = Upward ? Low + Distance : Low;
          const size_t From = Upward ? Low : Low + Distance;
          std::memmove(Expected.data() + To, Expected.data() + From, Length);
          ASSERT_EQ(QorCopyMem(Buffer.data() + To, Buffer.data() + From, Length), Buffer.data() + To);
          ASSERT_TRUE(Buffer == Expected) << (Upward ? "destination above" : "destination below")
                                          << " the source by " << Distance << ", offset " << Offset << ", length "
                                          << Length << ": first wrong byte at " << FirstDifference(Buffer, Expected);
        }
      }
    }
  }
}

TEST(MemoryLibrary, CopyOntoItselfAndOfNothingLeaveTheBufferAlone) {
  std::vector<UINT8> Buffer = Pattern(64, 5);
  const std::vector<UINT8> Before = Buffer;
  EXPECT_EQ(QorCopyMem(Buffer.data() + 3, Buffer.data() + 3, 40), Buffer.data() + 3);
  EXPECT_EQ(QorCopyMem(Buffer.data(), nullptr, 0), Buffer.data());
  EXPECT_EQ(QorSetMem(nullptr, 0, 0xFF), nullptr);
  EXPECT_TRUE(Buffer == Before);
}

#if defined(__x86_64__)
// A copy from the end down runs with the direction flag set; compiled code
// and the firmware assume it clear, so it must be clear again on return.
TEST(MemoryLibrary, DownwardCopyLeavesTheDirectionFlagClear) {
  std::vector<UINT8> Buffer = Pattern(256, 9);
  for (size_t Length : {size_t{3}, size_t{200}}) {
    QorCopyMem(Buffer.data() + 1, Buffer.data(), Length);
    uint64_t Flags = 0;
    __asm__ volatile("pushfq\n\tpopq %0" : "=r"(Flags));
    EXPECT_EQ(Flags & (1u << 10), 0u) << "length " << Length;
  }
}
#endif

// The result is the first differing byte of Left minus that of Right, as
// unsigned bytes. Each case puts a second difference of the opposite sign
// in the same 8-byte word right after the first, so a compare that ranks a
// word by its highest byte, or reports a later byte, gets the sign wrong.
TEST(MemoryLibrary, CompareReportsTheFirstDifferenceAtEveryLengthAndAlignment) {
  for (size_t LeftOffset = 0; LeftOffset < 8; LeftOffset++) {
    for (size_t RightOffset = 0; RightOffset < 8; RightOffset++) {
      for (size_t Length = 0; Length <= kMaxLength; Length++) {
        std::vector<UINT8> Left = Pattern(8 + kMaxLength + 8, 11);
        std::vector<UINT8> Right(Left.size());
        UINT8 *L = Left.data() + LeftOffset;
        UINT8 *R = Right.data() + RightOffset;
        std::memcpy(R, L, kMaxLength + 1);
        // Equal over Length, different just past it: the byte past the end
        // is not compared.
        R[Length] = static_cast<UINT8>(L[Length] + 1);
        ASSERT_EQ(QorCompareMem(L, R, Length), 0) << "equal, length " << Length;
        if (Length == 0) continue;
        for (size_t At : {size_t{0}, Length / 2, Length - 1, Length > 8 ? size_t{8} : size_t{0}}) {
          std::vector<UINT8> Saved(R, R + Length);
          L[At] = 0x10;
          R[At] = 0xF0;  // Left below Right: negative, also for signed bytes' sake
          if (At + 1 < Length) {
            L[At + 1] = 0xFF;
            R[At + 1] = 0x00;
          }
          const INTN Result = QorCompareMem(L, R, Length);
          ASSERT_EQ(Result, INTN{0x10} - INTN{0xF0}) << "difference at " << At << ", length " << Length
                                                     << ", offsets " << LeftOffset << "/" << RightOffset;
          ASSERT_EQ(QorCompareMem(R, L, Length), -Result) << "swapped, at " << At << ", length " << Length;
          ASSERT_LT(std::memcmp(L, R, Length), 0);  // the oracle agrees on the sign
          std::memcpy(L, Saved.data(), Length);
          std::memcpy(R, Saved.data(), Length);
        }
      }
    }
  }
}

TEST(MemoryLibrary, CompareGuidSeesEveryByte) {
  const EFI_GUID Guid = {0x9B28FEDE, 0xACBB, 0x478E, {0x8A, 0xD6, 0x48, 0x8C, 0xDE, 0x18, 0x00, 0xF8}};
  EXPECT_TRUE(QorCompareGuid(&Guid, &Guid));
  for (size_t I = 0; I < sizeof(EFI_GUID); I++) {
    EFI_GUID Other = Guid;
    reinterpret_cast<UINT8 *>(&Other)[I] ^= 0x01;
    EXPECT_FALSE(QorCompareGuid(&Guid, &Other)) << "byte " << I;
  }
}

#if defined(__SANITIZE_ADDRESS__)
#define QOR_TEST_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QOR_TEST_ADDRESS_SANITIZER 1
#endif
#endif

#if defined(QOR_TEST_ADDRESS_SANITIZER)
// String instructions are invisible to the sanitizer's instrumentation; the
// library checks its ranges itself, so an overflow through it is still
// caught (by the board fuzzer, for one). The cases are those where only
// string instructions touch the bytes past the end: compares, and copies
// whose ranges overlap.
TEST(MemoryLibraryDeathTest, OverflowsThroughTheLibraryReachTheSanitizer) {
  std::unique_ptr<UINT8[]> Small(new UINT8[48]());
  std::unique_ptr<UINT8[]> Large(new UINT8[64]());
  EXPECT_DEATH(QorCompareMem(Large.get(), Small.get(), 49), "heap-buffer-overflow");
  EXPECT_DEATH(QorCompareMem(Small.get(), Large.get(), 49), "heap-buffer-overflow");
  EXPECT_DEATH(QorCopyMem(Small.get() + 1, Small.get(), 48), "heap-buffer-overflow");  // downwards
  EXPECT_DEATH(QorCopyMem(Small.get() + 8, Small.get() + 9, 40), "heap-buffer-overflow");  // upwards
  EXPECT_DEATH(QorSetMem(Small.get(), 49, 0), "heap-buffer-overflow");
}
#endif
