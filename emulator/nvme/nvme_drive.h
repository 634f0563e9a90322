// An NVMe drive as a board describes it, and the Identify data it answers
// with, in the layout of the NVM Express base specification.
#ifndef QOR_EMULATOR_NVME_NVME_DRIVE_H_
#define QOR_EMULATOR_NVME_NVME_DRIVE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "emulator/byte_patch.h"
#include "platform/uefi_base.h"

namespace qor::emu {

struct NvmeNamespaceDef {
  uint32_t BlockSize = 512;
  uint64_t BlockCount = 0;
};

struct NvmeDriveDef {
  std::string Serial;    // at most 20 characters, blank-padded in Identify
  std::string Model;     // at most 40
  std::string Firmware;  // at most 8
  // TNVMCAP, low and high 64 bits; none: the namespaces' bytes.
  std::optional<uint64_t> Capacity;
  uint64_t CapacityHigh = 0;
  std::vector<NvmeNamespaceDef> Namespaces;
  std::vector<BytePatch> IdentifyPatches;    // laid over the Identify Controller data
  std::optional<EFI_STATUS> CommandStatus;   // a controller whose admin commands fail
  uint64_t ResponseUs = 20;                  // time a command takes
  bool PassThru = true;                      // EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL on the handle
  bool VendorProtocol = false;               // the vendor NVMe controller protocol too
};

constexpr size_t kNvmeIdentifySize = 4096;

// Total bytes of the namespaces.
uint64_t NvmeNamespaceBytes(const NvmeDriveDef &Drive);
// Identify Controller data (CNS 1) of a controller with these PCI ids.
std::vector<uint8_t> NvmeIdentifyController(const NvmeDriveDef &Drive, uint16_t VendorId, uint16_t SubsystemVendorId);
// Identify Namespace data (CNS 0) of namespace Index (0-based).
std::vector<uint8_t> NvmeIdentifyNamespace(const NvmeDriveDef &Drive, size_t Index);
// Active namespace ID list (CNS 2).
std::vector<uint8_t> NvmeActiveNamespaceList(const NvmeDriveDef &Drive);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_NVME_NVME_DRIVE_H_
