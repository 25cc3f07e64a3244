#pragma once

#include "term_options.h"

/// Standard input to the device and what it answers to standard output, or one question and its answer. Returns
/// when the answer has come or the line is quiet; throws Failure.
int runFilter(const TermOptions& options);
