// An NVMe controller's firmware interfaces: EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL
// executing admin commands against the board's drive description, and the
// vendor NVMe controller protocol with its cached Identify data and namespace
// list (platform/nvme.h).
//
// PassThru follows the UEFI specification's checks: a missing packet,
// command or completion, a queue type other than admin or I/O, a namespace
// id that is neither 0, all ones nor an active namespace, a transfer buffer
// missing or not aligned to IoAlign are EFI_INVALID_PARAMETER; a transfer
// shorter than the data a command returns is EFI_BAD_BUFFER_SIZE with the
// length needed in TransferLength; a CommandTimeout (100 ns units, 0 waits
// for ever) shorter than the drive's response time is EFI_TIMEOUT. Admin
// Identify with CNS 0 (namespace), 1 (controller) and 2 (active namespace
// list) is executed; other opcodes complete with "Invalid Command Opcode"
// and EFI_DEVICE_ERROR, as does every command of a drive whose board gives a
// command status (then that status).
#ifndef QOR_EMULATOR_NVME_NVME_CONTROLLER_H_
#define QOR_EMULATOR_NVME_NVME_CONTROLLER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "emulator/nvme/nvme_drive.h"
#include "emulator/time_stamp_counter.h"
#include "platform/nvme.h"

namespace qor::emu {

// One PassThru call, as submitted.
struct NvmeCommandRecord {
  std::string Controller;      // PCI location of the controller
  uint8_t Opcode = 0;
  uint8_t QueueType = 0;
  uint32_t NamespaceId = 0;    // the call's argument
  uint32_t Nsid = 0;           // the command's
  uint8_t Flags = 0;
  uint32_t Cdw10 = 0;
  uint64_t CommandTimeout = 0;
  uint32_t TransferLength = 0; // as given
  EFI_STATUS Status = EFI_SUCCESS;
};

class NvmeController {
 public:
  NvmeController(const NvmeDriveDef &Def, uint16_t VendorId, uint16_t SubsystemVendorId, TimeStampCounter &Clock,
                 std::string Location);
  NvmeController(const NvmeController &) = delete;
  NvmeController &operator=(const NvmeController &) = delete;

  EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *PassThru() { return &Interface_.Protocol; }
  QOR_VENDOR_NVME_CONTROLLER_PROTOCOL *VendorProtocol() { return &Vendor_; }
  const std::vector<NvmeCommandRecord> &Commands() const { return Commands_; }

  EFI_STATUS Execute(uint32_t NamespaceId, EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET *Packet);
  EFI_STATUS NextNamespace(uint32_t *NamespaceId) const;
  EFI_STATUS BuildDevicePath(uint32_t NamespaceId, EFI_DEVICE_PATH_PROTOCOL **DevicePath) const;
  EFI_STATUS NamespaceOf(const EFI_DEVICE_PATH_PROTOCOL *DevicePath, uint32_t *NamespaceId) const;
  static NvmeController *From(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *This);

 private:
  bool IsActive(uint32_t NamespaceId) const { return NamespaceId >= 1 && NamespaceId <= Def_.Namespaces.size(); }
  EFI_STATUS Run(uint32_t NamespaceId, EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET *Packet);

  struct Interface {
    EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL Protocol;
    NvmeController *Owner;
  };
  Interface Interface_{};
  EFI_NVM_EXPRESS_PASS_THRU_MODE Mode_{};
  NvmeDriveDef Def_;
  TimeStampCounter &Clock_;
  std::string Location_;
  std::vector<uint8_t> Identify_;
  std::vector<QOR_NVME_NAMESPACE_INFO> Namespaces_;
  QOR_VENDOR_NVME_CONTROLLER_PROTOCOL Vendor_{};
  std::vector<NvmeCommandRecord> Commands_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_NVME_NVME_CONTROLLER_H_
