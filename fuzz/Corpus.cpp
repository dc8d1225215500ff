// Runs a fuzz target over the files of its corpus, without libFuzzer: for the tests of every build.
//   corpus_TARGET DIRECTORY
#include "Dunlin/Types.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size);
// The targets' own mutators call it; nothing is mutated here.
extern "C" std::size_t LLVMFuzzerMutate(U8*, std::size_t size, std::size_t) {
    return size;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("wanted: the directory of the corpus\n", stderr);
        return 2;
    }
    int inputs = 0;
    for (auto const& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::vector<char> const bytes{std::istreambuf_iterator<char>(file), {}};
        std::printf("%s\n", entry.path().filename().c_str());
        std::fflush(stdout); // which one it was, should it end here
        LLVMFuzzerTestOneInput(reinterpret_cast<U8 const*>(bytes.data()), bytes.size());
        ++inputs;
    }
    return inputs == 0; // an empty corpus checks nothing
}
