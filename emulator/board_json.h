// Reading board JSON with precise errors: every value carries its path
// ("board.pcd.tokens.22"), and every reader says what it expected there.
#ifndef QOR_EMULATOR_BOARD_JSON_H_
#define QOR_EMULATOR_BOARD_JSON_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "emulator/board.h"

namespace qor::emu {

class JsonField {
 public:
  JsonField(const rapidjson::Value &Value, std::string Path) : Value_(&Value), Path_(std::move(Path)) {}

  const std::string &Path() const { return Path_; }
  const rapidjson::Value &Raw() const { return *Value_; }
  [[noreturn]] void Fail(const std::string &Expected) const;

  bool IsObject() const { return Value_->IsObject(); }
  bool IsArray() const { return Value_->IsArray(); }
  bool IsString() const { return Value_->IsString(); }
  bool IsNull() const { return Value_->IsNull(); }
  bool Has(const char *Key) const;
  JsonField At(const char *Key) const;
  std::optional<JsonField> Optional(const char *Key) const;
  // Rejects members not in Allowed, naming the allowed ones.
  void AllowOnly(std::initializer_list<const char *> Allowed) const;

  // A non-negative integer: a JSON number or a text "123" / "0x7B", at most Max.
  uint64_t Uint(uint64_t Max = UINT64_MAX) const;
  bool Bool() const;
  std::string String() const;
  // "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX".
  EFI_GUID Guid() const;
  // Bytes: an array of numbers 0..255 or a hex text ("EF 40 19", "EF4019").
  std::vector<uint8_t> Bytes() const;
  // An EFI_STATUS: a number, or its %r text ("Not Found", "Device Error").
  EFI_STATUS Status() const;
  std::vector<JsonField> Elements() const;
  std::vector<std::pair<std::string, JsonField>> Members() const;

 private:
  const rapidjson::Value *Value_;
  std::string Path_;
};

// Raw bytes at offsets of a platform data block of BlockSize bytes:
// [{"offset": N, "bytes": ...}], each ending inside the block.
std::vector<BytePatch> ParseBytePatches(const JsonField &Patches, uint64_t BlockSize, const std::string &BlockName);
// Writes the patches into Block (which holds the whole block).
void ApplyBytePatches(std::vector<uint8_t> *Block, const std::vector<BytePatch> &Patches);

// How deep arrays and objects may nest in a board. A PCI tree of 256 buses
// behind one another, two levels per bus, stays well inside it.
constexpr size_t kMaxBoardNesting = 1024;

// Parses a JSON text (comments and trailing commas allowed, UTF-8 only,
// nesting at most kMaxBoardNesting) into Document, throwing BoardError with
// the offset of the fault.
void ParseBoardDocument(const std::string &Text, rapidjson::Document *Document);

EFI_GUID ParseGuidText(const std::string &Text, bool *Ok);
std::string GuidToText(const EFI_GUID &Guid);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_BOARD_JSON_H_
