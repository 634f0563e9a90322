// Reading what the driver sent and logged, shared by the unit and the
// integration tests.
#ifndef QOR_TESTS_COMMON_SENT_DOCUMENT_H_
#define QOR_TESTS_COMMON_SENT_DOCUMENT_H_

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <regex>
#include <string>
#include <vector>

#include "emulator/platform.h"

namespace qortest {

// The member names of the inventory document, in the registry's order.
inline const std::vector<std::string> kSectionOrder = {
    "BiosVersion", "PchInfo",      "CpuInfo",  "DimmResultInfo", "DimmInfo",  "VmdInfo",  "TpmInfo",
    "OnBoardSataInfo", "PcieDevice", "PcieTopology", "MiscInfo", "PcieResource", "MemoryMap", "IioInfo",
};

inline std::string Text(const std::vector<uint8_t> &Bytes) { return std::string(Bytes.begin(), Bytes.end()); }

// Parses a sent document; the test fails (and the document is null) when it
// is not exactly one JSON value.
inline rapidjson::Document Parse(const std::vector<uint8_t> &Bytes) {
  rapidjson::Document Document;
  std::string Copy = Text(Bytes);
  Document.Parse(Copy.c_str(), Copy.size());
  if (Document.HasParseError()) {
    ADD_FAILURE() << "not valid JSON at offset " << Document.GetErrorOffset() << ":\n" << Copy.substr(0, 400);
    Document.SetNull();
  }
  return Document;
}

inline std::vector<std::string> MemberNames(const rapidjson::Value &Object) {
  std::vector<std::string> Names;
  if (!Object.IsObject()) return Names;
  for (auto It = Object.MemberBegin(); It != Object.MemberEnd(); ++It) Names.emplace_back(It->name.GetString());
  return Names;
}

inline bool IsEmptyObject(const rapidjson::Value &Value) { return Value.IsObject() && Value.MemberCount() == 0; }

inline std::vector<std::string> Lines(const std::vector<qor::emu::DebugLine> &DebugLines) {
  std::vector<std::string> Out;
  for (const auto &Line : DebugLines) Out.push_back(Line.Text);
  return Out;
}

// A log with the pool addresses the driver prints ("%p": 16 hex digits) put
// as "<pointer>": they differ from boot to boot, the rest must not.
inline std::string WithoutPointers(const std::string &Log) {
  static const std::regex kPointer("\\b[0-9A-F]{16}\\b");
  return std::regex_replace(Log, kPointer, "<pointer>");
}
inline std::vector<std::string> WithoutPointers(std::vector<std::string> Lines) {
  for (std::string &Line : Lines) Line = WithoutPointers(Line);
  return Lines;
}

inline size_t CountOf(const std::vector<qor::emu::DebugLine> &DebugLines, const std::string &Text) {
  size_t Count = 0;
  for (const auto &Line : DebugLines) Count += Line.Text == Text ? 1 : 0;
  return Count;
}

// Expected lines appear in this order (other lines may come between).
inline ::testing::AssertionResult ContainsInOrder(const std::vector<std::string> &Log,
                                                  const std::vector<std::string> &Expected) {
  size_t At = 0;
  for (const std::string &Line : Expected) {
    while (At < Log.size() && Log[At] != Line) At++;
    if (At == Log.size()) return ::testing::AssertionFailure() << "missing, or out of order: \"" << Line << "\"";
    At++;
  }
  return ::testing::AssertionSuccess();
}

// Uploads of one file name, in the order sent.
inline std::vector<const qor::emu::Upload *> UploadsNamed(const std::vector<qor::emu::Upload> &Uploads,
                                                          const std::string &Name) {
  std::vector<const qor::emu::Upload *> Out;
  for (const auto &Entry : Uploads) {
    if (Entry.Name == Name) Out.push_back(&Entry);
  }
  return Out;
}

}  // namespace qortest

#endif  // QOR_TESTS_COMMON_SENT_DOCUMENT_H_
