// Replays a fuzz target's corpus: every file of the folders given on the
// command line goes once to LLVMFuzzerTestOneInput, in name order, so that
// the normal build checks every input the fuzzers ever kept.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(argv[i], error))
            if (entry.is_regular_file())
                files.push_back(entry.path());
        if (error) {
            std::fprintf(stderr, "cannot read %s: %s\n", argv[i], error.message().c_str());
            return 1;
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "no corpus files\n");
        return 1;
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
        // A buffer of the input's exact size, so that a read past the end is
        // a read past an allocation (an empty input still gets a valid pointer).
        const auto size = static_cast<std::size_t>(std::filesystem::file_size(file));
        std::vector<std::uint8_t> input(std::max<std::size_t>(size, 1));
        std::ifstream in(file, std::ios::binary);
        if (!in.read(reinterpret_cast<char*>(input.data()), static_cast<std::streamsize>(size))) {
            std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 1;
        }
        LLVMFuzzerTestOneInput(input.data(), size);
    }
    std::printf("%zu inputs replayed\n", files.size());
    std::fflush(stdout);
    // The kit's queues (log uploads, metric records) may still be at work on
    // what the last inputs queued: ending here without running the exit
    // handlers and static destructors under them keeps the replay about the
    // inputs alone.
    std::_Exit(0);
}
