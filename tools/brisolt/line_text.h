// A port's line in words.
#pragma once

#include <cstdint>
#include <string>

/// "115200 8N1, RTS/CTS": what the device runs at now.
std::string lineText(int32_t port);
/// "DTR on, RTS off, CTS on, ..." or that the device has none.
std::string linesText(int32_t port);
/// The same of a state of ComHostGetLines.
std::string linesText(int32_t port, int32_t lines);
/// "received 12, sent 34, framing errors 1, ...": bytes always, the rest where there is some.
std::string countersText(int32_t port);
