// Board members for TPM, SATA and the BMC transport
// (docs/board-storage-tpm.md).
#ifndef QOR_EMULATOR_BOARD_STORAGE_TPM_H_
#define QOR_EMULATOR_BOARD_STORAGE_TPM_H_

#include <cstddef>
#include <string>

namespace qor::emu {

class JsonField;
struct Board;
struct SystemInformationDef;

// A text stored NUL-terminated in a field of Width bytes.
std::string FieldText(const JsonField &Field, size_t Width);
void ParseSataDrives(const JsonField &Drives, SystemInformationDef *Def);
void ParseCustomProtocol(const JsonField &Custom, Board *Out);
void ParseIpmi(const JsonField &Ipmi, Board *Out);
void ParseTpm(const JsonField &Tpm, Board *Out);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_BOARD_STORAGE_TPM_H_
