// brisolt-bench: what a port of ours costs beside reading, writing and polling the bare descriptor, and
// beside other libraries for the same purpose.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "far_end.h"
#include "rows.h"

namespace {

using namespace bench;

constexpr const char* usage =
    "usage: brisolt-bench [--quick] [--only NAME] [--rounds N] [--two-cores]\n"
    "  --quick      less of everything, for a first look\n"
    "  --only NAME  only rows whose name contains NAME; \"--only ?\" lists the names\n"
    "  --rounds N   rounds in which the sides take turns (9)\n"
    "  --two-cores  the far end on another processor than ours\n";

constexpr const char* heading =
    "Ratios to bare read, write and poll on the same pseudo terminal or connection with the same far end,\n"
    "in the same run:\n"
    "1.00 is as long as those take, below is faster. First time on the clock, then processor time of this\n"
    "process; the far end is another. Medians over %d rounds in which the sides take turns.\n"
    "One port: this process is held to one processor, the far end to %s, and no processor sleeps.\n"
    "Many ports: on all processors. Idle: voluntary context switches of the whole process in 2 s; the\n"
    "one of the bare poll is 1.00. Over a network: to a plain socket, many to a bare epoll. Memory: "
    "resident; 1.00 is a descriptor with two buffers of 4 KB.\n\n";

/// Null, and a word about the reason, when the library does not take a pseudo terminal.
const Side* willing(const Side& side) {
    try {
        side.open(silentLines(1).front());
        return &side;
    } catch (const std::exception& error) {
        std::printf("%s does not take part, it refuses pseudo terminals: %s\n\n", side.name, error.what());
        return nullptr;
    }
}

void printHeads(const std::vector<const Side*>& sides) {
    std::printf("%-42s", "");
    for (std::size_t i = 1; i < sides.size(); ++i)
        std::printf("%17s", sides[i]->name);
    std::printf("\n%-42s", "");
    for (std::size_t i = 1; i < sides.size(); ++i)
        std::printf("%9s%8s", "clock", "cpu");
    std::printf("\n");
}

/// `columns` are the sides of the heads, of which `measured` took part in the row.
void printRow(const Row& row, const std::vector<const Side*>& columns,
              const std::vector<const Side*>& measured, const std::vector<Cost>& ratios) {
    std::printf("%-42s", row.title.c_str());
    std::size_t i = 1;
    for (std::size_t column = 1; column < columns.size() && i < ratios.size(); ++column) {
        if (i < measured.size() && measured[i] != columns[column]) {
            std::printf("%17s", "");
            continue;
        }
        std::printf("%9.2f", ratios[i].wall);
        if (row.timed)
            std::printf("%8.2f", ratios[i].cpu);
        else
            std::printf("%8s", "");
        ++i;
    }
    std::printf("\n");
    std::fflush(stdout);
}

int runTable(const Options& options, const std::string& only) {
    std::vector<Row> rows = singlePortRows(options);
    for (auto* more : {transferRows, manyPortRows, matchingRows, checkRows})
        for (Row& row : more(options))
            rows.push_back(std::move(row));
    if (only == "?") {
        for (const Row& row : rows)
            std::printf("%-12s %s\n", row.name.c_str(), row.title.c_str());
        return 0;
    }

    std::printf(heading, options.rounds, options.twoCores ? "another" : "the same");
    const std::vector<const Side*> many{&rawSide, &brisoltSide, &asioSide};
    const std::vector<const Side*> network{&rawSide, &exchangeSide, &brisoltSide};
    const std::vector<const Side*> manyOverNetwork{&rawSide, &brisoltSide};
    std::vector<const Side*> all{&rawSide, &exchangeSide, &brisoltSide, &asioSide};
    if (const Side* side = willing(serialportSide))
        all.push_back(side);
    printHeads(all);
    for (const Row& row : rows) {
        const std::vector<const Side*>& sides = row.who == Row::manyLines              ? many
                                                : row.who == Row::overNetwork          ? network
                                                : row.who == Row::manyLinesOverNetwork ? manyOverNetwork
                                                                                       : all;
        if (row.name.find(only) != std::string::npos)
            printRow(row, all, sides, row.measure(sides));
    }
    return 0;
}

int runChild(const std::string& what, const std::string& name, const std::string& lines) {
    for (const Side* side : {&rawSide, &brisoltSide, &asioSide})
        if (name == side->name)
            return measureInChild(what, *side, std::strtoul(lines.c_str(), nullptr, 10));
    return 2;
}

int run(int argc, char** argv) {
    Options options;
    std::string only;
    int rounds = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--child" && i + 3 < argc)
            return runChild(argv[i + 1], argv[i + 2], argv[i + 3]);
        if (word == "--quick")
            options.quick = true;
        else if (word == "--two-cores")
            options.twoCores = true;
        else if (word == "--only" && i + 1 < argc)
            only = argv[++i];
        else if (word == "--rounds" && i + 1 < argc && std::atoi(argv[i + 1]) > 0)
            rounds = std::atoi(argv[++i]);
        else {
            std::fputs(usage, word == "--help" ? stdout : stderr);
            return word == "--help" ? 0 : 2;
        }
    }
    if (options.quick)
        options.rounds = 3;
    if (rounds > 0)
        options.rounds = rounds;
    return runTable(options, only);
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brisolt-bench: %s\n", error.what());
        return 1;
    }
}
