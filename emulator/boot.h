// One emulated boot: a fresh firmware and platform from the board, a freshly
// loaded driver, its entry, then the trigger protocols in the board's order.
// Everything the driver produced is returned.
#ifndef QOR_EMULATOR_BOOT_H_
#define QOR_EMULATOR_BOOT_H_

#include <map>
#include <set>
#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/firmware.h"
#include "emulator/platform.h"
#include "emulator/pool.h"
#include "emulator/variable_store.h"

namespace qor::emu {

struct BootResult {
  EFI_STATUS EntryStatus = EFI_NOT_STARTED;
  std::vector<Upload> Uploads;
  std::vector<IpmiRequest> IpmiRequests;  // commands sent to the BMC over IPMI, in order
  std::vector<DebugLine> DebugLines;
  std::string DebugLog;
  std::vector<ResetRecord> Resets;  // at most one: a reset ends the boot
  std::vector<std::string> TriggersInstalled;
  std::vector<VariableWrite> VariableWrites;
  std::vector<Variable> VariablesAfter;
  PoolCounters Pool;
  uint64_t AllocationsHeldAtEnd = 0;
  std::map<std::string, uint64_t> ServiceCalls;
  uint64_t CpuAccesses = 0;
  uint64_t PciConfigReads = 0;       // configuration-space reads (calls) through every access path
  uint64_t PciConfigWrites = 0;
  struct PciFunctionCost {
    std::string Location;            // "SSSS:BB:DD.F"
    uint64_t Reads;
    uint64_t Writes;
  };
  std::vector<PciFunctionCost> PciFunctionCosts;  // every function, in location order
  uint64_t PciAbsentReads = 0;       // reads of locations where no function is
  std::string LspciDump;            // the configuration space before the driver's entry, lspci -xxxx text
  std::vector<uint8_t> SmbiosDump;  // the SMBIOS table served, as a dump file (empty without SMBIOS)
  std::set<std::string> UnknownPcdTokens;

  // The last upload of this name, or nullptr.
  const Upload *FindUpload(const std::string &Name) const;
  bool EndedInReset() const { return !Resets.empty(); }
};

// Runs one boot. Variables, when given, replace the board's initial store
// (the non-volatile variables carried over from a previous boot).
BootResult RunBoot(const Board &Board, const std::vector<Variable> *Variables = nullptr,
                   const std::string &DriverPath = "");
// Runs Count boots in a row, carrying non-volatile variables across each
// reset or boot, dropping volatile ones.
std::vector<BootResult> RunBoots(const Board &Board, int Count, const std::string &DriverPath = "");

}  // namespace qor::emu

#endif  // QOR_EMULATOR_BOOT_H_
