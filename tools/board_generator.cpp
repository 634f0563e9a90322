#include "tools/board_generator.h"

#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "tools/board_text.h"
#include "tools/generated_memory.h"
#include "tools/generated_pci_tree.h"

namespace qor::tool {

namespace {

using rapidjson::Value;

void Check(const BoardShape &Shape) {
  if (Shape.Sockets < 1 || Shape.Sockets > kMaxGeneratedSockets) {
    throw ShapeError("--sockets: 1 to " + std::to_string(kMaxGeneratedSockets) + ", got " + std::to_string(Shape.Sockets));
  }
  if (Shape.Functions < 1 || Shape.Functions > kMaxGeneratedFunctions) {
    throw ShapeError("--functions: 1 to " + std::to_string(kMaxGeneratedFunctions) + ", got " +
                     std::to_string(Shape.Functions));
  }
  uint32_t Slots = Shape.Sockets * kDimmSlotsPerSocket;
  if (Shape.Dimms > Slots) {
    throw ShapeError("--dimms: at most " + std::to_string(Slots) + " (" + std::to_string(kDimmSlotsPerSocket) +
                     " slots per socket), got " + std::to_string(Shape.Dimms));
  }
  if (Shape.MemoryDescriptors < kMinMemoryDescriptors || Shape.MemoryDescriptors > kMaxMemoryDescriptors) {
    throw ShapeError("--memory-descriptors: " + std::to_string(kMinMemoryDescriptors) + " to " +
                     std::to_string(kMaxMemoryDescriptors) + ", got " + std::to_string(Shape.MemoryDescriptors));
  }
}

Value Repeated(Value Item, uint32_t Count, JsonAllocator &A) {
  Value Out(rapidjson::kArrayType);
  for (uint32_t I = 0; I < Count; I++) Out.PushBack(Value(Item, A), A);
  return Out;
}

// Processors, their caches and the platform data that counts sockets.
void AddSockets(const BoardShape &Shape, JsonAllocator &A, JsonObject *Board, JsonObject *Hobs, JsonObject *Smbios) {
  Value Caches(rapidjson::kArrayType), Processors(rapidjson::kArrayType), Topology(rapidjson::kArrayType);
  Value Ppins(rapidjson::kArrayType);
  for (uint32_t S = 0; S < kMaxGeneratedSockets; S++) {
    std::string Cpu = "cpu" + std::to_string(S);
    JsonObject Processor(A);
    Processor.Set("socket", "CPU" + std::to_string(S));
    if (S >= Shape.Sockets) {
      Processor.Set("populated", false);
      Processors.PushBack(Processor.Take(), A);
      Ppins.PushBack(Value("0", A), A);
      continue;
    }
    const struct {
      const char *Name;
      int Level;
      int SizeKb;
    } Levels[] = {{"l1", 1, 2560}, {"l2", 2, 65536}, {"l3", 3, 61440}};
    for (const auto &L : Levels) {
      JsonObject Cache(A);
      Cache.Set("id", Cpu + "-" + L.Name).Set("designation", "L" + std::to_string(L.Level) + "-Cache");
      Cache.Set("level", L.Level).Set("sizeKb", L.SizeKb);
      Caches.PushBack(Cache.Take(), A);
    }
    Processor.Set("manufacturer", "Qor Silicon").Set("version", "Qor QS-9432 32-Core Processor");
    Processor.Set("id", "51 0F 09 00 FF FB EB BF").Set("externalClock", 100).Set("maxSpeed", 4000);
    Processor.Set("currentSpeed", 2100).Set("upgrade", "0x01").Set("coreCount", 32).Set("coresEnabled", 32);
    Processor.Set("threadCount", 64).Set("characteristics", "0x00FC");
    Processor.Set("serialNumber", "QS9432-" + HexText(0x0A71 + S, 4).substr(2)).Set("partNumber", "QS-9432");
    Processor.Set("l1", Cpu + "-l1").Set("l2", Cpu + "-l2").Set("l3", Cpu + "-l3");
    Processors.PushBack(Processor.Take(), A);
    Ppins.PushBack(Value(HexText(0x2F4E3A1B6C7D8E91ULL + S, 16).c_str(), A), A);
    JsonObject Socket(A);
    Socket.Set("valid", true).Set("chopType", 3);
    Topology.PushBack(Socket.Take(), A);
  }
  Smbios->Set("caches", std::move(Caches)).Set("processors", std::move(Processors));
  JsonObject Mrc(A);
  Mrc.Set("ppins", std::move(Ppins)).Set("socketResults", DimmTrainingResults(Shape.Sockets, Shape.Dimms, A));
  Hobs->Set("mrcData", std::move(Mrc)).Set("processorSpeed", Repeated(Value(40), Shape.Sockets, A));
  JsonObject SystemTopology(A);
  SystemTopology.Set("sockets", std::move(Topology));
  Board->Set("systemTopology", std::move(SystemTopology));
  JsonObject Power(A);
  Power.Set("tdp", Repeated(Value(270), Shape.Sockets, A));
  Board->Set("cpuPower", std::move(Power));
}

}  // namespace

std::string GeneratorCommandLine(const BoardShape &Shape) {
  return "qor-gen-board --functions " + std::to_string(Shape.Functions) + " --sockets " + std::to_string(Shape.Sockets) +
         " --dimms " + std::to_string(Shape.Dimms) + " --memory-descriptors " + std::to_string(Shape.MemoryDescriptors);
}

std::string GenerateBoard(const BoardShape &Shape) {
  Check(Shape);
  rapidjson::Document Document;
  JsonAllocator &A = Document.GetAllocator();
  JsonObject Board(A);
  Board.Set("name", "generated: " + std::to_string(Shape.Sockets) + " sockets, " + std::to_string(Shape.Functions) +
                        " PCI functions, " + std::to_string(Shape.Dimms) + " DIMMs, " +
                        std::to_string(Shape.MemoryDescriptors) + " memory descriptors");
  // Bus partition mode 3 with divisor 1: socket s's buses are on segment
  // s / 2 from (s % 2) * 128.
  JsonObject Tokens(A);
  Tokens.Set("22", static_cast<int>(Shape.Sockets)).Set("320", 1).Set("347", 3);
  JsonObject Pcd(A);
  Pcd.Set("tokens", std::move(Tokens));
  Board.Set("pcd", std::move(Pcd));
  JsonObject Pch(A);
  Pch.Set("deviceId", HexText(kGeneratedPchDeviceId, 4)).Set("revisionId", HexText(kGeneratedPchRevisionId, 2));
  Board.Set("pch", std::move(Pch));

  JsonObject Hobs(A), Smbios(A);
  AddSockets(Shape, A, &Board, &Hobs, &Smbios);
  AddDimms(Shape.Sockets, Shape.Dimms, A, &Hobs, &Smbios);
  Board.Set("hobs", std::move(Hobs));
  Board.Set("smbios", std::move(Smbios));
  JsonObject SystemInformation(A);
  SystemInformation.Set("cpuBitMap", static_cast<int>((1u << Shape.Sockets) - 1));
  Board.Set("systemInformation", std::move(SystemInformation));
  JsonObject MemoryMap(A);
  MemoryMap.Set("descriptors", MemoryDescriptors(Shape.MemoryDescriptors, DramBytes(Shape.Dimms), A));
  Board.Set("memoryMap", std::move(MemoryMap));
  JsonObject Pci(A);
  Pci.Set("hostBridges", GeneratePciHostBridges(Shape.Functions, Shape.Sockets, A));
  Pci.Set("functions", Value(rapidjson::kArrayType)).Set("nicDb", Value(rapidjson::kArrayType));
  Board.Set("pci", std::move(Pci));

  std::string Header = "// A board generated by qor-gen-board (docs/board-generator.md), laid over the\n"
                       "// built-in board. Regenerate it with\n"
                       "//   build/host/" + GeneratorCommandLine(Shape) + " --out FILE\n";
  return Header + LayOutBoardText(Board.Take()) + "\n";
}

}  // namespace qor::tool
