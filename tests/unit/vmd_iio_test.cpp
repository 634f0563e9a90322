// VmdInfo from the iio sys protocol's IIO data, IioInfo from the IIO port
// HOB, and the indexed I/O read they rely on.
#include <string>
#include <vector>

#include "core/section_fillers.h"
#include "driver_fixture.h"
#include "sections/cpu_memory/indexed_io.h"

namespace {

class VmdInfoTest : public DriverOnEmulator {
 protected:
  std::string FillWith(const std::string &Json) {
    Start(BoardFrom(Json));
    EXPECT_EQ(QorFillVmdInfo(&Section.Record), EFI_SUCCESS);
    EXPECT_TRUE(gQorUploadSections[QorSectionVmdInfo].Filled);
    gQorUploadSections[QorSectionVmdInfo].Filled = FALSE;
    return Section.Text();
  }
  LocalSection Section{"VmdInfo", 0x2000, QorSectionVmdInfo};
};

TEST_F(VmdInfoTest, EnabledWhenAnEnabledStackHasAnAssignedPort) {
  EXPECT_EQ(FillWith("{}"), R"({"Enable":true})");  // socket 0, stack 2, port 3
  // The last place searched: socket 3, stack 5, port 7.
  EXPECT_EQ(FillWith(R"({"iio": {"vmd": {"stackEnable": [[], [], [], [0, 0, 0, 0, 0, 1]],
                                         "portAssign": [{}, {}, {}, {"5": [0, 0, 0, 0, 0, 0, 0, 1]}]}}})"),
            R"({"Enable":true})");
  EXPECT_NE(Log().find("QorFillVmdInfo ---start\n"), std::string::npos);
}

TEST_F(VmdInfoTest, DisabledUnlessBothBytesAreOneOnASearchedStack) {
  // Every stack enabled, no port assigned.
  EXPECT_EQ(FillWith(R"({"iio": {"vmd": {"stackEnable": [[1, 1, 1, 1, 1, 1, 1, 1], [1, 1, 1, 1, 1, 1, 1, 1]],
                                         "portAssign": []}}})"),
            R"({"Enable":false})");
  // Values other than 1 do not count.
  EXPECT_EQ(FillWith(R"({"iio": {"vmd": {"stackEnable": [[0, 2, 2]], "portAssign": [{"1": [1], "2": [1]}]}}})"),
            R"({"Enable":false})");
  EXPECT_EQ(FillWith(R"({"iio": {"vmd": {"stackEnable": [[0, 1]], "portAssign": [{"1": [2, 2, 2, 2, 2, 2, 2, 2]}]}}})"),
            R"({"Enable":false})");
  // Stacks 0 and 6 are never searched. Port 7 of a stack 0 would land on
  // the first byte of the socket's assignment block.
  EXPECT_EQ(FillWith(R"({"iio": {"vmd": {"stackEnable": [[1, 0, 0, 0, 0, 0, 1, 1]],
                                         "portAssign": [{"6": [1, 1, 1, 1, 1, 1, 1, 1],
                                                         "7": [1, 1, 1, 1, 1, 1, 1, 1]}]},
                                 "patches": [{"offset": 6985, "bytes": [1]}]}})"),
            R"({"Enable":false})");
  // An assignment on another stack than the enabled one.
  EXPECT_EQ(FillWith(R"({"iio": {"vmd": {"stackEnable": [[0, 1]], "portAssign": [{"2": [1, 1, 1, 1, 1, 1, 1, 1]}]}}})"),
            R"({"Enable":false})");
}

TEST_F(VmdInfoTest, DisabledWhenGatedOffOrTheDataIsMissing) {
  EXPECT_EQ(FillWith(R"({"pcd": {"tokens": {"31": 0}}})"), R"({"Enable":false})");
  EXPECT_EQ(Log().find("iio sys"), std::string::npos);

  EXPECT_EQ(FillWith(R"({"faults": {"missingProtocols": ["iioSys"]}})"), R"({"Enable":false})");
  EXPECT_NE(Log().find("Failed to locate iio sys protocol Not Found\n"), std::string::npos);

  EXPECT_EQ(FillWith(R"({"iio": {"iioData": false}})"), R"({"Enable":false})");
}

