// The driver's debug-print routine: which member of the debug print service
// it calls, which levels and TPLs reach the log, and a platform without the
// service. A recording service stands in for the platform's.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver_fixture.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/print_lib.h"
#include "platform/vendor_protocols.h"

namespace {

struct ServiceCall {
  int Member;
  UINTN Level;
  std::string Module;
  std::string Text;
};
std::vector<ServiceCall> gCalls;

std::string Format(CONST CHAR8 *Format, VA_LIST Marker) {
  char Text[512];
  AsciiVSPrint(Text, sizeof(Text), Format, Marker);
  return Text;
}

VOID EFIAPI RecordMember1(UINTN Level, CONST CHAR8 *Fmt, VA_LIST Marker) {
  gCalls.push_back({1, Level, "", Format(Fmt, Marker)});
}

VOID EFIAPI RecordMember3(UINTN Level, CONST CHAR8 *Module, CONST CHAR8 *Fmt, VA_LIST Marker) {
  gCalls.push_back({3, Level, Module, Format(Fmt, Marker)});
}

class DebugPrint : public DriverOnEmulator {
 protected:
  // The board's own service is left out; ours is installed in its place
  // before the library constructors run again.
  void StartWithService(UINT64 Revision) {
    Start(BoardFrom(R"({"faults":{"missingProtocols":["debugPrint"]}})"));
    Service.Revision = Revision;
    Service.DebugPrint = RecordMember1;
    Service.DebugPrintModule = RecordMember3;
    EFI_HANDLE Handle = nullptr;
    Fw->InstallProtocol(&Handle, gQorDebugPrintServiceGuid, &Service);
    QorLibraryConstructors(Fw->ImageHandle(), Fw->SystemTable());
    gCalls.clear();
  }
  void TearDown() override {
    gCalls.clear();
    DriverOnEmulator::TearDown();
  }
  QOR_DEBUG_PRINT_SERVICE Service{};
};

}  // namespace

TEST_F(DebugPrint, RevisionAbove0x10000CallsMember3WithTheModuleName) {
  StartWithService(0x10001);
  QorDebugPrint(DEBUG_INFO, "Flash ID %u\n", 15679513u);
  ASSERT_EQ(gCalls.size(), 1u);
  EXPECT_EQ(gCalls[0].Member, 3);
  EXPECT_EQ(gCalls[0].Module, "QorUploadDataDxe");
  EXPECT_EQ(gCalls[0].Level, 0x40u);
  EXPECT_EQ(gCalls[0].Text, "Flash ID 15679513\n");
}

TEST_F(DebugPrint, RevisionUpTo0x10000CallsMember1) {
  StartWithService(0x10000);
  QorDebugPrint(DEBUG_ERROR, "Failed %r\n", EFI_NOT_FOUND);
  ASSERT_EQ(gCalls.size(), 1u);
  EXPECT_EQ(gCalls[0].Member, 1);
  EXPECT_EQ(gCalls[0].Level, 0x80000000u);
  EXPECT_EQ(gCalls[0].Text, "Failed Not Found\n");
}

TEST_F(DebugPrint, OnlyLevelsSharingABitWith0x80000046AreLogged) {
  StartWithService(0x10001);
  const UINTN Printed[] = {0x40, 0x80000000, 0x2, 0x4};
  const UINTN Dropped[] = {0x400000, 0x8, 0x1, 0x100};
  for (UINTN Level : Dropped) QorDebugPrint(Level, "dropped\n");
  EXPECT_TRUE(gCalls.empty());
  for (UINTN Level : Printed) QorDebugPrint(Level, "printed\n");
  EXPECT_EQ(gCalls.size(), 4u);
}

TEST_F(DebugPrint, NothingIsLoggedAboveTplNotify) {
  StartWithService(0x10001);
  EFI_TPL Old = gBS->RaiseTPL(TPL_NOTIFY);
  QorDebugPrint(DEBUG_INFO, "at notify\n");
  gBS->RaiseTPL(TPL_HIGH_LEVEL);
  QorDebugPrint(DEBUG_INFO, "at high level\n");
  gBS->RestoreTPL(Old);
  ASSERT_EQ(gCalls.size(), 1u);
  EXPECT_EQ(gCalls[0].Text, "at notify\n");
}

TEST_F(DebugPrint, WithoutTheServiceNothingIsLogged) {
  Start(BoardFrom(R"({"faults":{"missingProtocols":["debugPrint"]}})"));
  QorDebugPrint(DEBUG_ERROR, "lost\n");
  // The service is located once, by the constructors: one that appears
  // later is not used.
  Service.Revision = 0x10001;
  Service.DebugPrintModule = RecordMember3;
  EFI_HANDLE Handle = nullptr;
  Fw->InstallProtocol(&Handle, gQorDebugPrintServiceGuid, &Service);
  QorDebugPrint(DEBUG_ERROR, "still lost\n");
  EXPECT_TRUE(gCalls.empty());
}
