// Building board members as JSON values (RapidJSON) and laying them out as
// board text people can read: short values on one line, each device of a
// "devices" list on a line of its own with its children indented below it,
// long lists one element per line.
#ifndef QOR_TOOLS_BOARD_TEXT_H_
#define QOR_TOOLS_BOARD_TEXT_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <utility>

namespace qor::tool {

using JsonAllocator = rapidjson::Document::AllocatorType;

// An object under construction; members keep the order they are set in.
class JsonObject {
 public:
  explicit JsonObject(JsonAllocator &Allocator) : Value_(rapidjson::kObjectType), Allocator_(&Allocator) {}
  JsonObject &Set(const char *Key, rapidjson::Value Member) {
    Value_.AddMember(rapidjson::StringRef(Key), Member, *Allocator_);
    return *this;
  }
  JsonObject &Set(const char *Key, const std::string &Text) {
    return Set(Key, rapidjson::Value(Text.c_str(), static_cast<rapidjson::SizeType>(Text.size()), *Allocator_));
  }
  JsonObject &Set(const char *Key, const char *Text) { return Set(Key, std::string(Text)); }
  JsonObject &Set(const char *Key, uint64_t Number) { return Set(Key, rapidjson::Value(Number)); }
  JsonObject &Set(const char *Key, int Number) { return Set(Key, rapidjson::Value(Number)); }
  JsonObject &Set(const char *Key, bool Flag) { return Set(Key, rapidjson::Value(Flag)); }
  JsonObject &Set(const char *Key, JsonObject &&Member) { return Set(Key, Member.Take()); }
  rapidjson::Value Take() { return std::move(Value_); }

 private:
  rapidjson::Value Value_;
  JsonAllocator *Allocator_;
};

// "0x8086"-style text of Value with at least Digits hexadecimal digits.
std::string HexText(uint64_t Value, int Digits = 1);

// The value as board text (no trailing line feed); Indent is the column the
// value starts at, so continuation lines line up.
std::string LayOutBoardText(const rapidjson::Value &Value, size_t Indent = 0);

}  // namespace qor::tool

#endif  // QOR_TOOLS_BOARD_TEXT_H_
