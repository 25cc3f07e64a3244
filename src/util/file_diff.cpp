#include "util/file_diff.h"

#include <algorithm>

namespace brisolt {

namespace {

file::File openForComparison(const char* name) noexcept {
    return {name, {file::Access::read, file::Sharing::all}};
}

bool comparable(const char* name) noexcept {
    return file::exists(name, file::Access::read, file::Sharing::all);
}

} // namespace

FilePair::FilePair(const char* firstName, const char* secondName) noexcept : refusal(noFirstFile) {
    if (!comparable(firstName))
        return;
    refusal = noSecondFile;
    if (!comparable(secondName))
        return;
    first = openForComparison(firstName);
    second = openForComparison(secondName);
    refusal = !first ? noFirstFile : !second ? noSecondFile : 0;
}

int32_t firstDifference(const char* firstName, const char* secondName) noexcept {
    FilePair files(firstName, secondName);
    if (files.refusal != 0)
        return files.refusal;
    for (int64_t compared = 0;; compared += files.firstCount) {
        files.read();
        if (files.firstCount < 0 || files.secondCount < 0)
            return readFailure;
        if (files.firstCount != files.secondCount)
            return lengthsDiffer;
        if (files.firstCount == 0)
            return 0;
        auto begin = files.firstBlock.begin();
        auto end = begin + files.firstCount;
        auto differing = std::mismatch(begin, end, files.secondBlock.begin()).first;
        if (differing != end)
            return static_cast<int32_t>(std::min<int64_t>(compared + (differing - begin) + 1, INT32_MAX));
    }
}

} // namespace brisolt
