// lspci (Debian package pciutils) as an oracle: it decodes dump files
// offline with -F, independently of our reader and writer.
#ifndef QOR_TESTS_INTEGRATION_LSPCI_TOOL_H_
#define QOR_TESTS_INTEGRATION_LSPCI_TOOL_H_

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace qortest {

inline const std::string kPciDumps = std::string(QOR_SOURCE_DIR) + "/tests/data/pci-dumps/";

inline std::string ReadTextFile(const std::string &Path) {
  std::ifstream In(Path, std::ios::binary);
  std::stringstream Text;
  Text << In.rdbuf();
  return Text.str();
}

inline void WriteTextFile(const std::string &Path, const std::string &Text) {
  std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
  Out << Text;
}

inline bool HaveLspci() { return std::system("command -v lspci >/dev/null 2>&1") == 0; }

// What `lspci -F File Options` prints on standard output.
inline std::string Lspci(const std::string &File, const std::string &Options) {
  std::string Output;
  FILE *Pipe = popen(("lspci -F '" + File + "' " + Options + " 2>/dev/null").c_str(), "r");
  if (Pipe == nullptr) return Output;
  char Buffer[4096];
  size_t Got;
  while ((Got = std::fread(Buffer, 1, sizeof(Buffer), Pipe)) > 0) Output.append(Buffer, Got);
  pclose(Pipe);
  return Output;
}

}  // namespace qortest

#endif  // QOR_TESTS_INTEGRATION_LSPCI_TOOL_H_
