// The fourteen protocol-notify registrations of the driver entry, row by row:
// protocol, notify function, context, event type and TPL, in order, and the
// stop at the first registration that fails.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "core/section_fillers.h"
#include "driver_fixture.h"

namespace {

struct Registration {
  std::string Protocol;
  EFI_EVENT_NOTIFY Notify = nullptr;
  UINTN Context = 0;
  UINT32 Type = 0;
  EFI_TPL Tpl = 0;
  bool operator==(const Registration &Other) const {
    return Protocol == Other.Protocol && Notify == Other.Notify && Context == Other.Context &&
           Type == Other.Type && Tpl == Other.Tpl;
  }
};

std::ostream &operator<<(std::ostream &Out, const Registration &R) {
  return Out << "{" << R.Protocol << ", notify " << reinterpret_cast<const void *>(R.Notify) << ", context "
             << R.Context << ", type 0x" << std::hex << R.Type << ", tpl " << std::dec << R.Tpl << "}";
}

std::string GuidText(const EFI_GUID *Guid) {
  char Text[40];
  std::snprintf(Text, sizeof(Text), "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", Guid->Data1, Guid->Data2,
                Guid->Data3, Guid->Data4[0], Guid->Data4[1], Guid->Data4[2], Guid->Data4[3], Guid->Data4[4],
                Guid->Data4[5], Guid->Data4[6], Guid->Data4[7]);
  return Text;
}

// The emulator's services, wrapped to record what the driver asks for.
struct Recorder {
  EFI_CREATE_EVENT CreateEvent = nullptr;
  EFI_REGISTER_PROTOCOL_NOTIFY RegisterProtocolNotify = nullptr;
  std::map<EFI_EVENT, Registration> Events;
  std::vector<Registration> Registered;
  size_t FailRegistration = 0;  // 1-based; 0: none fails
} gRecorder;

EFI_STATUS EFIAPI RecordCreateEvent(UINT32 Type, EFI_TPL Tpl, EFI_EVENT_NOTIFY Notify, VOID *Context,
                                    EFI_EVENT *Event) {
  EFI_STATUS Status = gRecorder.CreateEvent(Type, Tpl, Notify, Context, Event);
  if (!EFI_ERROR(Status)) gRecorder.Events[*Event] = {"", Notify, reinterpret_cast<UINTN>(Context), Type, Tpl};
  return Status;
}

EFI_STATUS EFIAPI RecordRegisterProtocolNotify(EFI_GUID *Protocol, EFI_EVENT Event, VOID **Registration) {
  ::Registration Seen = gRecorder.Events[Event];
  Seen.Protocol = GuidText(Protocol);
  gRecorder.Registered.push_back(Seen);
  if (gRecorder.Registered.size() == gRecorder.FailRegistration) return EFI_OUT_OF_RESOURCES;
  return gRecorder.RegisterProtocolNotify(Protocol, Event, Registration);
}

const char kFill[] = "DF56633A-429A-4296-8DAD-1C3C0B0A87CE";
const char kLate[] = "F641DBCA-F8E2-494F-AC50-439067EEE854";
const char kReadyToLock[] = "60FF8964-E906-41D0-AFED-F241E974E08E";
constexpr UINT32 kNotifySignal = 0x00000200;  // EVT_NOTIFY_SIGNAL
constexpr EFI_TPL kCallback = 8;              // TPL_CALLBACK

Registration Row(const char *Protocol, EFI_EVENT_NOTIFY Notify, UINTN Context) {
  return {Protocol, Notify, Context, kNotifySignal, kCallback};
}

// The table the driver registers, in its order.
const std::vector<Registration> &ExpectedRows() {
  static const std::vector<Registration> Rows = {
      Row(kFill, QorUpdateEventCallBack, 2),         // CpuInfo
      Row(kFill, QorUpdateEventCallBack, 3),         // DimmResultInfo
      Row(kFill, QorUpdateEventCallBack, 4),         // DimmInfo
      Row(kFill, QorUpdateEventCallBack, 8),         // PcieDevice
      Row(kFill, QorUpdateEventCallBack, 9),         // PcieTopology
      Row(kFill, QorUpdateEventCallBack, 10),        // MiscInfo
      Row(kFill, QorUpdateEventCallBack, 7),         // OnBoardSataInfo
      Row(kLate, QorUpdateEventCallBack, 5),         // VmdInfo
      Row(kFill, QorUpdateEventCallBack, 6),         // TpmInfo
      Row(kReadyToLock, QorUpdateEventCallBack, 11), // PcieResource
      Row(kFill, QorUpdateEventCallBack, 12),        // MemoryMap
      Row(kFill, QorUpdateEventCallBack, 13),        // IioInfo
      Row(kLate, QorForceUploadCallBack, 0),
      Row(kFill, QorUploadFlashInfoCallBack, 0),
  };
  return Rows;
}

class UploadEventRegistrations : public DriverOnEmulator {
 protected:
  void SetUp() override {
    Start();
    gRecorder = Recorder{};
    gRecorder.CreateEvent = Fw->BootServices()->CreateEvent;
    gRecorder.RegisterProtocolNotify = Fw->BootServices()->RegisterProtocolNotify;
    Fw->BootServices()->CreateEvent = RecordCreateEvent;
    Fw->BootServices()->RegisterProtocolNotify = RecordRegisterProtocolNotify;
  }
};

TEST_F(UploadEventRegistrations, RegistersTheFourteenRowsInOrder) {
  EXPECT_EQ(QorRegisterUploadEvents(), EFI_SUCCESS);
  EXPECT_EQ(gRecorder.Registered, ExpectedRows());
  EXPECT_EQ(gRecorder.Events.size(), 14u);
  EXPECT_EQ(Log(), "");
}

TEST_F(UploadEventRegistrations, AFailedRegistrationIsLoggedAndEndsTheTable) {
  for (size_t Failing = 1; Failing <= ExpectedRows().size(); Failing++) {
    SetUp();
    gRecorder.FailRegistration = Failing;
    EXPECT_EQ(QorRegisterUploadEvents(), EFI_OUT_OF_RESOURCES) << Failing;
    EXPECT_EQ(gRecorder.Registered,
              std::vector<Registration>(ExpectedRows().begin(), ExpectedRows().begin() + Failing));
    std::string Guid = ExpectedRows()[Failing - 1].Protocol;
    for (char &C : Guid) C = static_cast<char>(std::tolower(static_cast<unsigned char>(C)));
    ASSERT_EQ(Plat->DebugLines().size(), 1u) << Failing;
    EXPECT_EQ(Plat->DebugLines()[0].Text, "Failed to listen event " + Guid + " Out of Resources\n");
    EXPECT_EQ(Plat->DebugLines()[0].Level, 0x80000000u);
  }
}

}  // namespace
