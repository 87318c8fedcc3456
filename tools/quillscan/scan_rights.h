// The permission entries of directories.
#pragma once

#include <string>
#include <vector>

#include "scan_folder.h"

namespace quillscan {

// Fills `out` with the entries of the directory's access list and of what new entries inherit; leaves it
// empty for one whose mode tells everything, and where the lists cannot be read. `fd` is the directory open
// for reading or -1; then it is reached through the open parent and its name.
void readRights(int fd, int parent, const std::string& name, std::vector<Right>& out);

// The entries that a mode stands for: owner, group, other.
std::vector<Right> rightsOfMode(uint32_t mode);

// "owner", "default named group" and so on, and "rwx" with "-" for what is missing.
std::string typeOfRight(const Right& right);
std::string textOfRights(uint8_t rights);

}  // namespace quillscan
