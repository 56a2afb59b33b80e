// Feeds the files of the given folders to a fuzz target that is built without a fuzzer, so that every build
// tests with what fuzzing once found. Fails when there is nothing to feed.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    std::size_t files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            // A block of exactly this size, so that a sanitizer sees a read behind it.
            const auto exact = std::make_unique<std::uint8_t[]>(bytes.size());
            std::copy(bytes.begin(), bytes.end(), exact.get());
            LLVMFuzzerTestOneInput(exact.get(), bytes.size());
            ++files;
        }
    }
    std::printf("%zu files\n", files);
    return files == 0 ? 1 : 0;
}
