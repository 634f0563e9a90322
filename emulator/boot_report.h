// Writes what a boot produced into an output folder: the files sent to the
// BMC byte for byte, debug.log, boot.json and variables.json.
#ifndef QOR_EMULATOR_BOOT_REPORT_H_
#define QOR_EMULATOR_BOOT_REPORT_H_

#include <string>
#include <vector>

#include "emulator/boot.h"

namespace qor::emu {

// Section names in upload order, as the driver registers them.
extern const std::vector<std::string> kSectionNames;

// Which sections the boot filled: all of them for a complete upload, those
// marked 1 in the force-upload listing, or unknown (empty) otherwise.
struct SectionState {
  std::string Name;
  std::string State;  // "filled", "unfilled" or "unknown"
};
std::vector<SectionState> SectionStates(const BootResult &Result);

// The boot report as JSON text.
std::string BootReportJson(const Board &Board, const BootResult &Result, int BootNumber);
std::string VariablesJson(const std::vector<Variable> &Variables);

// Writes one boot's outputs into Directory (created if needed). Throws
// std::runtime_error when a file cannot be written.
void WriteBootOutputs(const std::string &Directory, const Board &Board, const BootResult &Result, int BootNumber);

uint32_t Crc32Of(const std::vector<uint8_t> &Bytes);
// Texts of the report: a status by its name (hex when it has none), bytes
// in upper-case hex, a reset type ("cold", "warm", "shutdown"...).
std::string StatusText(EFI_STATUS Status);
std::string BytesHex(const std::vector<uint8_t> &Bytes);
const char *ResetTypeName(EFI_RESET_TYPE Type);
// Text as valid UTF-8 (a byte that starts no well-formed sequence becomes
// U+FFFD), so a report stays valid JSON whatever the firmware printed.
std::string ValidUtf8(const std::string &Text);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_BOOT_REPORT_H_
