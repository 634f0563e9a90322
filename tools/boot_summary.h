// The few lines qor-emu prints after each boot: entry status, sections,
// every send with its status, documents never sent, sections the driver has
// no filler for yet, and the distinct error-level log lines.
#ifndef QOR_TOOLS_BOOT_SUMMARY_H_
#define QOR_TOOLS_BOOT_SUMMARY_H_

#include <string>
#include <vector>

#include "emulator/boot.h"

namespace qor::tool {

// Sections whose fill event fired but found no filler in this driver build,
// in registry order, as the boot reported them ("Invalid Type N").
std::vector<std::string> SectionsWithoutFiller(const qor::emu::BootResult &Result);

// Boots > 1 adds a "== boot K ==" heading; a BoardName adds a "board:" line
// under it (the board of this boot, when the board changes between boots).
std::string BootSummary(const qor::emu::BootResult &Result, const std::string &Directory, int BootNumber, int Boots,
                        const std::string &BoardName = "");

}  // namespace qor::tool

#endif  // QOR_TOOLS_BOOT_SUMMARY_H_
