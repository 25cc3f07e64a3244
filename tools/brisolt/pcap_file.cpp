#include "pcap_file.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <brisolt_host.h>

#include "failure.h"
#include "output.h"

namespace {

constexpr uint32_t magic = 0xa1b2c3d4, longest = 262144, linkType = 250;
constexpr uint32_t version = 2U | 4U << 16;
constexpr char transmitStart = 1, receiveStart = 2;
constexpr std::size_t headSize = 12;

/// In the byte order of this machine, as the magic number tells readers.
template <std::size_t Count> std::string words(const std::array<uint32_t, Count>& values) {
    return {reinterpret_cast<const char*>(values.data()), sizeof values};
}

char lineBits(int32_t lines) {
    constexpr std::array<std::pair<int32_t, int>, 6> bits{{{COM_HOST_MODEM_CTS, 0x01},
                                                           {COM_HOST_MODEM_CARRIER, 0x02},
                                                           {COM_HOST_MODEM_DSR, 0x04},
                                                           {COM_HOST_MODEM_RTS, 0x08},
                                                           {COM_HOST_MODEM_DTR, 0x10},
                                                           {COM_HOST_MODEM_RING, 0x20}}};
    int result = 0;
    for (const auto& [line, bit] : bits)
        result |= lines >= 0 && (lines & line) != 0 ? bit : 0;
    return static_cast<char>(result);
}

} // namespace

PcapFile::PcapFile(const std::string& path)
    : path_(path), file_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY | O_CLOEXEC, 0666)) {
    if (file_ < 0)
        throw Failure(path + ": " + std::strerror(errno));
    writeAll(file_, words<6>({magic, version, 0, 0, longest, linkType}), path_);
}

PcapFile::~PcapFile() {
    close(file_);
}

void PcapFile::add(std::string_view bytes, bool transmitted, int32_t lines) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    const auto size = static_cast<uint32_t>(headSize + bytes.size());
    std::string record = words<4>({static_cast<uint32_t>(microseconds / 1000000),
                                   static_cast<uint32_t>(microseconds % 1000000), size, size});
    std::string head(headSize, '\0');
    for (std::size_t i = 0; i < 4; ++i) {
        head[i] = static_cast<char>(microseconds / 1000000 >> (24 - 8 * i));
        head[4 + i] = static_cast<char>(microseconds % 1000000 >> (24 - 8 * i));
    }
    head[8] = transmitted ? transmitStart : receiveStart;
    head[9] = lineBits(lines);
    writeAll(file_, record + head + std::string(bytes), path_);
}
