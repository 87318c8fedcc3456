// Runs a target over the files of its corpus without a fuzzer: every seed and every past finding is a test.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i)
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            // Every truncation of a small seed is an input of its own.
            size_t from = bytes.size() > 400 ? bytes.size() : 0;
            for (size_t size = from; size <= bytes.size(); ++size)
                LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), size);
            ++files;
        }
    printf("%d files\n", files);
    return files > 0 ? 0 : 1;
}
