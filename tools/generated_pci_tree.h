// The PCI tree of a generated board ("pci.hostBridges"): exactly the number
// of functions asked for, spread over the sockets (tools/board_generator.h
// describes the machine). Socket s sits on segment s / 2 with buses
// (s % 2) * 128 to (s % 2) * 128 + 127, so that bus partition mode 3 with
// divisor 1 (PCD 347 and 320) makes it CPU s.
#ifndef QOR_TOOLS_GENERATED_PCI_TREE_H_
#define QOR_TOOLS_GENERATED_PCI_TREE_H_

#include <rapidjson/document.h>

#include <cstdint>

#include "tools/board_text.h"

namespace qor::tool {

// The PCH's LPC bridge at 00:1f.0, one of the functions.
constexpr uint16_t kGeneratedPchDeviceId = 0x1B81;
constexpr uint8_t kGeneratedPchRevisionId = 0x10;

// Throws ShapeError when the functions do not fit the sockets' buses.
rapidjson::Value GeneratePciHostBridges(uint32_t Functions, uint32_t Sockets, JsonAllocator &Allocator);

}  // namespace qor::tool

#endif  // QOR_TOOLS_GENERATED_PCI_TREE_H_
