// The readable board forms of the training records and the IIO data land
// at the byte offsets the platform code uses.
#include <gtest/gtest.h>

#include <string>

#include "emulator/board.h"
#include "emulator/board_iio_training.h"

namespace {

using qor::emu::Board;
using qor::emu::BoardError;
using qor::emu::ParseBoard;

TEST(BoardTrainingRecords, ReadableFormPlacesEachFieldInItsRecord) {
  Board B = ParseBoard(R"({"hobs": {"mrcData": {"socketResults": [{}, {"channels": [{}, {}, {}, {}, {}, {
      "channel": 6, "result": 1, "dimms": [{}, {"result": 2, "mapoutReason": 3, "certification": 4}]}]}]}}})");
  ASSERT_TRUE(B.MrcData.has_value());
  const std::vector<uint8_t> &Data = *B.MrcData;
  ASSERT_EQ(Data.size(), 32u + 4 * 90);
  // Socket 1 starts at 32 + 90; its channel 5 at 2 + 5 * 11 into the record.
  const size_t Socket1 = 32 + 90, Channel5 = Socket1 + 2 + 5 * 11;
  EXPECT_EQ(Data[32 + 1], 0);       // socket 0: ChannelNum 0
  EXPECT_EQ(Data[Socket1 + 1], 6);  // six channels listed
  EXPECT_EQ(Data[Socket1 + 2 + 4 * 11], 4);  // an unnumbered channel takes its position
  EXPECT_EQ(Data[Channel5 + 0], 6);
  EXPECT_EQ(Data[Channel5 + 1], 1);
  EXPECT_EQ(Data[Channel5 + 2], 2);  // DimmNum
  EXPECT_EQ(Data[Channel5 + 4], 2);  // DIMM 1 result
  EXPECT_EQ(Data[Channel5 + 6], 3);  // DIMM 1 mapout reason
  EXPECT_EQ(Data[Channel5 + 8], 4);  // DIMM 1 certification
  // The PPINs of the built-in board are kept beside them.
  EXPECT_EQ(Data[0], 0x91);
}

TEST(BoardTrainingRecords, RecordsThatDoNotFitAreRejectedByPath) {
  try {
    ParseBoard(R"({"hobs": {"mrcData": {"socketResults": [{"channels": [{"dimms": [{}, {}, {}]}]}]}}})");
    FAIL() << "three DIMMs accepted";
  } catch (const BoardError &Error) {
    EXPECT_NE(std::string(Error.what()).find("board.hobs.mrcData.socketResults[0].channels[0].dimms"),
              std::string::npos)
        << Error.what();
  }
  EXPECT_THROW(ParseBoard(R"({"hobs": {"mrcData": {"socketResults": [{}, {}, {}, {}, {}]}}})"), BoardError);
  EXPECT_THROW(ParseBoard(R"({"hobs": {"mrcData": {"socketResults": [{"channels": [{"result": 256}]}]}}})"),
               BoardError);
}

TEST(BoardIio, VmdBytesLandAtTheirIioDataOffsets) {
  Board B = ParseBoard(R"({"iio": {"vmd": {"stackEnable": [[], [0, 0, 0, 1]],
                                           "portAssign": [{}, {"3": {"B": 0}, "5": [0, 0, 0, 0, 0, 0, 0, 1]}]}}})");
  std::vector<uint8_t> Data = qor::emu::BuildIioData(B);
  EXPECT_EQ(Data[6953 + 1 * 8 + 3], 1);
  // Socket 1, stack 5, port 7: 6985 + 57 + (4 * 8 + 1 + 7).
  EXPECT_EQ(Data[6985 + 57 + 40], 1);
  int Ones = 0;
  for (uint8_t Byte : Data) Ones += Byte == 1 ? 1 : 0;
  EXPECT_EQ(Ones, 2);  // the built-in board's VMD bytes were replaced
}

TEST(BoardIio, PortHobFormsAndErrors) {
  Board B = ParseBoard(R"({"iio": {"portHob": [[], [{}, {"bifurcation": 19, "ports": {"C": 4, "H": 8}}]]}})");
  ASSERT_EQ(B.Iio.PortHob->size(), 4u * 5 * 9);
  const size_t Entry = (1 * 5 + 1) * 9;  // socket 1, stack 1
  EXPECT_EQ((*B.Iio.PortHob)[Entry], 19);
  EXPECT_EQ((*B.Iio.PortHob)[Entry + 3], 4);  // C
  EXPECT_EQ((*B.Iio.PortHob)[Entry + 8], 8);  // H

  EXPECT_THROW(ParseBoard(R"({"iio": {"portHob": [[{}, {}, {}, {}, {}, {}]]}})"), BoardError);
  EXPECT_THROW(ParseBoard(R"({"iio": {"portHob": [[{"ports": {"I": 1}}]]}})"), BoardError);
  EXPECT_THROW(ParseBoard(R"({"iio": {"vmd": {"portAssign": [{"0": [1]}]}}})"), BoardError);
}

}  // namespace
