// Generated boards (tools/board_generator.h) load, boot and hold exactly the
// functions asked for, as lspci counts them in the dump of the boot; the
// BARs the emulator assigns them are checked against lspci's decode of the
// regions and the bridge windows.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "emulator/pci/bar_registers.h"
#include "tests/integration/lspci_decode.h"
#include "tests/integration/lspci_tool.h"
#include "tools/board_generator.h"

namespace fs = std::filesystem;

namespace {

using qor::tool::BoardShape;
using qor::tool::GenerateBoard;

class TempDir {
 public:
  TempDir() {
    std::string Pattern = (fs::temp_directory_path() / "qor-gen-XXXXXX").string();
    if (mkdtemp(Pattern.data()) != nullptr) Path = Pattern;
  }
  ~TempDir() {
    if (!Path.empty()) fs::remove_all(Path);
  }
  std::string Path;
};

std::string ShapeName(const BoardShape &Shape) {
  return std::to_string(Shape.Functions) + "f_" + std::to_string(Shape.Sockets) + "s";
}

// The boot's dump of the configuration space, as a file lspci reads.
std::string WriteDump(const TempDir &Dir, const qor::emu::BootResult &Result) {
  std::string File = Dir.Path + "/lspci.txt";
  qortest::WriteTextFile(File, Result.LspciDump);
  return File;
}

class GeneratedBoardSize : public testing::TestWithParam<BoardShape> {};

TEST_P(GeneratedBoardSize, BootsWithExactlyTheFunctionsAskedForAndIsTheSameEveryTime) {
  if (!qortest::HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
  const BoardShape Shape = GetParam();
  std::string Text = GenerateBoard(Shape);
  EXPECT_EQ(Text, GenerateBoard(Shape)) << "the same shape gives the same bytes";
  qor::emu::BootResult Result = qor::emu::RunBoot(qor::emu::ParseBoard(Text));
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
  EXPECT_NE(Result.FindUpload("push_BiosBeforeBoot.json"), nullptr);
  TempDir Dir;
  ASSERT_FALSE(Dir.Path.empty());
  std::istringstream Listing(qortest::Lspci(WriteDump(Dir, Result), ""));
  size_t Functions = 0;
  for (std::string Line; std::getline(Listing, Line);) Functions += Line.empty() ? 0 : 1;
  EXPECT_EQ(Functions, Shape.Functions);
}

INSTANTIATE_TEST_SUITE_P(Shapes, GeneratedBoardSize,
                         testing::Values(BoardShape{1, 1, 0, 10}, BoardShape{2, 1, 4, 10}, BoardShape{5, 2, 0, 10},
                                         BoardShape{33, 1, 16, 12}, BoardShape{130, 3, 20, 40},
                                         BoardShape{300, 4, 64, 100}, BoardShape{900, 2, 8, 10}),
                         [](const testing::TestParamInfo<BoardShape> &Info) { return ShapeName(Info.param); });

std::string ErrorOf(const BoardShape &Shape) {
  try {
    GenerateBoard(Shape);
  } catch (const qor::tool::ShapeError &Error) {
    return Error.what();
  }
  return "<generated>";
}

TEST(GeneratedBoard, ShapesItCannotBuildAreRefusedNamingTheArgument) {
  EXPECT_EQ(ErrorOf({64, 0, 0, 64}), "--sockets: 1 to 4, got 0");
  EXPECT_EQ(ErrorOf({64, 5, 0, 64}), "--sockets: 1 to 4, got 5");
  EXPECT_EQ(ErrorOf({0, 2, 16, 64}), "--functions: 1 to 4096, got 0");
  EXPECT_EQ(ErrorOf({4097, 4, 16, 64}), "--functions: 1 to 4096, got 4097");
  EXPECT_EQ(ErrorOf({64, 2, 33, 64}), "--dimms: at most 32 (16 slots per socket), got 33");
  EXPECT_EQ(ErrorOf({64, 2, 16, 9}), "--memory-descriptors: 10 to 65536, got 9");
  EXPECT_EQ(ErrorOf({64, 2, 16, 65537}), "--memory-descriptors: 10 to 65536, got 65537");
  // 128 buses per socket hold about 800 functions.
  EXPECT_EQ(ErrorOf({1800, 2, 16, 64}), "--functions: 900 functions on socket 0 need more than its 128 buses; give more --sockets");
  EXPECT_EQ(ErrorOf({64, 2, 32, 10}), "<generated>");
}

// Region kinds and their pools.
enum class Pool { Io, Memory, Prefetchable64 };
Pool PoolOf(const qortest::LspciRegion &R) {
  if (R.Io) return Pool::Io;
  return R.Wide && R.Prefetchable ? Pool::Prefetchable64 : Pool::Memory;
}

// The window of a bridge that forwards a region of this pool, or nullptr.
const qortest::LspciWindow *WindowFor(const qortest::LspciFunction &Bridge, Pool Kind) {
  for (const qortest::LspciWindow &W : Bridge.Windows) {
    Pool Forwards = W.Io ? Pool::Io : W.Prefetchable ? Pool::Prefetchable64 : Pool::Memory;
    if (Forwards == Kind) return &W;
  }
  return nullptr;
}

// The board gives the BAR sizes; lspci decodes where the emulator put them
// and which windows the bridges opened.
TEST(GeneratedBoard, EveryBarIsAssignedAlignedInItsPoolAndInsideTheWindowsOfEveryBridgeAbove) {
  if (!qortest::HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
  qor::emu::Board Board = qor::emu::ParseBoard(GenerateBoard({160, 2, 16, 16}));
  qor::emu::BootResult Result = qor::emu::RunBoot(Board);
  TempDir Dir;
  ASSERT_FALSE(Dir.Path.empty());
  std::map<std::string, qortest::LspciFunction> Lspci = qortest::DecodeLspci(WriteDump(Dir, Result));
  ASSERT_EQ(Lspci.size(), 160u);

  struct Placed {
    uint64_t First, Last;
    std::string Owner;
  };
  std::vector<Placed> All;
  std::map<Pool, int> Kinds;
  int Prefetchable32 = 0, Wide32 = 0;
  for (const qor::emu::PciFunctionDef &F : Board.Pci.Functions) {
    std::string Key = F.Location().Text();
    SCOPED_TRACE(Key);
    ASSERT_EQ(Lspci.count(Key), 1u);
    const qortest::LspciFunction &Shown = Lspci[Key];
    for (const qor::emu::BarRegister &Bar : qor::emu::BarsOf(F)) {
      auto Region = std::find_if(Shown.Regions.begin(), Shown.Regions.end(),
                                 [&Bar](const qortest::LspciRegion &R) { return R.Index == Bar.Index; });
      ASSERT_NE(Region, Shown.Regions.end()) << "region " << Bar.Index;
      SCOPED_TRACE(testing::Message() << "region " << Bar.Index << " at " << std::hex << Region->Address);
      ASSERT_NE(Region->Address, 0u) << "assigned";
      EXPECT_EQ(Region->Address % Bar.Size, 0u) << "aligned to its size";
      Pool Kind = PoolOf(*Region);
      Kinds[Kind]++;
      Prefetchable32 += !Region->Wide && Region->Prefetchable;
      Wide32 += Region->Wide && !Region->Prefetchable;
      uint64_t Last = Region->Address + Bar.Size - 1;
      switch (Kind) {
        case Pool::Io: EXPECT_TRUE(Region->Address >= 0x1000 && Last <= 0xFFFF); break;
        case Pool::Memory: EXPECT_TRUE(Region->Address >= 0x90000000 && Last <= 0xFBFFFFFF); break;
        case Pool::Prefetchable64: EXPECT_GE(Region->Address, 0x20000000000u); break;
      }
      for (std::string Up = Shown.Parent; !Up.empty(); Up = Lspci[Up].Parent) {
        const qortest::LspciWindow *W = WindowFor(Lspci[Up], Kind);
        EXPECT_TRUE(W != nullptr && W->First <= Region->Address && Last <= W->Last) << "behind " << Up;
      }
      All.push_back({Region->Address, Last, Key});
    }
  }
  EXPECT_GT(Kinds[Pool::Io], 0);
  EXPECT_GT(Kinds[Pool::Memory], 0);
  EXPECT_GT(Kinds[Pool::Prefetchable64], 0);
  EXPECT_GT(Prefetchable32, 0) << "a 32-bit prefetchable BAR";
  EXPECT_GT(Wide32, 0) << "a non-prefetchable 64-bit BAR";

  std::sort(All.begin(), All.end(), [](const Placed &A, const Placed &B) { return A.First < B.First; });
  for (size_t I = 1; I < All.size(); I++) {
    EXPECT_GT(All[I].First, All[I - 1].Last) << All[I - 1].Owner << " and " << All[I].Owner << " overlap";
  }
  // Bridges side by side never forward the same addresses.
  std::map<std::string, std::vector<const qortest::LspciFunction *>> BridgesBelow;
  for (const auto &[Key, F] : Lspci) {
    if (F.Buses) BridgesBelow[F.Parent].push_back(&F);
  }
  for (const auto &[Parent, Bridges] : BridgesBelow) {
    for (size_t I = 0; I < Bridges.size(); I++) {
      for (size_t J = I + 1; J < Bridges.size(); J++) {
        for (const qortest::LspciWindow &A : Bridges[I]->Windows) {
          for (const qortest::LspciWindow &B : Bridges[J]->Windows) {
            bool SameKind = A.Io == B.Io && A.Prefetchable == B.Prefetchable;
            EXPECT_FALSE(SameKind && A.First <= B.Last && B.First <= A.Last)
                << Bridges[I]->Key << " and " << Bridges[J]->Key;
          }
        }
      }
    }
  }
}

// ------------------------------------------------------------ the tool

class QorGenBoardCommand : public testing::Test {
 protected:
  int Run(const std::string &Arguments) {
    std::string Command = "'" QOR_BINARY_DIR "/qor-gen-board' " + Arguments + " >'" + Dir.Path + "/stdout' 2>'" +
                          Dir.Path + "/stderr'";
    int Status = std::system(Command.c_str());
    Out = qortest::ReadTextFile(Dir.Path + "/stdout");
    Err = qortest::ReadTextFile(Dir.Path + "/stderr");
    return WIFEXITED(Status) ? WEXITSTATUS(Status) : -1;
  }
  TempDir Dir;
  std::string Out, Err;
};

TEST_F(QorGenBoardCommand, WritesTheBoardOfItsArgumentsToAFileOrStandardOutput) {
  ASSERT_EQ(Run("--functions 40 --sockets 3 --dimms 12 --memory-descriptors 20 --out '" + Dir.Path + "/b.json'"), 0) << Err;
  EXPECT_EQ(qortest::ReadTextFile(Dir.Path + "/b.json"), GenerateBoard({40, 3, 12, 20}));
  ASSERT_EQ(Run("--functions 40"), 0) << Err;
  EXPECT_EQ(Out, GenerateBoard({40, 2, 16, 64})) << "2 sockets, one DIMM per channel, 64 descriptors";
  EXPECT_NE(Out.find("//   build/host/qor-gen-board --functions 40 --sockets 2 --dimms 16 --memory-descriptors 64"),
            std::string::npos)
      << "the board says how to make it again";
  ASSERT_EQ(Run("--sockets 1 --functions 40"), 0) << Err;
  EXPECT_EQ(Out, GenerateBoard({40, 1, 8, 64}));
}

TEST_F(QorGenBoardCommand, SaysWhatIsWrongWithItsArguments) {
  EXPECT_EQ(Run("--help"), 0);
  EXPECT_EQ(Out.rfind("Usage: qor-gen-board --functions N", 0), 0u);
  EXPECT_EQ(Run("--sockets 2"), 2);
  EXPECT_NE(Err.find("--functions is required"), std::string::npos) << Err;
  EXPECT_EQ(Run("--functions many"), 2);
  EXPECT_NE(Err.find("--functions needs a number"), std::string::npos) << Err;
  EXPECT_EQ(Run("--functions -1"), 2);
  EXPECT_EQ(Run("--functions 8 --colour"), 2);
  EXPECT_NE(Err.find("unknown argument '--colour'"), std::string::npos) << Err;
  EXPECT_EQ(Run("--functions 8 --sockets 9"), 1);
  EXPECT_NE(Err.find("--sockets: 1 to 4, got 9"), std::string::npos) << Err;
  EXPECT_EQ(Run("--functions 8 --out '" + Dir.Path + "/missing/b.json'"), 1);
  EXPECT_NE(Err.find("cannot be written"), std::string::npos) << Err;
}

}  // namespace
