// The output folder of qor-emu: what it writes there is its own and is
// cleared before a boot, so that nothing left by an earlier run looks sent
// by this one. Anything else in the folder belongs to the user and stays.
#ifndef QOR_TOOLS_OUTPUT_FOLDER_H_
#define QOR_TOOLS_OUTPUT_FOLDER_H_

#include <filesystem>
#include <string>

namespace qor::tool {

// A file name qor-emu writes: the two documents the driver sends and their
// numbered repeats (push_FlashInfo.2.json), debug.log, boot.json,
// variables.json, smbios.bin.
bool IsOwnedOutputFile(const std::string &Name);
// "boot-K" with K a positive decimal number: the folder of boot K of a run.
bool IsBootFolderName(const std::string &Name);

// Removes the owned files of Directory and of its boot-K folders, and each
// boot-K folder left empty by that. A missing Directory is fine. Throws
// std::runtime_error naming the path that could not be removed.
void RemoveOwnedOutputs(const std::filesystem::path &Directory);

}  // namespace qor::tool

#endif  // QOR_TOOLS_OUTPUT_FOLDER_H_
