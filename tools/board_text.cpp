#include "tools/board_text.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <iterator>

namespace qor::tool {

namespace {

constexpr size_t kLineWidth = 120;

std::string Spaces(size_t Count) { return std::string(Count, ' '); }

std::string Scalar(const rapidjson::Value &Value) {
  rapidjson::StringBuffer Buffer;
  rapidjson::Writer<rapidjson::StringBuffer> Writer(Buffer);
  Value.Accept(Writer);
  return Buffer.GetString();
}

// One line, with a space after separators: { "a": 1, "b": [2, 3] }.
std::string OneLine(const rapidjson::Value &Value) {
  if (Value.IsObject()) {
    if (Value.MemberCount() == 0) return "{}";
    std::string Text = "{ ";
    for (auto It = Value.MemberBegin(); It != Value.MemberEnd(); ++It) {
      if (It != Value.MemberBegin()) Text += ", ";
      Text += Scalar(It->name) + ": " + OneLine(It->value);
    }
    return Text + " }";
  }
  if (Value.IsArray()) {
    std::string Text = "[";
    for (rapidjson::SizeType I = 0; I < Value.Size(); I++) Text += (I == 0 ? "" : ", ") + OneLine(Value[I]);
    return Text + "]";
  }
  return Scalar(Value);
}

std::string LayOut(const rapidjson::Value &Value, size_t Indent, bool Device);

// A device: its own members on one line, the devices below it one per line.
std::string LayOutDevice(const rapidjson::Value &Device, size_t Indent) {
  std::string Text = "{ ";
  const rapidjson::Value *Children = nullptr;
  bool First = true;
  for (auto It = Device.MemberBegin(); It != Device.MemberEnd(); ++It) {
    if (std::string(It->name.GetString()) == "devices" && It->value.IsArray() && !It->value.Empty()) {
      Children = &It->value;
      continue;
    }
    Text += (First ? "" : ", ") + Scalar(It->name) + ": " + OneLine(It->value);
    First = false;
  }
  if (Children == nullptr) return Text + " }";
  Text += std::string(First ? "" : ", ") + "\"devices\": [\n";
  for (rapidjson::SizeType I = 0; I < Children->Size(); I++) {
    Text += Spaces(Indent + 2) + LayOut((*Children)[I], Indent + 2, true) + (I + 1 < Children->Size() ? ",\n" : "\n");
  }
  return Text + Spaces(Indent) + "] }";
}

bool HoldsDevices(const rapidjson::Value &Value) {
  auto It = Value.FindMember("devices");
  return It != Value.MemberEnd() && It->value.IsArray() && !It->value.Empty();
}

std::string LayOut(const rapidjson::Value &Value, size_t Indent, bool Device) {
  if (Value.IsObject() && (Device || HoldsDevices(Value))) return LayOutDevice(Value, Indent);
  std::string Line = OneLine(Value);
  if (Indent + Line.size() <= kLineWidth || !(Value.IsObject() || Value.IsArray())) return Line;
  std::string Text = Value.IsObject() ? "{\n" : "[\n";
  if (Value.IsObject()) {
    for (auto It = Value.MemberBegin(); It != Value.MemberEnd(); ++It) {
      Text += Spaces(Indent + 2) + Scalar(It->name) + ": " + LayOut(It->value, Indent + 2, false) +
              (std::next(It) != Value.MemberEnd() ? ",\n" : "\n");
    }
    return Text + Spaces(Indent) + "}";
  }
  for (rapidjson::SizeType I = 0; I < Value.Size(); I++) {
    Text += Spaces(Indent + 2) + LayOut(Value[I], Indent + 2, false) + (I + 1 < Value.Size() ? ",\n" : "\n");
  }
  return Text + Spaces(Indent) + "]";
}

}  // namespace

std::string HexText(uint64_t Value, int Digits) {
  char Text[24];
  std::snprintf(Text, sizeof(Text), "0x%0*llX", Digits, static_cast<unsigned long long>(Value));
  return Text;
}

std::string LayOutBoardText(const rapidjson::Value &Value, size_t Indent) { return LayOut(Value, Indent, false); }

}  // namespace qor::tool
