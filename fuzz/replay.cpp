// Feeds the targets with what is in the corpus, FOLDER/TARGET/*: brisolt-fuzz-replay FOLDER.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "targets.h"

int main(int count, char** words) {
    for (const auto& target : brisolt::fuzz::targets) {
        int inputs = 0;
        const std::filesystem::path folder = std::filesystem::path(count > 1 ? words[1] : ".") / target.name;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            std::printf("%s\r", entry.path().c_str());
            std::fflush(stdout); // the last one is what ended us
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string input{std::istreambuf_iterator<char>(file), {}};
            target.feed(input);
            ++inputs;
        }
        std::printf("%s: %d inputs\n", target.name, inputs);
        if (inputs == 0)
            return 1;
    }
    return 0;
}
