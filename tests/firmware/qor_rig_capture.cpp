// qor-rig-capture: turns the bytes the rig wrote to the machine's second
// serial port during one boot into the output folder of that boot.
//
//   qor-rig-capture CHANNEL DIR [--wall-seconds S]
//
// Exit status: 0 the rig finished the boot, 2 the driver reset the machine
// (the boot ended there), 1 anything else (no rig, a crash or hang, a
// channel that cannot be read or written).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "tests/firmware/rig_capture.h"

int main(int argc, char **argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: qor-rig-capture CHANNEL DIR [--wall-seconds S]\n");
    return 1;
  }
  double WallSeconds = 0;
  for (int I = 3; I + 1 < argc; I++) {
    if (std::strcmp(argv[I], "--wall-seconds") == 0) WallSeconds = std::strtod(argv[I + 1], nullptr);
  }
  std::ifstream In(argv[1], std::ios::binary);
  if (!In) {
    std::fprintf(stderr, "qor-rig-capture: cannot read %s\n", argv[1]);
    return 1;
  }
  std::vector<uint8_t> Stream((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
  qor::rig::DecodedChannel Channel = qor::rig::DecodeFrames(Stream);
  qor::rig::RigBoot Boot = qor::rig::CollectBoot(Channel.Frames);
  try {
    qor::rig::WriteRigBootOutputs(argv[2], Boot, Channel, WallSeconds);
  } catch (const std::exception &Error) {
    std::fprintf(stderr, "qor-rig-capture: %s\n", Error.what());
    return 1;
  }

  std::printf("%s: %zu frames (%zu bad, %zu bytes outside frames)%s\n", argv[1], Channel.Frames.size(),
              Channel.BadFrames, Channel.SkippedBytes, Channel.Truncated ? ", ends inside a frame" : "");
  std::printf("  driver entry: %s\n", Boot.ReportValue("entryStatus").c_str());
  for (const auto &Upload : Boot.Uploads) std::printf("  sent %s (%zu bytes)\n", Upload.Name.c_str(), Upload.Bytes.size());
  for (const auto &Warning : Boot.RigWarnings) std::printf("  rig warning: %s\n", Warning.c_str());
  if (Boot.Version.empty()) {
    std::printf("  the rig never started\n");
    return 1;
  }
  if (Boot.Starts > 1) {
    std::printf("  the machine started the rig %zu times in one run\n", Boot.Starts);
    return 1;
  }
  if (Boot.Reset && Boot.Reset->By == "driver") {
    std::printf("  the driver reset the machine (type %u)\n", Boot.Reset->Type);
    return 2;
  }
  if (!Boot.Completed) {
    std::printf("  the boot ended before the rig finished (crash, hang or timeout)\n");
    return 1;
  }
  return 0;
}
