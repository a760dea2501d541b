// Runs a fuzz target once with every file in the given folders.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size);

int main(int argc, char** argv)
{
    int runs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string text(std::istreambuf_iterator<char>(file), {});
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(text.data()), text.size());
            ++runs;
        }
    }
    printf("%d passed, 0 failed\n", runs);
    return runs > 0 ? 0 : 1;
}
