// Where the files are that come with the program: modules, and what else it loads or serves.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace host {

// The file or folder of that name: beside the program, as in a build folder, where it is there, else in the folder of
// the installed tree whose bin/ holds the program; perhaps it is not there either. szFolder: relative to that tree,
// such as "lib/zemhost". Any thread may call it. Throws std::filesystem::filesystem_error when the system does not
// tell.
std::filesystem::path programFile(const char* szFolder, const char* szName);

// The paths of the modules that are loaded when none are named; as above.
std::vector<std::string> defaultModules();

}  // namespace host
