// Layout of the MRC data HOB's data, as the memory reference code leaves it:
// one PPIN per socket, then one memory-training result record per socket.
#ifndef QOR_PLATFORM_MRC_DATA_HOB_H_
#define QOR_PLATFORM_MRC_DATA_HOB_H_

#include "platform/uefi_base.h"

#define QOR_MRC_MAX_SOCKETS 4
#define QOR_MRC_CHANNELS_PER_SOCKET 8
#define QOR_MRC_MAX_DIMMS_PER_CHANNEL 2

#pragma pack(push, 1)

// Training outcome of one memory channel and its DIMMs.
typedef struct {
  UINT8 Channel;
  UINT8 Result;
  UINT8 DimmNum;  // DIMM entries that follow (at most two fit)
  UINT8 DimmResult[QOR_MRC_MAX_DIMMS_PER_CHANNEL];
  UINT8 MapoutReason[QOR_MRC_MAX_DIMMS_PER_CHANNEL];
  UINT8 Certification[QOR_MRC_MAX_DIMMS_PER_CHANNEL];
  UINT8 Reserved[2];
} QOR_MRC_CHANNEL_RESULT;

// Training outcome of one socket; ChannelNum 0 means nothing to report.
typedef struct {
  UINT8 Reserved;
  UINT8 ChannelNum;
  QOR_MRC_CHANNEL_RESULT Channels[QOR_MRC_CHANNELS_PER_SOCKET];
} QOR_MRC_SOCKET_RESULT;

typedef struct {
  UINT64 Ppin[QOR_MRC_MAX_SOCKETS];
  QOR_MRC_SOCKET_RESULT SocketResult[QOR_MRC_MAX_SOCKETS];
} QOR_MRC_DATA;

#pragma pack(pop)

static_assert(sizeof(QOR_MRC_CHANNEL_RESULT) == 11, "MRC channel result record");
static_assert(sizeof(QOR_MRC_SOCKET_RESULT) == 90, "MRC socket result record");
static_assert(offsetof(QOR_MRC_DATA, SocketResult) == 32, "MRC socket results follow the PPINs");
static_assert(sizeof(QOR_MRC_DATA) == 392, "MRC data");

#endif  // QOR_PLATFORM_MRC_DATA_HOB_H_
