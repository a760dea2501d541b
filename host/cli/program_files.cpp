// Finds the files that come with the program by the program's own path, so that an installed tree can be moved.
#include "host/cli/program_files.h"

namespace host {

std::filesystem::path programFile(const char* szFolder, const char* szName)
{
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const auto beside = folder / szName;
    return std::filesystem::exists(beside) ? beside : folder.parent_path() / szFolder / szName;
}

std::vector<std::string> defaultModules()
{
    std::vector<std::string> paths;
    for (const char* szName : {"webapi_zem_ou.so", "webapi_zem_gpo.so", "webapi_zem_kx.so"}) {
        paths.push_back(programFile("lib/zemhost", szName));
    }
    return paths;
}

}  // namespace host
