// A trace file made by hand, from what docs/trace-files.md says and not from the library's own sources.
#ifndef NYX_TESTS_SKEIN_TRACE_IMAGE_H
#define NYX_TESTS_SKEIN_TRACE_IMAGE_H

#include <sys/types.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace skein_test {

class image_sum {
  public:
    void add(uint64_t word) {
        key_ = ((key_ << 29U) | (key_ >> 35U)) + 0x9e3779b97f4a7c15;
        sum_ += static_cast<wide>(word) * key_;
    }
    [[nodiscard]] uint64_t value() const { return static_cast<uint64_t>(sum_ >> 64U) ^ static_cast<uint64_t>(sum_); }

  private:
    __extension__ using wide = unsigned __int128;
    uint64_t key_ = 0xd6e8feb86659fd93;
    wide sum_ = 0;
};

enum image_state : uint64_t { image_free = 0, image_busy = 1, image_first = 2, image_further = 3 };

// The token of a process: 16 bits of its start time, the 22nd field of its stat line.
inline uint64_t token_of(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    std::string field;
    for (int number = 3; number <= 22; ++number) {
        fields >> field;
    }
    const uint64_t token = (std::stoull(field) * 0x9e3779b97f4a7c15) >> 48U;
    return token == 0 ? 1 : token;
}

class trace_image {
  public:
    trace_image(uint32_t slots, uint32_t slot_size) : slots_(slots), slot_words_(slot_size / 8) {
        words_.assign(4096 / 8 + static_cast<std::size_t>(slots) * slot_words_, 0);
        words_[0] = 0x0a4e49454b530d89;
        words_[1] = 1 | uint64_t{4096} << 32U;
        words_[2] = 0x0807060504030201;
        words_[3] = slot_size | static_cast<uint64_t>(slots) << 32U;
        words_[4] = 1700000000000000000;
        words_[5] = 4711;
        seal();
    }
    void seal() {
        image_sum sum;
        sum.add(0x0a4e49454b530d89);
        for (std::size_t k = 0; k < 6; ++k) {
            sum.add(words_[k]);
        }
        words_[6] = sum.value();
    }
    uint64_t &word(std::size_t offset) { return words_[offset / 8]; }
    uint64_t &next_ticket() { return word(128); }
    uint64_t *slot(uint64_t ticket) { return &words_[4096 / 8 + ticket % slots_ * slot_words_]; }

    void set_state(uint64_t ticket, image_state state) { *slot(ticket) = static_cast<uint64_t>(state) << 62U | ticket; }
    void set_busy(uint64_t ticket, pid_t pid, uint64_t token) {
        *slot(ticket) =
            uint64_t{image_busy} << 62U | static_cast<uint64_t>(pid) << 40U | token << 24U | (ticket & 0xffffffU);
    }
    // Writes an entry and returns the number of its slots; the counter is left alone.
    uint64_t put(uint64_t ticket, const std::string &text) {
        uint64_t *const first = slot(ticket);
        first[1] = 1700000000000000000 + ticket;
        first[2] = 4711 | uint64_t{4712} << 32U;
        first[3] = 99;
        first[4] = text.size() | text.size() << 32U;
        image_sum sum;
        sum.add(ticket);
        for (std::size_t k = 1; k < 5; ++k) {
            sum.add(first[k]);
        }
        uint64_t used = 1;
        uint64_t *to = first + 6;
        const uint64_t *end = first + slot_words_;
        for (std::size_t done = 0; done < text.size(); done += 8) {
            if (to == end) {
                set_state(ticket + used, image_further);
                to = slot(ticket + used) + 1;
                end = slot(ticket + used) + slot_words_;
                ++used;
            }
            *to = 0;
            std::memcpy(to, text.data() + done, std::min<std::size_t>(8, text.size() - done));
            sum.add(*to++);
        }
        first[5] = sum.value();
        set_state(ticket, image_first);
        return used;
    }
    // Appends an entry as a writer would.
    void append(const std::string &text) { next_ticket() += put(next_ticket(), text); }

    [[nodiscard]] std::string bytes() const {
        return {reinterpret_cast<const char *>(words_.data()), words_.size() * 8};
    }

  private:
    uint32_t slots_;
    std::size_t slot_words_;
    std::vector<uint64_t> words_;
};

}  // namespace skein_test

#endif
