#include "emulator/board_json.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/encodedstream.h>
#include <rapidjson/reader.h>

#include <cctype>
#include <cstdio>
#include <cstring>

#include "platform/print_lib.h"

namespace qor::emu {

void JsonField::Fail(const std::string &Expected) const {
  throw BoardError(Path_ + ": expected " + Expected);
}

bool JsonField::Has(const char *Key) const { return Value_->IsObject() && Value_->HasMember(Key); }

JsonField JsonField::At(const char *Key) const {
  if (!Value_->IsObject()) Fail("an object");
  auto It = Value_->FindMember(Key);
  if (It == Value_->MemberEnd()) throw BoardError(Path_ + ": missing member \"" + Key + "\"");
  return JsonField(It->value, Path_ + "." + Key);
}

std::optional<JsonField> JsonField::Optional(const char *Key) const {
  if (!Value_->IsObject()) Fail("an object");
  auto It = Value_->FindMember(Key);
  if (It == Value_->MemberEnd()) return std::nullopt;
  return JsonField(It->value, Path_ + "." + Key);
}

void JsonField::AllowOnly(std::initializer_list<const char *> Allowed) const {
  if (!Value_->IsObject()) Fail("an object");
  for (auto It = Value_->MemberBegin(); It != Value_->MemberEnd(); ++It) {
    bool Known = false;
    for (const char *Name : Allowed) Known = Known || std::strcmp(Name, It->name.GetString()) == 0;
    if (!Known) {
      std::string List;
      for (const char *Name : Allowed) List += (List.empty() ? "" : ", ") + std::string(Name);
      throw BoardError(Path_ + "." + It->name.GetString() + ": unknown member; expected one of: " + List);
    }
  }
}

uint64_t JsonField::Uint(uint64_t Max) const {
  uint64_t Result = 0;
  if (Value_->IsUint64()) {
    Result = Value_->GetUint64();
  } else if (Value_->IsString()) {
    std::string Text = Value_->GetString();
    std::string Digits;
    for (char C : Text) {
      if (C != '_') Digits.push_back(C);
    }
    int Base = 10;
    size_t Start = 0;
    if (Digits.size() > 2 && Digits[0] == '0' && (Digits[1] == 'x' || Digits[1] == 'X')) {
      Base = 16;
      Start = 2;
    }
    if (Start >= Digits.size()) Fail("a number (decimal or 0x-prefixed hexadecimal)");
    for (size_t I = Start; I < Digits.size(); I++) {
      int D = std::isdigit(static_cast<unsigned char>(Digits[I])) ? Digits[I] - '0'
              : (Base == 16 && std::isxdigit(static_cast<unsigned char>(Digits[I])))
                  ? std::tolower(static_cast<unsigned char>(Digits[I])) - 'a' + 10
                  : -1;
      if (D < 0) Fail("a number (decimal or 0x-prefixed hexadecimal), got \"" + Text + "\"");
      if (Result > (UINT64_MAX - static_cast<uint64_t>(D)) / static_cast<uint64_t>(Base)) {
        Fail("a number that fits 64 bits");
      }
      Result = Result * static_cast<uint64_t>(Base) + static_cast<uint64_t>(D);
    }
  } else {
    Fail("a non-negative integer");
  }
  if (Result > Max) Fail("a number of at most " + std::to_string(Max) + ", got " + std::to_string(Result));
  return Result;
}

bool JsonField::Bool() const {
  if (!Value_->IsBool()) Fail("true or false");
  return Value_->GetBool();
}

std::string JsonField::String() const {
  if (!Value_->IsString()) Fail("a string");
  return std::string(Value_->GetString(), Value_->GetStringLength());
}

EFI_GUID JsonField::Guid() const {
  bool Ok = false;
  EFI_GUID Result = ParseGuidText(String(), &Ok);
  if (!Ok) Fail("a GUID like \"9B28FEDE-ACBB-478E-8AD6-488CDE1800F8\"");
  return Result;
}

std::vector<uint8_t> JsonField::Bytes() const {
  std::vector<uint8_t> Out;
  if (Value_->IsArray()) {
    size_t I = 0;
    for (const auto &Element : Value_->GetArray()) {
      Out.push_back(static_cast<uint8_t>(JsonField(Element, Path_ + "[" + std::to_string(I++) + "]").Uint(255)));
    }
    return Out;
  }
  if (!Value_->IsString()) Fail("bytes: an array of numbers or a hexadecimal text");
  std::string Hex;
  for (const char *P = Value_->GetString(); *P != '\0'; P++) {
    if (std::isspace(static_cast<unsigned char>(*P)) || *P == ':' || *P == '-') continue;
    if (!std::isxdigit(static_cast<unsigned char>(*P))) Fail("bytes as hexadecimal text");
    Hex.push_back(*P);
  }
  if (Hex.size() % 2 != 0) Fail("bytes as hexadecimal text with an even number of digits");
  for (size_t I = 0; I < Hex.size(); I += 2) {
    Out.push_back(static_cast<uint8_t>(std::stoul(Hex.substr(I, 2), nullptr, 16)));
  }
  return Out;
}

EFI_STATUS JsonField::Status() const {
  if (Value_->IsString()) {
    std::string Text = Value_->GetString();
    for (uint64_t Code = 0; Code < 64; Code++) {
      for (EFI_STATUS Candidate : {static_cast<EFI_STATUS>(Code), static_cast<EFI_STATUS>(MAX_BIT | Code)}) {
        const char *Name = QorStatusText(Candidate);
        if (Name != nullptr && Text == Name) return Candidate;
      }
    }
  }
  if (Value_->IsString() || Value_->IsUint64()) return Uint();
  Fail("a status: a number or a status text such as \"Device Error\"");
}

std::vector<JsonField> JsonField::Elements() const {
  if (!Value_->IsArray()) Fail("an array");
  std::vector<JsonField> Out;
  size_t I = 0;
  for (const auto &Element : Value_->GetArray()) Out.emplace_back(Element, Path_ + "[" + std::to_string(I++) + "]");
  return Out;
}

std::vector<std::pair<std::string, JsonField>> JsonField::Members() const {
  if (!Value_->IsObject()) Fail("an object");
  std::vector<std::pair<std::string, JsonField>> Out;
  for (auto It = Value_->MemberBegin(); It != Value_->MemberEnd(); ++It) {
    std::string Key = It->name.GetString();
    Out.emplace_back(Key, JsonField(It->value, Path_ + "." + Key));
  }
  return Out;
}

std::vector<BytePatch> ParseBytePatches(const JsonField &Patches, uint64_t BlockSize, const std::string &BlockName) {
  std::vector<BytePatch> Out;
  for (const JsonField &Entry : Patches.Elements()) {
    Entry.AllowOnly({"offset", "bytes"});
    BytePatch Patch{Entry.At("offset").Uint(BlockSize - 1), Entry.At("bytes").Bytes()};
    if (Patch.Offset + Patch.Bytes.size() > BlockSize) {
      Entry.Fail("bytes that end inside the " + std::to_string(BlockSize) + "-byte " + BlockName);
    }
    Out.push_back(std::move(Patch));
  }
  return Out;
}

void ApplyBytePatches(std::vector<uint8_t> *Block, const std::vector<BytePatch> &Patches) {
  for (const BytePatch &Patch : Patches) {
    if (!Patch.Bytes.empty()) std::memcpy(Block->data() + Patch.Offset, Patch.Bytes.data(), Patch.Bytes.size());
  }
}

namespace {

// Comments and trailing commas are allowed; text must be UTF-8, so that
// everything a board carries can be written back out as valid JSON.
constexpr unsigned kBoardParseFlags =
    rapidjson::kParseCommentsFlag | rapidjson::kParseTrailingCommasFlag | rapidjson::kParseValidateEncodingFlag;

// Counts how deep arrays and objects nest and stops the reader past the
// bound, before anything recursive (the document parser, merging, copying)
// sees the text.
struct NestingGuard : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, NestingGuard> {
  size_t Depth = 0;
  bool TooDeep = false;
  bool Enter() {
    TooDeep = ++Depth > kMaxBoardNesting;
    return !TooDeep;
  }
  bool StartObject() { return Enter(); }
  bool StartArray() { return Enter(); }
  bool EndObject(rapidjson::SizeType) { return Depth-- > 0; }
  bool EndArray(rapidjson::SizeType) { return Depth-- > 0; }
};

}  // namespace

void ParseBoardDocument(const std::string &Text, rapidjson::Document *Document) {
  rapidjson::MemoryStream Memory(Text.data(), Text.size());
  rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> Stream(Memory);
  rapidjson::Reader Reader;
  NestingGuard Guard;
  Reader.Parse<kBoardParseFlags | rapidjson::kParseIterativeFlag>(Stream, Guard);
  if (Guard.TooDeep) {
    throw BoardError("board: arrays and objects nest more than " + std::to_string(kMaxBoardNesting) +
                     " levels deep at offset " + std::to_string(Reader.GetErrorOffset()));
  }
  Document->Parse<kBoardParseFlags>(Text.c_str(), Text.size());
  if (Document->HasParseError()) {
    throw BoardError("board: not valid JSON at offset " + std::to_string(Document->GetErrorOffset()) + ": " +
                     rapidjson::GetParseError_En(Document->GetParseError()));
  }
  if (!Document->IsObject()) throw BoardError("board: expected an object at the top level");
}

EFI_GUID ParseGuidText(const std::string &Text, bool *Ok) {
  EFI_GUID Guid{};
  unsigned int D1 = 0, D2 = 0, D3 = 0, B[8] = {};
  int Consumed = 0;
  *Ok = Text.size() == 36 &&
        std::sscanf(Text.c_str(), "%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x%n", &D1, &D2, &D3, &B[0], &B[1], &B[2],
                    &B[3], &B[4], &B[5], &B[6], &B[7], &Consumed) == 11 &&
        Consumed == 36;
  if (!*Ok) return Guid;
  Guid.Data1 = D1;
  Guid.Data2 = static_cast<uint16_t>(D2);
  Guid.Data3 = static_cast<uint16_t>(D3);
  for (int I = 0; I < 8; I++) Guid.Data4[I] = static_cast<uint8_t>(B[I]);
  return Guid;
}

std::string GuidToText(const EFI_GUID &Guid) {
  char Text[40];
  std::snprintf(Text, sizeof(Text), "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", Guid.Data1, Guid.Data2,
                Guid.Data3, Guid.Data4[0], Guid.Data4[1], Guid.Data4[2], Guid.Data4[3], Guid.Data4[4],
                Guid.Data4[5], Guid.Data4[6], Guid.Data4[7]);
  return Text;
}

}  // namespace qor::emu
