// The rows of the table.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "paired.h"
#include "side.h"

namespace bench {

struct Options {
    int rounds = 9;
    bool quick = false;
    bool twoCores = false; ///< the far end works on another processor than we do
};

struct Row {
    std::string name, title;
    /// For every side, in their order, its ratios to the first one.
    std::function<std::vector<Cost>(const std::vector<const Side*>& sides)> measure;
    enum Who : uint8_t {
        everybody,
        manyLines,
        overNetwork,
        manyLinesOverNetwork
    } who = everybody; ///< those that can take part
    bool timed = true; ///< else there is one ratio, in `wall`
};

/// One line, far end and all held to one processor.
std::vector<Row> singlePortRows(const Options& options);
/// Many lines on all processors, and what lines cost that are only open.
std::vector<Row> manyPortRows(const Options& options);
/// Waiting for strings, to searching everything again and again; the sides have no part in it.
std::vector<Row> matchingRows(const Options& options);

/// Block checks, to what other libraries do; the sides have no part in it.
std::vector<Row> checkRows(const Options& options);
/// Text files, step by step; beside the bare calls only.
std::vector<Row> transferRows(const Options& options);

/// The work of a child process of ours, which prints one number: `idle` or `memory`, for so many lines.
int measureInChild(const std::string& what, const Side& side, std::size_t lines);

} // namespace bench
