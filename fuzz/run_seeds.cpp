// Runs every file of the folder named on the command line through the fuzz target, once.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int argc, char **argv)
{
    int runs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
            ++runs;
        }
    }
    std::printf("%d seeds\n", runs);
    return runs > 0 ? 0 : 1;
}
