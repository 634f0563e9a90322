#include "tools/output_folder.h"

#include <cctype>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace qor::tool {

namespace fs = std::filesystem;

namespace {

// A decimal number without a leading zero ("2", "15"; not "0", "02", "").
bool IsCounter(const std::string &Text) {
  if (Text.empty() || Text[0] == '0') return false;
  for (char C : Text) {
    if (!std::isdigit(static_cast<unsigned char>(C))) return false;
  }
  return true;
}

// The names the driver sends; a repeat is stored as STEM.K.json (K >= 2).
bool IsSentDocument(const std::string &Name) {
  for (const char *Stem : {"push_BiosBeforeBoot", "push_FlashInfo"}) {
    const std::string Prefix = std::string(Stem) + ".";
    if (Name == Prefix + "json") return true;
    if (Name.size() > Prefix.size() + 5 && Name.compare(0, Prefix.size(), Prefix) == 0 &&
        Name.compare(Name.size() - 5, 5, ".json") == 0) {
      const std::string Counter = Name.substr(Prefix.size(), Name.size() - Prefix.size() - 5);
      if (IsCounter(Counter) && Counter != "1") return true;
    }
  }
  return false;
}

void Remove(const fs::path &Path) {
  std::error_code Error;
  fs::remove(Path, Error);
  if (Error) throw std::runtime_error("cannot remove " + Path.string() + ": " + Error.message());
}

// Owned files only: a folder that happens to carry an owned name is not
// ours. The names are gathered first; the folder is not changed while read.
void RemoveOwnedFiles(const fs::path &Directory) {
  std::vector<fs::path> Owned;
  std::error_code Error;
  for (fs::directory_iterator It(Directory, Error); !Error && It != fs::directory_iterator(); It.increment(Error)) {
    if (!IsOwnedOutputFile(It->path().filename().string())) continue;
    const fs::file_type Type = fs::symlink_status(It->path(), Error).type();
    if (Type == fs::file_type::regular || Type == fs::file_type::symlink) Owned.push_back(It->path());
  }
  if (Error) throw std::runtime_error("cannot read " + Directory.string() + ": " + Error.message());
  for (const fs::path &Path : Owned) Remove(Path);
}

}  // namespace

bool IsOwnedOutputFile(const std::string &Name) {
  return Name == "debug.log" || Name == "boot.json" || Name == "variables.json" || Name == "smbios.bin" ||
         IsSentDocument(Name);
}

bool IsBootFolderName(const std::string &Name) { return Name.rfind("boot-", 0) == 0 && IsCounter(Name.substr(5)); }

void RemoveOwnedOutputs(const fs::path &Directory) {
  std::error_code Error;
  if (fs::symlink_status(Directory, Error).type() == fs::file_type::not_found) return;
  if (!fs::is_directory(Directory, Error)) return;  // writing into it will say what is wrong
  RemoveOwnedFiles(Directory);
  std::vector<fs::path> BootFolders;
  for (fs::directory_iterator It(Directory, Error); !Error && It != fs::directory_iterator(); It.increment(Error)) {
    if (IsBootFolderName(It->path().filename().string()) &&
        fs::symlink_status(It->path(), Error).type() == fs::file_type::directory) {
      BootFolders.push_back(It->path());
    }
  }
  if (Error) throw std::runtime_error("cannot read " + Directory.string() + ": " + Error.message());
  for (const fs::path &Folder : BootFolders) {
    RemoveOwnedFiles(Folder);
    if (fs::is_empty(Folder, Error) && !Error) Remove(Folder);
  }
}

}  // namespace qor::tool
