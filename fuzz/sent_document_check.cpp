#include "fuzz/sent_document_check.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include "emulator/boot_report.h"

namespace qor::fuzz {

namespace {

// Iterative: the document's depth is the driver's to bound, not this check's.
bool ParseSent(const std::vector<uint8_t> &Bytes, rapidjson::Document *Document, std::string *Fault) {
  const std::string Text(Bytes.begin(), Bytes.end());
  if (Text.find('\0') != std::string::npos) {
    *Fault = "holds a NUL byte";
    return false;
  }
  Document->Parse<rapidjson::kParseIterativeFlag>(Text.c_str(), Text.size());
  if (Document->HasParseError()) {
    *Fault = "is not valid JSON at offset " + std::to_string(Document->GetErrorOffset()) + ": " +
             rapidjson::GetParseError_En(Document->GetParseError());
    return false;
  }
  if (!Document->IsObject()) {
    *Fault = "is not a JSON object";
    return false;
  }
  return true;
}

std::string CheckInventory(const std::vector<uint8_t> &Bytes) {
  rapidjson::Document Document;
  std::string Fault;
  if (!ParseSent(Bytes, &Document, &Fault)) return Fault;
  if (Bytes.back() != '\n') return "does not end in a line feed";
  size_t I = 0;
  for (auto It = Document.MemberBegin(); It != Document.MemberEnd(); ++It, ++I) {
    if (I >= qor::emu::kSectionNames.size()) return "has more than the fourteen sections";
    if (qor::emu::kSectionNames[I] != It->name.GetString()) {
      return "has member " + std::to_string(I) + " \"" + It->name.GetString() + "\" where \"" +
             qor::emu::kSectionNames[I] + "\" belongs";
    }
  }
  if (I != qor::emu::kSectionNames.size()) return "has " + std::to_string(I) + " sections, not fourteen";
  return "";
}

std::string CheckFlash(const std::vector<uint8_t> &Bytes) {
  rapidjson::Document Document;
  std::string Fault;
  if (!ParseSent(Bytes, &Document, &Fault)) return Fault;
  auto It = Document.MemberBegin();
  if (Document.MemberCount() != 2 || std::string(It->name.GetString()) != "Bios Rom Size" || !It->value.IsString() ||
      std::string((It + 1)->name.GetString()) != "Flash ID" || !(It + 1)->value.IsUint()) {
    return "is not {\"Bios Rom Size\": text, \"Flash ID\": number}";
  }
  return "";
}

}  // namespace

std::string CheckSentDocuments(const qor::emu::BootResult &Result) {
  for (const qor::emu::Upload &Entry : Result.Uploads) {
    std::string Fault;
    if (Entry.Bytes.empty()) {
      Fault = "is empty";
    } else if (Entry.Name == "push_BiosBeforeBoot.json") {
      Fault = CheckInventory(Entry.Bytes);
    } else if (Entry.Name == "push_FlashInfo.json") {
      Fault = CheckFlash(Entry.Bytes);
    } else {
      Fault = "is not a file the driver sends";
    }
    if (!Fault.empty()) return Entry.StoredName + " " + Fault;
  }
  return "";
}

}  // namespace qor::fuzz
