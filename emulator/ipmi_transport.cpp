// The qor ipmi protocol: every command the driver submits is recorded and
// answered with the board's response bytes and status.
#include <algorithm>
#include <cstring>

#include "emulator/platform.h"

namespace qor::emu {

namespace {
EFI_STATUS EFIAPI SubmitCommand(QOR_IPMI_PROTOCOL *, UINT8 NetFunction, UINT8 Lun, UINT8 Command, UINT8 *RequestData,
                                UINT8 RequestDataSize, UINT8 *ResponseData, UINT8 *ResponseDataSize) {
  Platform *Current = Platform::Current();
  if (Current == nullptr) return EFI_NOT_READY;
  return Current->SubmitIpmiRequest(NetFunction, Lun, Command, RequestData, RequestDataSize, ResponseData,
                                    ResponseDataSize);
}
}  // namespace

void InitIpmiProtocol(QOR_IPMI_PROTOCOL *Protocol) {
  *Protocol = {};
  Protocol->SubmitCommand = SubmitCommand;
}

EFI_STATUS Platform::SubmitIpmiRequest(uint8_t NetFunction, uint8_t Lun, uint8_t Command, const uint8_t *Data,
                                       uint8_t DataSize, uint8_t *Response, uint8_t *ResponseSize) {
  IpmiRequest Request{NetFunction, Lun, Command, {}, EFI_SUCCESS};
  auto Finish = [&](EFI_STATUS Status) {
    Request.Status = Status;
    IpmiRequests_.push_back(Request);
    return Status;
  };
  if (DataSize != 0 && Data == nullptr) return Finish(EFI_INVALID_PARAMETER);
  if (DataSize != 0) Request.Data.assign(Data, Data + DataSize);
  if (ResponseSize == nullptr || (*ResponseSize != 0 && Response == nullptr)) return Finish(EFI_INVALID_PARAMETER);
  if (EFI_ERROR(Board_.Ipmi.Status)) return Finish(Board_.Ipmi.Status);

  const std::vector<uint8_t> &Answer = Board_.Ipmi.Response;
  size_t Fits = std::min<size_t>(*ResponseSize, Answer.size());
  if (Fits != 0) std::memcpy(Response, Answer.data(), Fits);
  if (Fits < Answer.size()) {
    *ResponseSize = static_cast<uint8_t>(std::min<size_t>(Answer.size(), 0xFF));
    return Finish(EFI_BUFFER_TOO_SMALL);
  }
  *ResponseSize = static_cast<uint8_t>(Fits);
  return Finish(Board_.Ipmi.Status);
}

}  // namespace qor::emu
