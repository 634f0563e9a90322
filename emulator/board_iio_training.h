// Board members for the IIO configuration (the iio sys protocol's VMD
// bytes, the IIO port HOB, the index/data I/O port trio) and the readable
// form of the MRC data HOB's training records.
#ifndef QOR_EMULATOR_BOARD_IIO_TRAINING_H_
#define QOR_EMULATOR_BOARD_IIO_TRAINING_H_

#include "emulator/byte_patch.h"
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "platform/iio_data.h"

namespace qor::emu {

struct Board;
class JsonField;

// Bytes of one socket's VMD port assignment block.
constexpr size_t kIioVmdPortAssignBytes = QOR_IIO_VMD_PORT_ASSIGN_SOCKET_STRIDE;

struct IioDef {
  // The iio sys protocol's member points to the IIO data (false: null).
  bool HasIioData = true;
  // Stack enable byte of socket s, stack t (0-7).
  std::array<std::array<uint8_t, QOR_IIO_VMD_STACK_ENABLE_SOCKET_STRIDE>, QOR_IIO_MAX_SOCKETS> VmdStackEnable{};
  // Port assignment block of socket s, indexed as the platform code does.
  std::array<std::array<uint8_t, kIioVmdPortAssignBytes>, QOR_IIO_MAX_SOCKETS> VmdPortAssign{};
  // Raw bytes at IIO data offsets, applied last.
  std::vector<BytePatch> Patches;
  // Data of the IIO port HOB; absent when nullopt.
  std::optional<std::vector<uint8_t>> PortHob;
  // Index/data trio: the byte the data port returns for each index.
  std::map<uint16_t, uint8_t> IndexedIo;
};

// Size of the emulated IIO data; covers the last VMD byte of socket 3.
constexpr size_t kIioDataSize = 0x2000;
static_assert(QOR_IIO_VMD_PORT_ASSIGN_OFFSET + QOR_IIO_MAX_SOCKETS * QOR_IIO_VMD_PORT_ASSIGN_SOCKET_STRIDE <=
                  kIioDataSize,
              "IIO data covers the VMD port assignment of every socket");
// The readable IIO port HOB covers all sockets the platform can have.
constexpr size_t kIioPortHobSize =
    QOR_IIO_MAX_SOCKETS * QOR_IIO_STACKS_PER_SOCKET * sizeof(QOR_IIO_PORT_HOB_ENTRY);

// board.iio
void ParseIio(const JsonField &Iio, Board *Out);
// board.indexedIo
void ParseIndexedIo(const JsonField &IndexedIo, Board *Out);
// board.hobs.mrcData.socketResults: bytes, or one readable record per socket.
std::vector<uint8_t> ParseMrcSocketResults(const JsonField &Results);

// The IIO data behind the iio sys protocol, built from the board.
std::vector<uint8_t> BuildIioData(const Board &Board);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_BOARD_IIO_TRAINING_H_
