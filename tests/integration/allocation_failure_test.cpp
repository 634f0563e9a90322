// Every pool allocation of a built-in boot failed in turn, one per boot:
// the driver must survive each (the sanitizer suite checks every access) and
// whatever it still sends must be well formed. The ordinals are split into
// shards so that the runs spread over the test workers. The sanitizer suite
// fails all of them (about 1200 boots); the normal suite every eighth, which
// keeps it to seconds.
#include <gtest/gtest.h>

#include <string>

#include "boot_helpers.h"

namespace {

constexpr uint64_t kShards = 8;
#ifdef QOR_SANITIZER_SUITE
constexpr uint64_t kStride = kShards;
#else
constexpr uint64_t kStride = kShards * 8;
#endif

uint64_t AllocationsOfACleanBoot() {
  static const uint64_t Count = [] {
    qor::emu::BootResult Result = qortest::Boot();
    return Result.Pool.Allocations + Result.Pool.FailedAllocations;
  }();
  return Count;
}

class EveryAllocationFailing : public ::testing::TestWithParam<uint64_t> {};

}  // namespace

TEST_P(EveryAllocationFailing, NeverCrashesAndSendsOnlyWellFormedDocuments) {
  const uint64_t Total = AllocationsOfACleanBoot();
  ASSERT_GT(Total, 100u);  // the built-in board exercises every filler that allocates
  for (uint64_t Ordinal = 1 + GetParam(); Ordinal <= Total; Ordinal += kStride) {
    SCOPED_TRACE("allocation " + std::to_string(Ordinal) + " of " + std::to_string(Total) + " failing");
    qor::emu::BootResult Result =
        qortest::Boot(R"({"faults":{"failAllocation":[)" + std::to_string(Ordinal) + "]}}");
    ASSERT_EQ(Result.Pool.FailedAllocations, 1u);
    EXPECT_EQ(Result.Pool.BadFrees, 0u);
    for (const auto *Sent : qortest::UploadsNamed(Result.Uploads, qortest::kDocumentName)) {
      rapidjson::Document Document = qortest::Parse(Sent->Bytes);
      EXPECT_EQ(qortest::MemberNames(Document), qortest::kSectionOrder);
      EXPECT_EQ(Sent->Bytes.back(), '\n');
    }
    for (const auto *Sent : qortest::UploadsNamed(Result.Uploads, qortest::kFlashName)) {
      EXPECT_EQ(qortest::Text(Sent->Bytes), R"({"Bios Rom Size":"32MB","Flash ID":15679513})");
    }
    if (HasFailure()) return;  // the first failing ordinal tells the story
  }
}

INSTANTIATE_TEST_SUITE_P(Shards, EveryAllocationFailing, ::testing::Range<uint64_t>(0, kShards));
