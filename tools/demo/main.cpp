// brisolt-demo: carries a real text over lines of two kinds and back, and looks whether every copy is the
// same; then has the telephony service place a call.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "modem_call.h"
#include "port.h"
#include "process.h"
#include "socat_line.h"
#include "telephone_call.h"
#include "text.h"

namespace {

constexpr const char* original = "original.txt";

void append(std::vector<std::string>& all, const std::vector<std::string>& more) {
    all.insert(all.end(), more.begin(), more.end());
}

/// By sha256sum, which shows the digests, and byte by byte.
bool allTheSame(const std::string& directory, const std::vector<std::string>& files) {
    std::puts("");
    std::vector<std::string> words{"sh", "-c",
                                   "sha256sum \"$@\" | tee digests.txt;"
                                   "test \"$(cut -d ' ' -f 1 digests.txt | uniq | wc -l)\" -eq 1",
                                   "sh"};
    append(words, files);
    const std::string text = readFile(directory + "/" + files.front());
    return Process(words, directory).succeeds(10) && std::ranges::all_of(files, [&](const std::string& file) {
               return readFile(directory + "/" + file) == text;
           });
}

bool demonstrate(const std::string& directory) {
    constexpr std::size_t textSize = 300000;
    const Text text = realText(textSize);
    writeFile(directory + "/" + original, text.bytes);
    std::printf("A text of %zu bytes from %s.\n", text.bytes.size(), text.source.c_str());
    std::vector<std::string> files{original};
    append(files, carryOverSocat(directory, original));
    append(files, carryOverCall(directory, original));
    return allTheSame(directory, files);
}

} // namespace

int main() {
    // The programs that work for us and the modems, on their threads, write in between.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::string directory = (std::filesystem::temp_directory_path() / "brisolt-demo-XXXXXX").string();
    try {
        need(mkdtemp(directory.data()) != nullptr, directory + ": cannot be made");
        const bool same = demonstrate(directory);
        std::puts(same ? "All of them are the same." : "The copies DIFFER.");
        callByTelephony(directory);
        std::printf(
            "\nTo look at, in %s:\n"
            "  trace-socat.txt, trace-100.txt, trace-200.txt   every read and write of the ports\n"
            "  protocol-100.txt, protocol-200.txt              how the modems were set up\n"
            "  received-by-200.txt, back-at-100.txt            the text as it arrived over the call\n",
            directory.c_str());
        return same ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "\nbrisolt-demo: %s\nWhat there is lies in %s\n", error.what(),
                     directory.c_str());
        return 1;
    }
}
