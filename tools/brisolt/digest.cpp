#include "digest.h"

#include <array>
#include <fstream>
#include <memory>

#include <openssl/evp.h>

#include "failure.h"

std::string sha256(const std::string& file) {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    std::ifstream input(file, std::ios::binary);
    bool good = input.good() && context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
    std::array<char, 65536> block{};
    while (good && input) {
        input.read(block.data(), block.size());
        good = EVP_DigestUpdate(context.get(), block.data(), static_cast<std::size_t>(input.gcount())) == 1;
    }
    if (!good || input.bad() || EVP_DigestFinal_ex(context.get(), digest.data(), &length) != 1)
        throw Failure(file + ": its digest cannot be made");
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (unsigned i = 0; i < length; ++i)
        text += {digits[digest[i] >> 4], digits[digest[i] & 15]};
    return text;
}
