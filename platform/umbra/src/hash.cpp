// Sixteen bytes at a time are mixed by one multiplication of 64 by 64 bits whose two halves are folded together: the
// scheme of the wyhash family. What is left at the end is read again together with bytes before it, so that no length
// needs a loop over single bytes.
#include "umbra/hash.h"

#include <bit>
#include <cstring>

namespace {

__extension__ using wide = unsigned __int128;

// Digits of pi, made odd: numbers that nobody chose for a purpose.
constexpr uint64_t pi_1 = 0x243F6A8885A308D3;
constexpr uint64_t pi_2 = 0x13198A2E03707345;
constexpr uint64_t pi_3 = 0xA4093822299F31D1;

// The factors themselves take part: a factor that happens to be 0 does not make one forget the other.
constexpr uint64_t fold(uint64_t a, uint64_t b) {
    const wide product = static_cast<wide>(a) * b;
    return a ^ b ^ static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

uint64_t read_8(const unsigned char *at) {
    uint64_t value;
    std::memcpy(&value, at, sizeof value);
    return std::endian::native == std::endian::little ? value : __builtin_bswap64(value);
}

uint64_t read_4(const unsigned char *at) {
    uint32_t value;
    std::memcpy(&value, at, sizeof value);
    return std::endian::native == std::endian::little ? value : __builtin_bswap32(value);
}

struct two_words {
    uint64_t first;
    uint64_t second;
};

// All of up to 16 bytes.
two_words read_short(const unsigned char *at, uint64_t length) {
    if (length >= 8) {
        return {read_8(at), read_8(at + length - 8)};
    }
    if (length >= 4) {
        return {read_4(at), read_4(at + length - 4)};
    }
    if (length > 0) {
        return {uint64_t{at[0]} << 16 | uint64_t{at[length / 2]} << 8 | at[length - 1], 0};
    }
    return {0, 0};
}

}  // namespace

uint32_t umbra_hash_calculate(const void *bytes, uint32_t length) {
    const auto *at = static_cast<const unsigned char *>(bytes);
    uint64_t left = at != nullptr ? length : 0;
    uint64_t state = pi_1 * (left + 1);  // spread over all bits: no change of a few bytes makes up for another length
    two_words last;
    if (left <= 16) {
        last = read_short(at, left);
    } else {
        for (; left > 16; left -= 16, at += 16) {
            state = fold(read_8(at) ^ pi_2, read_8(at + 8) ^ state);
        }
        last = {read_8(at + left - 16), read_8(at + left - 8)};
    }
    const uint64_t mixed = fold(fold(last.first ^ pi_3, last.second ^ state), pi_2);
    return static_cast<uint32_t>(mixed ^ (mixed >> 32));
}
