#pragma once

#include "term_options.h"

/// A user at his terminal. Returns when he quits; throws Failure.
int runSession(const TermOptions& options);
