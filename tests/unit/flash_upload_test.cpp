// The flash upload callback run directly, so that one chosen allocation, its
// text buffer's, can fail.
#include <gtest/gtest.h>

#include "core/section_fillers.h"
#include "driver_fixture.h"
#include "tests/common/sent_document.h"

namespace {

class FlashUpload : public DriverOnEmulator {
 protected:
  EFI_EVENT NewEvent() {
    EFI_EVENT Event = nullptr;
    EXPECT_EQ(gBS->CreateEvent(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, QorUploadFlashInfoCallBack, nullptr, &Event),
              EFI_SUCCESS);
    return Event;
  }
  void FailNextAllocation() {
    const auto &Counters = Fw->GetPool().Counters();
    Fw->GetPool().FailAllocation(Counters.Allocations + Counters.FailedAllocations + 1);
  }
  size_t FlashSends() { return qortest::UploadsNamed(Plat->Uploads(), "push_FlashInfo.json").size(); }
  uint64_t LevelOf(const std::string &Text) {
    for (const auto &Line : Plat->DebugLines()) {
      if (Line.Text == Text) return Line.Level;
    }
    return 0;
  }
};

TEST_F(FlashUpload, WithoutItsTextBufferSendsNothingAndLogsAnError) {
  Start();
  QorUploadFlashInfoCallBack(NewEvent(), nullptr);
  ASSERT_EQ(FlashSends(), 1u);  // the buffer is the callback's first allocation

  const uint64_t Closed = Fw->Counters().Calls["CloseEvent"];
  FailNextAllocation();
  QorUploadFlashInfoCallBack(NewEvent(), nullptr);
  EXPECT_EQ(FlashSends(), 1u);
  EXPECT_EQ(LevelOf("Failed to allocate FLASH info buffer, nothing sent Out of Resources\n"), 0x80000000u);
  EXPECT_EQ(qortest::CountOf(Plat->DebugLines(), "Upload FLASH info to BMC Success\n"), 1u);
  // The identification is still read and logged; the event closes as after
  // any attempt that reached the protocols.
  EXPECT_EQ(qortest::CountOf(Plat->DebugLines(), "FLASH ID : ef4019\n"), 2u);
  EXPECT_EQ(Fw->Counters().Calls["CloseEvent"], Closed + 1);
  EXPECT_EQ(Fw->GetPool().Counters().BadFrees, 0u);
}

}  // namespace
