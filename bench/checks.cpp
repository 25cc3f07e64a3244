// What the block checks cost beside the tables that others make for the same purpose.
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/crc.hpp>
#ifdef BRISOLT_BENCH_ZLIB
#include <zlib.h>
#endif

#include <brisolt.h>

#include "rows.h"

namespace bench {
namespace {

using Bytes = std::vector<unsigned char>;
using Check = std::function<uint32_t(const Bytes&)>;

struct Comparison {
    const char* name;
    const char* title;
    Check theirs, ours;
    bool sameValue; ///< both are the same check
};

int32_t length(const Bytes& bytes) {
    return static_cast<int32_t>(bytes.size());
}

std::vector<Comparison> comparisons() {
    std::vector<Comparison> all{
        {"crc16", "ComCRC16, to Boost.CRC's table",
         [](const Bytes& bytes) -> uint32_t {
             boost::crc_optimal<16, 0x1021, 0, 0, false, false> crc;
             crc.process_bytes(bytes.data(), bytes.size());
             return crc.checksum();
         },
         [](const Bytes& bytes) -> uint32_t { return ComCRC16(bytes.data(), length(bytes)); }, true}};
#ifdef BRISOLT_BENCH_ZLIB
    all.push_back({"crc32", "ComCRC32, to zlib's crc32",
                   [](const Bytes& bytes) {
                       return static_cast<uint32_t>(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
                   },
                   [](const Bytes& bytes) { return ComCRC32(bytes.data(), length(bytes)); }, false});
#endif
    return all;
}

/// Over so many bytes in all, in blocks of the sample's size; `last` is the check of the sample.
Cost measure(const Check& check, const Bytes& sample, std::size_t total, uint32_t& last) {
    uint32_t mixed = 0;
    const Stopwatch watch;
    for (std::size_t done = 0; done < total; done += sample.size())
        mixed ^= last = check(sample);
    const Cost cost = watch.read();
    // An even number of equal values: that they are looked at keeps them from being left out.
    if (mixed != 0)
        throw std::runtime_error("a check gives two values for the same bytes");
    return cost;
}

std::vector<Cost> compare(const Comparison& row, int rounds, std::size_t size, std::size_t total) {
    Bytes sample(size);
    for (std::size_t i = 0; i < size; ++i)
        sample[i] = static_cast<unsigned char>(i * 7 + i / 251);
    std::vector<double> wall, cpu;
    Cost first;
    for (int round = 0; round < rounds; ++round) {
        uint32_t theirs = 0, ours = 0;
        first = measure(row.theirs, sample, total, theirs);
        const Cost cost = measure(row.ours, sample, total, ours);
        if (row.sameValue && theirs != ours)
            throw std::runtime_error("two implementations of a check disagree");
        wall.push_back(cost.wall / first.wall);
        cpu.push_back(cost.cpu / first.cpu);
    }
    return {first, {median(wall), median(cpu)}};
}

} // namespace

std::vector<Row> checkRows(const Options& options) {
    const std::size_t total = options.quick ? 8U << 20 : 32U << 20;
    std::vector<Row> rows;
    for (const Comparison& comparison : comparisons())
        for (const std::size_t size : {std::size_t{1} << 10, std::size_t{1} << 20})
            rows.push_back({comparison.name + std::string(size < 2000 ? "-1k" : "-1m"),
                            std::string(comparison.title) + (size < 2000 ? ", 1 KB" : ", 1 MB"),
                            [=](const std::vector<const Side*>&) {
                                return compare(comparison, options.rounds, size, total);
                            }});
    return rows;
}

} // namespace bench
