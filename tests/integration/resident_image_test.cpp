// The fuzzer keeps the driver image loaded and puts its writable data back
// before every boot. That must be indistinguishable from loading it afresh,
// even after boots that left the driver's globals in other states.
#include <gtest/gtest.h>

#include "boot_helpers.h"
#include "emulator/driver_image.h"

namespace {

struct ResidentForThisTest {
  ResidentForThisTest() { qor::emu::DriverImage::KeepResident(true); }
  ~ResidentForThisTest() { qor::emu::DriverImage::KeepResident(false); }
};

void ExpectSameBoot(const qor::emu::BootResult &Fresh, const qor::emu::BootResult &Resident) {
  EXPECT_EQ(Resident.EntryStatus, Fresh.EntryStatus);
  EXPECT_EQ(qortest::WithoutPointers(Resident.DebugLog), qortest::WithoutPointers(Fresh.DebugLog));
  ASSERT_EQ(Resident.Uploads.size(), Fresh.Uploads.size());
  for (size_t I = 0; I < Fresh.Uploads.size(); I++) {
    EXPECT_EQ(Resident.Uploads[I].StoredName, Fresh.Uploads[I].StoredName);
    EXPECT_EQ(Resident.Uploads[I].Bytes, Fresh.Uploads[I].Bytes) << Fresh.Uploads[I].StoredName;
  }
  EXPECT_EQ(Resident.Pool.Allocations, Fresh.Pool.Allocations);
  EXPECT_EQ(Resident.ServiceCalls, Fresh.ServiceCalls);
}

}  // namespace

TEST(ResidentDriverImage, EveryBootStartsAsFromAFreshlyLoadedImage) {
  const char *Other = R"({"pcd":{"customerId":17},"faults":{"failAllocation":[7]},
                          "triggers":{"order":["fill","late","readyToLock","late"]}})";
  const qor::emu::BootResult FreshBuiltIn = qortest::Boot();
  const qor::emu::BootResult FreshOther = qortest::Boot(Other);

  {
    ResidentForThisTest Resident;
    ExpectSameBoot(FreshBuiltIn, qortest::Boot());
    ExpectSameBoot(FreshOther, qortest::Boot(Other));  // after a complete upload
    ExpectSameBoot(FreshBuiltIn, qortest::Boot());    // after a forced one and a failed allocation
    ExpectSameBoot(FreshOther, qortest::Boot(Other));
  }
  // The image stays mapped after resident boots; a plain boot must not
  // inherit what the last one left in its globals (pool pointers of a
  // firmware that is gone).
  ExpectSameBoot(FreshBuiltIn, qortest::Boot());
}
