// DimmResultInfo section: the memory-training outcome per socket, channel
// and DIMM from the MRC data HOB, with the bit map of populated sockets.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/hob.h"
#include "platform/mrc_data_hob.h"
#include "platform/pcd_lib.h"
#include "platform/system_information.h"

namespace {

UINT32 CpuBitMap(VOID) {
  CONST UINT8 *Block = (CONST UINT8 *)QorCachedSystemInformationBlock();
  if (Block == nullptr) return 0;
  UINT32 BitMap;
  QorCopyMem(&BitMap, Block + QOR_SYSINFO_CPU_BIT_MAP_OFFSET, sizeof(BitMap));
  return BitMap;
}

// Copies the socket result records out of the MRC data HOB. A HOB shorter
// than the full set leaves the missing records zero (nothing to report).
VOID CopySocketResults(QOR_MRC_SOCKET_RESULT *Results) {
  QorZeroMem(Results, sizeof(QOR_MRC_SOCKET_RESULT) * QOR_MRC_MAX_SOCKETS);
  if (MrcHobData == nullptr) return;
  UINTN DataSize = QorMrcHobDataSize();
  UINTN Wanted = sizeof(QOR_MRC_SOCKET_RESULT) * QOR_MRC_MAX_SOCKETS;
  UINTN Available = DataSize > offsetof(QOR_MRC_DATA, SocketResult) ? DataSize - offsetof(QOR_MRC_DATA, SocketResult)
                                                                      : 0;
  if (Available < Wanted) {
    QorDebugPrint(DEBUG_ERROR, "MRC data HOB holds %u of %u bytes of socket results\n", (UINT32)Available,
                  (UINT32)Wanted);
  }
  QorCopyMem(Results, ((CONST QOR_MRC_DATA *)MrcHobData)->SocketResult, Available < Wanted ? Available : Wanted);
}

VOID AppendChannel(QOR_TEXT_WRITER *W, CONST QOR_MRC_CHANNEL_RESULT *Channel) {
  QorWriterAppend(W, "{");
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Channel", Channel->Channel);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Result", Channel->Result);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DimmNum", Channel->DimmNum);
  QorWriterAppend(W, "\"DimmResult\":");
  QorWriterAppend(W, "[");
  // The record has room for two DIMMs; a larger count is reported as read
  // but only the two recorded DIMMs are listed.
  for (UINT32 Dimm = 0; Dimm < Channel->DimmNum && Dimm < QOR_MRC_MAX_DIMMS_PER_CHANNEL; Dimm++) {
    QorWriterAppend(W, "{");
    QorWriterAppend(W, QOR_FMT_KEY_U32, "Dimm", Dimm);
    QorWriterAppend(W, QOR_FMT_KEY_U32, "Result", Channel->DimmResult[Dimm]);
    QorWriterAppend(W, QOR_FMT_KEY_U32, "MapoutReason", Channel->MapoutReason[Dimm]);
    QorWriterAppend(W, QOR_FMT_KEY_U32, "Certification", Channel->Certification[Dimm]);
    QorWriterDropComma(W);
    QorWriterAppend(W, "},");
  }
  QorWriterDropComma(W);
  QorWriterAppend(W, "]");
  QorWriterDropComma(W);
  QorWriterAppend(W, "},");
}

VOID AppendSocket(QOR_TEXT_WRITER *W, UINT32 Socket, CONST QOR_MRC_SOCKET_RESULT *Result) {
  QorWriterAppend(W, "{");
  QorWriterAppend(W, QOR_FMT_KEY_U32, "CPU", Socket);
  if (Result->ChannelNum == 0) {
    QorWriterDropComma(W);
    QorWriterAppend(W, "},");
    return;
  }
  QorWriterAppend(W, QOR_FMT_KEY_U32, "ChannelNum", Result->ChannelNum);
  QorWriterAppend(W, "\"ChannelResult\":");
  QorWriterAppend(W, "[");
  // Every channel record is reported, whatever ChannelNum says.
  for (UINT32 Channel = 0; Channel < QOR_MRC_CHANNELS_PER_SOCKET; Channel++) {
    AppendChannel(W, &Result->Channels[Channel]);
  }
  QorWriterDropComma(W);
  QorWriterAppend(W, "]");
  QorWriterDropComma(W);
  QorWriterAppend(W, "},");
}

}  // namespace

EFI_STATUS QorFillDimmResult(UPLOAD_SECTION *Section) {
  QorDebugPrint(DEBUG_INFO, "QorFillDimmResult ---start\n");
  UINT32 BitMap = CpuBitMap();
  QOR_MRC_SOCKET_RESULT Results[QOR_MRC_MAX_SOCKETS];
  CopySocketResults(Results);

  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_U32, "CpuBitMap", BitMap);
  QorWriterAppend(&W, "\"SocketResult\":");
  QorWriterAppend(&W, "[");
  // The socket count is read again before every socket; the HOB holds four.
  for (UINT32 Socket = 0; Socket < QorPcdGet8(QOR_PCD_TOKEN_SOCKET_COUNT) && Socket < QOR_MRC_MAX_SOCKETS; Socket++) {
    AppendSocket(&W, Socket, &Results[Socket]);
  }
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "]");
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  return QorFinishSection(Section, W.Length);
}