class IioInfoTest : public DriverOnEmulator {
 protected:
  EFI_STATUS FillWith(const std::string &Json) {
    Start(BoardFrom(Json));
    EFI_STATUS Status = QorUpdateIioInfo(&Section.Record);
    Filled = gQorUploadSections[QorSectionIioInfo].Filled;
    gQorUploadSections[QorSectionIioInfo].Filled = FALSE;
    return Status;
  }
  LocalSection Section{"IioInfo", 0x10000, QorSectionIioInfo};
  bool Filled = false;
};

TEST_F(IioInfoTest, RepeatsCpuAndPortInfoPerSocketWithStacksNumberedFromZero) {
  // Code 0 and an unknown code give port A only; a third socket is not read.
  EXPECT_EQ(FillWith(R"({"iio": {"portHob": [
      [{"ports": {"A": 1}}, {"bifurcation": 99, "ports": [2, 9]}, {"ports": [3]}, {"ports": [4]}, {"ports": [5]}],
      [{"bifurcation": 51, "ports": [6, 0, 0, 0, 7]}, {"ports": [8]}, {"ports": [9]}, {"ports": [10]},
       {"bifurcation": 50, "ports": [11, 0, 0, 0, 12, 0, 13]}],
      [{"ports": [77]}]]}})"),
            EFI_SUCCESS);
  EXPECT_TRUE(Filled);
  EXPECT_EQ(Section.Text(),
            R"({"CPU":0,"PortInfo":[{"Port0A":"1"},{"Port1A":"2"},{"Port2A":"3"},{"Port3A":"4"},{"Port4A":"5"}],)"
            R"("CPU":1,"PortInfo":[{"Port0A":"6","Port0E":"7"},{"Port1A":"8"},{"Port2A":"9"},{"Port3A":"10"},)"
            R"({"Port4A":"11","Port4E":"12","Port4G":"13"}]})");
  EXPECT_EQ(Section.Record.Length, Section.Text().size());
}

struct BifurcationCase {
  int Code;
  const char *Stack2;  // the text of stack 2 with ports A..H = 10..17
};

TEST_F(IioInfoTest, EachBifurcationSelectsItsPortLetters) {
  const BifurcationCase Cases[] = {
      {17, R"({"Port2A":"10","Port2B":"11","Port2C":"12","Port2D":"13",)"
           R"("Port2E":"14","Port2F":"15","Port2G":"16","Port2H":"17"})"},
      {18, R"({"Port2A":"10","Port2B":"11","Port2C":"12","Port2D":"13","Port2E":"14","Port2G":"16"})"},
      {19, R"({"Port2A":"10","Port2B":"11","Port2C":"12","Port2D":"13","Port2E":"14"})"},
      {33, R"({"Port2A":"10","Port2C":"12","Port2E":"14","Port2F":"15","Port2G":"16","Port2H":"17"})"},
      {34, R"({"Port2A":"10","Port2C":"12","Port2E":"14","Port2G":"16"})"},
      {35, R"({"Port2A":"10","Port2C":"12","Port2E":"14"})"},
      {37, R"({"Port2A":"10","Port2C":"12","Port2E":"14","Port2G":"16","Port2H":"17"})"},
      {38, R"({"Port2A":"10","Port2C":"12","Port2E":"14","Port2F":"15","Port2G":"16"})"},
      {49, R"({"Port2A":"10","Port2E":"14","Port2F":"15","Port2G":"16","Port2H":"17"})"},
      {50, R"({"Port2A":"10","Port2E":"14","Port2G":"16"})"},
      {51, R"({"Port2A":"10","Port2E":"14"})"},
      {0, R"({"Port2A":"10"})"},
      {36, R"({"Port2A":"10"})"},
      {255, R"({"Port2A":"10"})"},
  };
  for (const BifurcationCase &Case : Cases) {
    SCOPED_TRACE(Case.Code);
    std::string Code = std::to_string(Case.Code);
    ASSERT_EQ(FillWith(R"({"iio": {"portHob": [[{}, {}, {"bifurcation": )" + Code +
                       R"(, "ports": [10, 11, 12, 13, 14, 15, 16, 17]}]]}})"),
              EFI_SUCCESS);
    EXPECT_EQ(Section.Text(), std::string(R"({"CPU":0,"PortInfo":[{"Port0A":"0"},{"Port1A":"0"},)") + Case.Stack2 +
                                  R"(,{"Port3A":"0"},{"Port4A":"0"}],"CPU":1,"PortInfo":[{"Port0A":"0"},)"
                                  R"({"Port1A":"0"},{"Port2A":"0"},{"Port3A":"0"},{"Port4A":"0"}]})");
  }
}

