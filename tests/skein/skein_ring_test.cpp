// The ring: texts of every length, wrapping around, what is kept and what is cut.
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <numeric>
#include <optional>
#include <string>

#include "trace_files.h"

namespace {

std::optional<uid_t> pretended_user;

}  // namespace

// The library's calls come here first.
extern "C" uid_t geteuid() noexcept {
    return pretended_user.value_or(static_cast<uid_t>(syscall(SYS_geteuid)));
}

namespace skein_test {
namespace {

using testing::ElementsAre;

// A text that shows where a part of it came from.
std::string text_of(uint64_t number, std::size_t length) {
    std::string text = std::to_string(number) + ':';
    while (text.size() < length) {
        text += static_cast<char>('!' + (text.size() * 7 + number * 13) % 94);
    }
    return text.substr(0, length);
}

struct ring_sizes {
    uint32_t slots;
    uint32_t slot_size;
};

class SkeinRing : public trace_files, public testing::WithParamInterface<ring_sizes> {
  protected:
    [[nodiscard]] static std::size_t slots_of(std::size_t length) {
        const std::size_t first = GetParam().slot_size - 48;
        const std::size_t further = GetParam().slot_size - 8;
        return length <= first ? 1 : 1 + (length - first + further - 1) / further;
    }
    [[nodiscard]] static std::size_t text_max() {
        const std::size_t slots = GetParam().slots < 2 ? 1 : GetParam().slots / 2;
        return std::min<std::size_t>(SKEIN_TEXT_MAX,
                                     GetParam().slot_size - 48 + (slots - 1) * (GetParam().slot_size - 8));
    }
};

TEST_P(SkeinRing, KeepsTheNewestOfTextsOfEveryLength) {
    const auto [slots, slot_size] = GetParam();
    const uint64_t handle = open_or_fail("a", slots, slots * slot_size);
    std::deque<std::string> expected;
    std::deque<std::size_t> taken;
    for (std::size_t number = 0; number < 1801; ++number) {
        const std::size_t length = number % 601;
        const std::string text = text_of(number, length);
        ASSERT_EQ(_skein_str(handle, number, text.c_str()), 0);
        expected.push_back(text.substr(0, text_max()));
        taken.push_back(slots_of(expected.back().size()));
        while (std::accumulate(taken.begin(), taken.end(), std::size_t{0}) > slots) {
            taken.pop_front();
            expected.pop_front();
        }
        if (number % 37 == 0 || number > 1700) {
            const contents read = read_trace("a");
            ASSERT_EQ(read.texts(), std::vector<std::string>(expected.begin(), expected.end())) << number;
            ASSERT_EQ(read.entries.back().attributes, number);
            ASSERT_EQ(read.entries.back().full_length, length);
            ASSERT_EQ(read.info.damaged + read.info.unfinished + read.info.overrun + read.info.lost, 0U);
            ASSERT_EQ(read.info.next_ticket, read.entries.back().ticket + taken.back());
        }
    }
    EXPECT_EQ(skein_close(handle), 0);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SkeinRing,
                         testing::Values(ring_sizes{1, 64}, ring_sizes{1, 1024}, ring_sizes{2, 64}, ring_sizes{3, 72},
                                         ring_sizes{64, 64}, ring_sizes{100, 128}, ring_sizes{64, 256},
                                         ring_sizes{1024, 128}, ring_sizes{7, 4000}, ring_sizes{2048, 256}));

class SkeinText : public trace_files {};

TEST_F(SkeinText, LongestOneIsKeptWholeALongerOneIsCutAndSaysSo) {
    const uint64_t handle = open_or_fail("a", 4096, 4096 * 256);
    for (const std::size_t length : {65534U, 65535U, 65536U, 200000U}) {
        const std::string text = text_of(length, length);
        ASSERT_EQ(_skein_str(handle, 0, text.c_str()), 0);
        const contents read = read_trace("a");
        ASSERT_FALSE(read.entries.empty());
        EXPECT_EQ(read.entries.back().text, text.substr(0, 65535));
        EXPECT_EQ(read.entries.back().full_length, length);
    }
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinText, EveryByteComesBack) {
    const uint64_t handle = open_or_fail("a", 64, 64 * 64);
    std::string text;
    for (int byte = 1; byte < 256; ++byte) {
        text += static_cast<char>(byte);
    }
    EXPECT_EQ(_skein_str(handle, 0, text.c_str()), 0);
    EXPECT_THAT(read_trace("a").texts(), ElementsAre(text));
    EXPECT_EQ(skein_close(handle), 0);
}

class SkeinReader : public trace_files {};

TEST_F(SkeinReader, RefusesBadArguments) {
    skein_reader *reader = nullptr;
    skein_entry entry{};
    skein_file_info info{};
    EXPECT_EQ(skein_reader_open(nullptr, "a", nullptr), EINVAL);
    EXPECT_EQ(skein_reader_open(nullptr, nullptr, &reader), EINVAL);
    EXPECT_EQ(skein_reader_open(nullptr, "/a", &reader), EINVAL);
    EXPECT_EQ(skein_reader_open_path(nullptr, &reader), EINVAL);
    EXPECT_EQ(skein_reader_open_path("a", nullptr), EINVAL);
    EXPECT_EQ(skein_reader_next(nullptr, &entry), EINVAL);
    EXPECT_EQ(skein_reader_info(nullptr, &info), EINVAL);
    skein_reader_rewind(nullptr);
    skein_reader_close(nullptr);
    ASSERT_EQ(skein_close(open_or_fail("a", 4, 1024)), 0);
    ASSERT_EQ(skein_reader_open(nullptr, "a", &reader), 0);
    EXPECT_EQ(skein_reader_next(reader, nullptr), EINVAL);
    EXPECT_EQ(skein_reader_info(reader, nullptr), EINVAL);
    EXPECT_EQ(skein_reader_next(reader, &entry), ENOENT);
    skein_reader_close(reader);
}

TEST_F(SkeinReader, OpensByNameByDirectoryAndByPath) {
    const uint64_t handle = open_or_fail("d/a", 4, 1024);
    EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
    EXPECT_EQ(skein_close(handle), 0);
    skein_reader *reader = nullptr;
    int32_t error = skein_reader_open(nullptr, "d/a", &reader);
    EXPECT_THAT(read_and_close(error, reader).texts(), ElementsAre("x"));
    error = skein_reader_open(path("d").c_str(), "a", &reader);
    EXPECT_THAT(read_and_close(error, reader).texts(), ElementsAre("x"));
    error = skein_reader_open_path(path("d/a").c_str(), &reader);
    EXPECT_THAT(read_and_close(error, reader).texts(), ElementsAre("x"));
    EXPECT_EQ(skein_reader_open_path(path("d/b").c_str(), &reader), ENOENT);
    EXPECT_EQ(skein_reader_open(path("e").c_str(), "a", &reader), ENOENT);
    EXPECT_EQ(skein_reader_open_path(path("d").c_str(), &reader), EISDIR);
}

TEST_F(SkeinReader, ShowsTheFileAsItWasWhenItWasOpened) {
    const uint64_t handle = open_or_fail("a", 4, 1024);
    EXPECT_EQ(_skein_str(handle, 0, "1"), 0);
    EXPECT_EQ(_skein_str(handle, 0, "2"), 0);
    skein_reader *reader = nullptr;
    ASSERT_EQ(skein_reader_open(nullptr, "a", &reader), 0);
    EXPECT_EQ(_skein_str(handle, 0, "3"), 0);
    std::filesystem::resize_file(path("a"), 0);
    skein_entry entry{};
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(skein_reader_next(reader, &entry), 0);
        EXPECT_STREQ(entry.text, "1");
        ASSERT_EQ(skein_reader_next(reader, &entry), 0);
        EXPECT_STREQ(entry.text, "2");
        EXPECT_EQ(skein_reader_next(reader, &entry), ENOENT);
        EXPECT_EQ(skein_reader_next(reader, &entry), ENOENT);
        skein_reader_rewind(reader);
    }
    skein_reader_close(reader);
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinReader, TellsADirectoryToUse) {
    char found[1024] = {};
    EXPECT_EQ(skein_directory(found, sizeof found), 0);
    EXPECT_EQ(directory_, found);
    EXPECT_EQ(skein_directory(found, directory_.string().size() + 1), 0);
    EXPECT_EQ(skein_directory(found, directory_.string().size()), ERANGE);
    EXPECT_EQ(skein_directory(nullptr, 10), EINVAL);
    unsetenv("SKEIN_DIR");
    EXPECT_EQ(skein_directory(found, sizeof found), 0);
    EXPECT_EQ("/dev/shm/skein-" + std::to_string(geteuid()), found);
    for (const uid_t user : {0U, 9U, 10U, 1234U, 4294967294U}) {
        pretended_user = user;
        EXPECT_EQ(skein_directory(found, sizeof found), 0);
        EXPECT_EQ("/dev/shm/skein-" + std::to_string(user), found);
    }
    pretended_user.reset();
    setenv("SKEIN_DIR", "relative", 1);
    EXPECT_EQ(skein_directory(found, sizeof found), EINVAL);
    setenv("SKEIN_DIR", ("/" + std::string(1023, 'x')).c_str(), 1);
    EXPECT_EQ(skein_directory(found, sizeof found), EINVAL);
    setenv("SKEIN_DIR", ("/" + std::string(1022, 'x')).c_str(), 1);
    EXPECT_EQ(skein_directory(found, sizeof found), 0);
}

}  // namespace
}  // namespace skein_test
