// A capture file that Wireshark opens: serial data with direction, time and lines (DLT_RTAC_SERIAL, 250).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class PcapFile {
public:
    /// Makes or empties the file; throws Failure.
    explicit PcapFile(const std::string& path);
    PcapFile(const PcapFile&) = delete;
    PcapFile& operator=(const PcapFile&) = delete;
    ~PcapFile();

    /// `transmitted`: from the program to the device. `lines` as ComHostGetLines gives them. Throws Failure.
    void add(std::string_view bytes, bool transmitted, int32_t lines);

private:
    std::string path_;
    int file_;
};