TEST_F(IioInfoTest, PortBytesArePrintedUnsigned) {
  ASSERT_EQ(FillWith(R"({"iio": {"portHob": [[{"bifurcation": 51, "ports": [255, 0, 0, 0, 128]}]]}})"), EFI_SUCCESS);
  EXPECT_EQ(Section.Text().rfind(R"({"CPU":0,"PortInfo":[{"Port0A":"255","Port0E":"128"},)", 0), 0u);
}

TEST_F(IioInfoTest, WithoutTheHobTheSectionStaysUnfilled) {
  EXPECT_EQ(FillWith(R"({"iio": {"portHob": null}})"), EFI_SUCCESS);
  EXPECT_FALSE(Filled);
  EXPECT_EQ(Section.Record.Length, 0u);
  EXPECT_EQ(Section.Text(), "");

  // Too short for two sockets' stacks: treated alike, with an error.
  EXPECT_EQ(FillWith(R"({"iio": {"portHob": {"raw": "11 01 02 03 04 05 06 07 08"}}})"), EFI_SUCCESS);
  EXPECT_FALSE(Filled);
  EXPECT_EQ(Section.Text(), "");
  EXPECT_NE(Log().find("IIO port HOB holds 16 bytes, 90 needed\n"), std::string::npos);
}

TEST_F(IioInfoTest, ReadsTheIndexedPortsFirstEvenWithoutTheHob) {
  const std::vector<qor::emu::IoPortAccess> Expected = {
      {0x1500, 0x20, true}, {0x1501, 0x00, true}, {0x1502, 0x01, false},
      {0x1500, 0x2C, true}, {0x1501, 0x00, true}, {0x1502, 0x12, false},
      {0x1500, 0x81, true}, {0x1501, 0x00, true}, {0x1502, 0x00, false},
  };
  for (const char *Board : {"{}", R"({"iio": {"portHob": null}})"}) {
    SCOPED_TRACE(Board);
    FillWith(Board);
    const auto &Accesses = Plat->Io().Accesses();
    ASSERT_EQ(Accesses.size(), Expected.size());
    for (size_t I = 0; I < Expected.size(); I++) {
      EXPECT_EQ(Accesses[I].Port, Expected[I].Port) << I;
      EXPECT_EQ(Accesses[I].Value, Expected[I].Value) << I;
      EXPECT_EQ(Accesses[I].IsWrite, Expected[I].IsWrite) << I;
    }
    EXPECT_NE(Log().find("QorUpdateIioInfo ---start\n"), std::string::npos);
  }
}

using IndexedIoTest = DriverOnEmulator;

TEST_F(IndexedIoTest, SelectsBothIndexBytes) {
  Start(BoardFrom(R"({"indexedIo": {"0x1234": "0x5A"}, "ioPorts": {"0x1502": 9}})"));
  UINT8 Byte = 0;
  EXPECT_EQ(QorReadIndexedIo(0x1234, &Byte), EFI_SUCCESS);
  EXPECT_EQ(Byte, 0x5A);
  // An index the board does not list falls back to the plain data port.
  EXPECT_EQ(QorReadIndexedIo(0x0001, &Byte), EFI_SUCCESS);
  EXPECT_EQ(Byte, 9);
}

TEST_F(IndexedIoTest, RejectsANullOutput) {
  Start();
  EXPECT_EQ(QorReadIndexedIo(0x20, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_TRUE(Plat->Io().Accesses().empty());
  EXPECT_NE(Log().find("Input null pointer."), std::string::npos);
}

}  // namespace
