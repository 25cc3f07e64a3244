// FNV-1a: enough to see that two long streams are the same without keeping both.
#pragma once

#include <cstdint>
#include <string_view>

namespace brisolt::test {

class Digest {
public:
    void add(std::string_view bytes) {
        for (const char byte : bytes)
            value_ = (value_ ^ static_cast<unsigned char>(byte)) * 0x100000001b3U;
    }
    uint64_t value() const { return value_; }

private:
    uint64_t value_ = 0xcbf29ce484222325U;
};

inline uint64_t digestOf(std::string_view bytes) {
    Digest digest;
    digest.add(bytes);
    return digest.value();
}

} // namespace brisolt::test
