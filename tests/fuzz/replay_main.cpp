// Gives a target the files named, and those of the folders named, without a fuzzer: any compiler, any preset.

#include "fuzz/target.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

namespace {

void replay(const std::filesystem::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    std::cout << file.string() << std::endl;  // at once: the next line may be the last
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

}  // namespace

int main(int count, char **arguments)
{
    std::set<std::filesystem::path> files;
    for (int i = 1; i < count; ++i) {
        const std::filesystem::path path = arguments[i];
        if (!std::filesystem::is_directory(path)) {
            files.insert(path);
            continue;
        }
        for (const auto &entry : std::filesystem::recursive_directory_iterator(path))
            if (entry.is_regular_file())
                files.insert(entry.path());
    }
    if (files.empty()) {
        std::cerr << "there is nothing to replay" << std::endl;
        return 1;
    }
    for (const std::filesystem::path &file : files)
        replay(file);
    return 0;
}
