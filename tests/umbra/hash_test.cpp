// The hash of bytes: that it stays what it is, reads what it may, and spreads.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <umbra/hash.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace umbra_test {
namespace {

uint32_t hash(const std::string &text) {
    return umbra_hash_calculate(text.data(), static_cast<uint32_t>(text.size()));
}

// 0, 1, 2, ... and again 0 after 255.
std::string counting(std::size_t length) {
    std::string result(length, '\0');
    for (std::size_t i = 0; i < length; ++i) {
        result[i] = static_cast<char>(i);
    }
    return result;
}

TEST(Hash, IsTheSameEverywhere) {
    EXPECT_EQ(hash(""), 0x247E260CU);
    EXPECT_EQ(hash("a"), 0x33097A51U);
    EXPECT_EQ(hash("abc"), 0x8C0FA985U);
    EXPECT_EQ(hash("abcd"), 0x0E3A33C7U);
    EXPECT_EQ(hash("1234567"), 0xB3D1F98EU);
    EXPECT_EQ(hash("12345678"), 0xCCEFB8A8U);
    EXPECT_EQ(hash("urn:ietf:params:xml:ns:yang:ietf-interfaces"), 0xD7F30CB3U);
    EXPECT_EQ(hash(counting(16)), 0x6FC576F4U);
    EXPECT_EQ(hash(counting(17)), 0x625AD4ECU);
    EXPECT_EQ(hash(counting(32)), 0xC116821AU);
    EXPECT_EQ(hash(counting(33)), 0x3140DB27U);
    EXPECT_EQ(hash(counting(1'000)), 0xD5B4453EU);
    EXPECT_EQ(hash(std::string(8, '\xFF')), 0x51A18AA5U);
}

TEST(Hash, TakesNullForNoBytes) {
    EXPECT_EQ(umbra_hash_calculate(nullptr, 0), hash(""));
    EXPECT_EQ(umbra_hash_calculate(nullptr, 100), hash(""));
}

TEST(Hash, DoesNotDependOnAlignment) {
    for (std::size_t length = 0; length <= 70; ++length) {
        const std::string text = counting(length);
        std::vector<char> memory(length + 16);
        for (std::size_t shift = 0; shift < 16; ++shift) {
            std::copy(text.begin(), text.end(), memory.begin() + static_cast<std::ptrdiff_t>(shift));
            ASSERT_EQ(umbra_hash_calculate(memory.data() + shift, static_cast<uint32_t>(length)), hash(text));
        }
    }
}

TEST(Hash, ReadsNoByteOutside) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void *memory = mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    char *pages = static_cast<char *>(memory);
    ASSERT_EQ(mprotect(pages, page, PROT_NONE), 0);
    ASSERT_EQ(mprotect(pages + 2 * page, page, PROT_NONE), 0);
    for (std::size_t length = 0; length <= 200; ++length) {
        const std::string text = counting(length);
        char *first = pages + page;
        char *last = pages + 2 * page - length;
        std::memcpy(first, text.data(), length);
        EXPECT_EQ(umbra_hash_calculate(first, static_cast<uint32_t>(length)), hash(text));
        std::memcpy(last, text.data(), length);
        EXPECT_EQ(umbra_hash_calculate(last, static_cast<uint32_t>(length)), hash(text));
    }
    munmap(memory, 3 * page);
}

TEST(Hash, DependsOnEachByteAndOnTheLength) {
    std::set<uint32_t> seen;
    std::size_t expected = 0;
    for (std::size_t length = 0; length <= 100; ++length) {
        seen.insert(hash(std::string(length, '\0')));
        ++expected;
        for (std::size_t i = 0; i < length; ++i) {
            std::string text(length, '\0');
            text[i] = 'x';
            seen.insert(hash(text));
            ++expected;
        }
    }
    EXPECT_EQ(seen.size(), expected);
}

// A block that cancels the constant that it is mixed with must not make the blocks before it forgotten.
TEST(Hash, RemembersWhatCameBeforeAnyBlock) {
    const uint64_t constants[] = {0x243F6A8885A308D3, 0x13198A2E03707345, 0xA4093822299F31D1, 0, ~uint64_t{0}};
    for (const uint64_t constant : constants) {
        std::set<uint32_t> seen;
        for (char first = 'a'; first <= 'z'; ++first) {
            std::string text(48, first);
            std::memcpy(text.data() + 16, &constant, sizeof constant);
            std::memcpy(text.data() + 32, &constant, sizeof constant);
            std::fill(text.begin() + 24, text.begin() + 32, 'x');
            std::fill(text.begin() + 40, text.end(), 'y');
            seen.insert(hash(text));
        }
        EXPECT_EQ(seen.size(), 26U) << std::hex << constant;
    }
}

// Each bit of the input turns each bit of the hash over in about half of the cases. With 2,000 trials the share has a
// standard deviation of 1.12 %: six of them are 6.7 %.
TEST(Hash, ABitOfTheInputTurnsOverHalfOfTheHash) {
    constexpr int trials = 2'000;
    std::mt19937_64 random(7);
    for (const std::size_t length : {1U, 3U, 4U, 7U, 8U, 15U, 16U, 17U, 40U}) {
        for (std::size_t bit = 0; bit < 8 * length; ++bit) {
            int turned[32] = {};
            for (int trial = 0; trial < trials; ++trial) {
                std::string text(length, '\0');
                std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random()); });
                const uint32_t before = hash(text);
                text[bit / 8] = static_cast<char>(text[bit / 8] ^ (1 << (bit % 8)));
                const uint32_t changed = before ^ hash(text);
                for (int i = 0; i < 32; ++i) {
                    turned[i] += static_cast<int>(changed >> i & 1);
                }
            }
            for (int i = 0; i < 32; ++i) {
                // One byte has 128 pairs of inputs only, which are as good as chance can make them.
                ASSERT_NEAR(turned[i] / double{trials}, 0.5, length == 1 ? 0.2 : 0.067)
                    << "length " << length << ", bit " << bit << " of the input, bit " << i << " of the hash";
            }
        }
    }
}

