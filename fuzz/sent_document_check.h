// What every boot may send, whatever the board: the inventory document as
// one JSON object of the fourteen sections in registry order, ending in a
// line feed; the flash document as the object of its two members; nothing
// else.
#ifndef QOR_FUZZ_SENT_DOCUMENT_CHECK_H_
#define QOR_FUZZ_SENT_DOCUMENT_CHECK_H_

#include <string>

#include "emulator/boot.h"

namespace qor::fuzz {

// An empty text when every send is well formed, else what is wrong.
std::string CheckSentDocuments(const qor::emu::BootResult &Result);

}  // namespace qor::fuzz

#endif  // QOR_FUZZ_SENT_DOCUMENT_CHECK_H_
