// Finds the files that come with the program: its modules and the console's page.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace host {

// Returns the path of a file or folder that comes with the program: beside the program if it exists there, as in a
// build folder, else in the installed tree whose bin/ holds the program, where it may be missing too. szFolder: its
// folder in that tree, such as "lib/zemhost". Any thread may call it. Throws std::filesystem::filesystem_error when the
// system cannot say where the program is.
std::filesystem::path programFile(const char* szFolder, const char* szName);

// Returns the paths of the modules that are loaded by default. Threads and exceptions: as for programFile.
std::vector<std::string> defaultModules();

}  // namespace host