// Chi-squared over 1,024 buckets: its mean is 1,023 and its standard deviation 45.
double unevenness(const std::vector<uint32_t> &hashes, int shift) {
    constexpr std::size_t buckets = 1'024;
    std::vector<double> counts(buckets);
    for (const uint32_t h : hashes) {
        ++counts[h >> shift & (buckets - 1)];
    }
    const double expected = static_cast<double>(hashes.size()) / buckets;
    double result = 0;
    for (const double count : counts) {
        result += (count - expected) * (count - expected) / expected;
    }
    return result;
}

void expect_spread(const std::vector<std::string> &texts) {
    std::vector<uint32_t> hashes;
    hashes.reserve(texts.size());
    for (const std::string &text : texts) {
        hashes.push_back(hash(text));
    }
    for (const int shift : {0, 5, 11, 16, 22}) {
        EXPECT_LT(unevenness(hashes, shift), 1'023 + 6 * 45) << "bits from " << shift;
    }
    // Of n random numbers of 32 bits n^2 / 2^33 pairs are equal: 1.2 of 100,000.
    std::sort(hashes.begin(), hashes.end());
    const auto distinct = std::unique(hashes.begin(), hashes.end()) - hashes.begin();
    EXPECT_LE(static_cast<std::ptrdiff_t>(hashes.size()) - distinct, 8);
}

TEST(Hash, SpreadsTextsThatDifferLittle) {
    constexpr int count = 100'000;
    std::vector<std::string> decimals;
    std::vector<std::string> names;
    std::vector<std::string> numbers;
    std::vector<std::string> zeros;
    for (int i = 0; i < count; ++i) {
        decimals.push_back(std::to_string(i));
        names.push_back("urn:ietf:params:xml:ns:yang:module-" + std::to_string(i));
        numbers.emplace_back(reinterpret_cast<const char *>(&i), sizeof i);
        zeros.emplace_back(static_cast<std::size_t>(i) / 10, '\0');
        zeros.back() += static_cast<char>(i % 10);
    }
    zeros.resize(20'000);
    expect_spread(decimals);
    expect_spread(names);
    expect_spread(numbers);
    expect_spread(zeros);
}

}  // namespace
}  // namespace umbra_test
