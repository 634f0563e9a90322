// The driver entry through full boots: the section buffers and their total,
// a platform without the MRC data HOB, and a buffer allocation that fails.
#include <gtest/gtest.h>

#include "boot_helpers.h"

using namespace qortest;

namespace {

constexpr uint64_t kAllSectionBuffers = 0x5A6000;

// Allocations made before the entry's own (by the library constructors):
// a boot without the MRC data HOB stops before allocating anything.
uint64_t AllocationsBeforeEntry() {
  qor::emu::BootResult Result = Boot(R"({"hobs":{"mrcData":null}})");
  return Result.Pool.Allocations + Result.Pool.FailedAllocations;
}

// A boot whose Ordinal-th section buffer allocation (1-based) fails.
qor::emu::BootResult BootFailingSectionBuffer(uint64_t Ordinal) {
  return Boot(R"({"faults":{"failAllocation":[)" + std::to_string(AllocationsBeforeEntry() + Ordinal) + "]}}");
}

}  // namespace

TEST(DriverEntry, AllFourteenBuffersTotal0x5A6000Bytes) {
  // Only the late trigger: no filler that keeps memory of its own runs.
  qor::emu::BootResult Result = Boot(R"({"triggers":{"order":["late"]}})");
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
  EXPECT_EQ(CountOf(Result, "QorUploadInfoData ---start(5922816)\n"), 1u);
  // The section buffers live on; the upload's own buffers are freed.
  EXPECT_EQ(Result.AllocationsHeldAtEnd, 14u);
  EXPECT_EQ(Result.Pool.BytesHeld, kAllSectionBuffers);
}

TEST(DriverEntry, WithoutTheMrcHobNothingIsAllocatedRegisteredOrSent) {
  qor::emu::BootResult Result = Boot(R"({"hobs":{"mrcData":null}})");
  EXPECT_EQ(Result.EntryStatus, EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(LogOf(Result), (std::vector<std::string>{"QorUploadDataDxeEntryPoint --- start\n",
                                                     "Failed to get mrc hob data\n"}));
  EXPECT_EQ(LevelOf(Result, "Failed to get mrc hob data\n"), 0x80000000u);
  // The triggers were installed, but the driver listens to none of them.
  EXPECT_EQ(Result.TriggersInstalled.size(), 3u);
  EXPECT_TRUE(Result.Uploads.empty());
  EXPECT_EQ(Result.Pool.Allocations, 0u);
  EXPECT_EQ(Result.ServiceCalls.count("CreateEvent"), 0u);
  EXPECT_EQ(Result.ServiceCalls.count("RegisterProtocolNotify"), 0u);
}

TEST(DriverEntry, AFailedBufferAllocationLeavesItAndTheRestEmpty) {
  // The fourth buffer (DimmResultInfo) fails: only BiosVersion, PchInfo and
  // CpuInfo count.
  qor::emu::BootResult Result = BootFailingSectionBuffer(4);
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
  EXPECT_EQ(Result.Pool.FailedAllocations, 1u) << "no retry";
  EXPECT_EQ(CountOf(Result, "QorUploadInfoData ---start(" + std::to_string(0x2000 + 0x10000 + 0x80000) + ")\n"), 1u);
  EXPECT_TRUE(ContainsInOrder(LogOf(Result), {"QorFillBiosVersion ---start\n", "QorFillPchInfo ---start\n",
                                              "QorUploadDataDxeEntryPoint --- finished\n"}));

  rapidjson::Document Document = OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  EXPECT_EQ(MemberNames(Document), kSectionOrder);
  EXPECT_GT(Document["BiosVersion"].MemberCount(), 0u);
  EXPECT_GT(Document["PchInfo"].MemberCount(), 0u);
  for (size_t I = 3; I < kSectionOrder.size(); I++) {
    EXPECT_TRUE(IsEmptyObject(Document[kSectionOrder[I].c_str()])) << kSectionOrder[I];
  }
}

TEST(DriverEntry, WithoutAnySectionBufferNoDocumentIsAssembled) {
  qor::emu::BootResult Result = BootFailingSectionBuffer(1);
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
  EXPECT_EQ(Result.Pool.FailedAllocations, 1u);
  EXPECT_TRUE(UploadsNamed(Result.Uploads, kDocumentName).empty());
  EXPECT_EQ(LogOf(Result).back(), "QorUploadInfoData ---start(0)\n");
  // The flash document does not depend on the sections.
  EXPECT_EQ(UploadsNamed(Result.Uploads, kFlashName).size(), 1u);
}
