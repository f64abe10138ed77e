// The reader of trace files on files that are damaged in any way, and the viewer's lines of what it reads.
//
// What is asserted: a file is read or refused with EBADMSG; what is read is what an independent reading of the layout
// finds there: every entry stands in the file with its ticket, its lengths and the right checksum, none of those that
// are to be read is left out, and the figures of damaged entries and unfinished slots are those of that reading;
// tickets rise, the second reading gives the same, and the number of entries is the announced one; of a file that
// writers alone have made the newest entries are all read; a line of JSON parses and says what the entry says, and a
// line for a terminal holds nothing that a terminal would obey.
//
// Input: 'R' and the bytes of a file, whose header's checksum is made right if the next byte is odd; or two bytes for
// the sizes of a ring and operations that make and damage one.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "../tests/skein/trace_image.h"
#include "fuzz_target.h"
#include "print.h"
#include "skein/reader.h"

namespace nyx_fuzz {
namespace {

using skein_test::image_sum;
using skein_test::trace_image;

constexpr std::size_t header_bytes = 4096;

uint64_t word_at(const std::string &file, uint64_t offset) {
    uint64_t word = 0;
    if (offset < file.size()) {  // what the file lacks reads as zeros
        std::memcpy(&word, file.data() + offset, std::min<uint64_t>(8, file.size() - offset));
    }
    return word;
}

void set_word(std::string &file, uint64_t offset, uint64_t word) {
    if (offset + 8 <= file.size()) {
        std::memcpy(file.data() + offset, &word, 8);
    }
}

void seal(std::string &file) {
    image_sum sum;
    sum.add(word_at(file, 0));
    for (uint64_t offset = 0; offset < 48; offset += 8) {
        sum.add(word_at(file, offset));
    }
    set_word(file, 48, sum.value());
}

// What a reader has to find in a file that nobody writes to.
struct survey {
    std::vector<uint64_t> tickets;  // of the entries, ascending
    uint64_t damaged = 0;
    uint64_t unfinished = 0;
};

// The layout, as docs/trace-files.md has it.
class layout {
  public:
    explicit layout(const std::string &file)
        : file_(file), slot_size_(word_at(file, 24) & UINT32_MAX), slot_count_(word_at(file, 24) >> 32U) {}

    // Only of files whose header has sizes that are possible.
    [[nodiscard]] survey take_survey() const {
        const uint64_t end = newest_end();
        const uint64_t begin = std::min(lap_before(taken_end(end)), end);
        const uint64_t intact = lap_before(std::max(end, word_at(file_, 128)));
        survey out;
        for (uint64_t index = 0; index < present_slots(); ++index) {
            const uint64_t word = word_of(index, 0);
            out.unfinished += word >> 62U == state_busy ? 1 : 0;
            const uint64_t ticket = ticket_from(begin, index);
            if (word == 0 || word >> 62U == state_busy || ticket >= end) {
                continue;
            }
            if (word != (state_first << 62U | ticket)) {
                out.damaged += (word & ticket_bits) % slot_count_ != index ? 1 : 0;  // a ticket of some other slot
            } else if (is_entry(ticket)) {
                out.tickets.push_back(ticket);
            } else {
                out.damaged += ticket >= intact ? 1 : 0;  // an older one may have lost slots to who drew a ticket
            }
        }
        std::sort(out.tickets.begin(), out.tickets.end());
        return out;
    }

    // The entry of a ticket, checked, as the layout describes it. Nothing: there is none.
    [[nodiscard]] std::optional<std::string> text_of(uint64_t ticket) const {
        const uint64_t first = slot(ticket);
        const uint64_t length = word_at(file_, first + 32) & UINT32_MAX;
        const uint64_t full_length = word_at(file_, first + 32) >> 32U;
        if (word_at(file_, first) != (state_first << 62U | ticket) || length > std::min(longest_text(), full_length)) {
            return std::nullopt;
        }
        image_sum sum;
        sum.add(ticket);
        for (uint64_t offset = 8; offset < 40; offset += 8) {
            sum.add(word_at(file_, first + offset));
        }
        std::string text;
        uint64_t at = first + 48;
        uint64_t end = first + slot_size_;
        for (uint64_t further = ticket; text.size() < length; at += 8) {
            if (at == end) {
                ++further;
                if (word_at(file_, slot(further)) != (state_further << 62U | further)) {
                    return std::nullopt;
                }
                at = slot(further) + 8;
                end = slot(further) + slot_size_;
            }
            const uint64_t word = word_at(file_, at);
            sum.add(word);
            text.append(reinterpret_cast<const char *>(&word), 8);
        }
        text.resize(length);
        return sum.value() == word_at(file_, first + 40) ? std::optional(text) : std::nullopt;
    }

    [[nodiscard]] uint64_t word_of(uint64_t ticket, uint64_t offset) const {
        return word_at(file_, slot(ticket) + offset);
    }

  private:
    // States, in the top two bits of a slot's first word.
    static constexpr uint64_t state_busy = 1;
    static constexpr uint64_t state_first = 2;
    static constexpr uint64_t state_further = 3;
    static constexpr uint64_t ticket_bits = (uint64_t{1} << 62U) - 1;
    static constexpr uint64_t ticket_limit = uint64_t{1} << 61U;

    [[nodiscard]] uint64_t slot(uint64_t ticket) const { return header_bytes + ticket % slot_count_ * slot_size_; }

    // A file that was cut off has fewer than its header tells.
    [[nodiscard]] uint64_t present_slots() const {
        const uint64_t bytes = file_.size() - std::min(file_.size(), header_bytes);
        return std::min(slot_count_, (bytes + slot_size_ - 1) / slot_size_);
    }

    [[nodiscard]] uint64_t lap_before(uint64_t ticket) const { return ticket - std::min(ticket, slot_count_); }

    // The first ticket of the slot that is not below another ticket.
    [[nodiscard]] uint64_t ticket_from(uint64_t least, uint64_t index) const {
        return least + (index + slot_count_ - least % slot_count_) % slot_count_;
    }

    [[nodiscard]] bool is_entry(uint64_t ticket) const { return ticket < ticket_limit && text_of(ticket).has_value(); }

    [[nodiscard]] uint64_t slots_of(uint64_t length) const {
        const uint64_t in_first = slot_size_ - 48;
        return length <= in_first ? 1 : 1 + (length - in_first + slot_size_ - 9) / (slot_size_ - 8);
    }

    // The ticket behind the newest entry.
    [[nodiscard]] uint64_t newest_end() const {
        uint64_t end = 0;
        for (uint64_t index = 0; index < present_slots(); ++index) {
            const uint64_t ticket = word_of(index, 0) & ticket_bits;
            if (ticket % slot_count_ == index && is_entry(ticket)) {
                end = std::max(end, ticket + slots_of(text_of(ticket)->size()));
            }
        }
        return end;
    }

    // The ticket behind all that writers have taken since the newest entry: slots that are busy or were given up.
    [[nodiscard]] uint64_t taken_end(uint64_t newest_end) const {
        uint64_t end = newest_end;
        for (uint64_t index = 0; index < present_slots(); ++index) {
            const uint64_t ticket = ticket_from(newest_end, index);
            const uint64_t word = word_of(index, 0);
            const bool is_busy = word >> 62U == state_busy && (word & 0xFFFFFFU) == (ticket & 0xFFFFFFU);
            if (is_busy || word == ticket) {
                end = std::max(end, ticket + 1);
            }
        }
        return end;
    }

    [[nodiscard]] uint64_t longest_text() const {
        const uint64_t slots = std::max<uint64_t>(slot_count_ / 2, 1);
        return std::min<uint64_t>(65535, slot_size_ - 48 + (slots - 1) * (slot_size_ - 8));
    }

    const std::string &file_;
    uint64_t slot_size_;
    uint64_t slot_count_;
};

// A file in memory, under an ordinary path.
class memory_file {
  public:
    explicit memory_file(const std::string &content) : file_(memfd_create("trace", MFD_CLOEXEC)) {
        REQUIRE(file_ >= 0, std::to_string(errno));
        REQUIRE(write(file_, content.data(), content.size()) == static_cast<ssize_t>(content.size()), "write");
    }
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;
    ~memory_file() { close(file_); }

    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

  private:
    int file_;
};

void require_entry(const skein_entry &entry, const layout &file) {
    const std::string where = "ticket " + std::to_string(entry.ticket);
    const std::optional<std::string> text = file.text_of(entry.ticket);
    REQUIRE(text.has_value(), where);
    REQUIRE(entry.length == text->size() && std::memcmp(entry.text, text->data(), text->size()) == 0, where);
    REQUIRE(entry.text[entry.length] == '\0' && entry.length <= entry.full_length, where);
    REQUIRE(entry.time == file.word_of(entry.ticket, 8), where);
    REQUIRE((entry.pid | uint64_t{entry.tid} << 32U) == file.word_of(entry.ticket, 16), where);
    REQUIRE(entry.attributes == file.word_of(entry.ticket, 24), where);
    REQUIRE(entry.full_length == file.word_of(entry.ticket, 32) >> 32U, where);
}

void require_lines(const skein_entry &entry) {
    const std::string json = format_entry(entry, {.json = true});
    const nlohmann::json object = nlohmann::json::parse(json, nullptr, false);
    REQUIRE(!object.is_discarded() && json.find('\n') == std::string::npos, json);
    REQUIRE(object["ticket"] == entry.ticket && object["nanoseconds"] == std::to_string(entry.time), json);
    REQUIRE(object["pid"] == entry.pid && object["tid"] == entry.tid, json);
    REQUIRE(object.contains("full_length") == (entry.full_length > entry.length), json);
    const std::string_view text(entry.text, entry.length);
    const bool is_ascii = std::all_of(text.begin(), text.end(), [](char c) { return c >= 0; });
    REQUIRE(!is_ascii || object["text"] == text, json);
    const std::string line = format_entry(entry, {.attributes = true});
    const bool is_harmless =
        std::none_of(line.begin(), line.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; });
    REQUIRE(is_harmless, line);
}

struct reading {
    int32_t result = 0;
    skein_file_info info{};
    std::vector<std::string> texts;
};

void require_survey(const survey &expected, const std::vector<uint64_t> &tickets, const skein_file_info &info) {
    REQUIRE(tickets == expected.tickets,
            std::to_string(tickets.size()) + " / " + std::to_string(expected.tickets.size()));
    REQUIRE(info.damaged == expected.damaged, std::to_string(info.damaged) + " / " + std::to_string(expected.damaged));
    REQUIRE(info.unfinished == expected.unfinished,
            std::to_string(info.unfinished) + " / " + std::to_string(expected.unfinished));
}

void require_info(const reading &of, const std::string &file) {
    const uint64_t ring = uint64_t{of.info.slot_size} * of.info.slot_count;
    REQUIRE(of.info.entries == of.texts.size(), std::to_string(of.info.entries));
    REQUIRE((of.info.truncated != 0) == (file.size() < header_bytes + ring), std::to_string(of.info.truncated));
    REQUIRE(of.info.next_ticket == word_at(file, 128) && of.info.lost == word_at(file, 256), "counters");
    REQUIRE((of.info.superseded != 0) == (word_at(file, 136) != 0), std::to_string(of.info.superseded));
    REQUIRE(of.info.created == word_at(file, 32) && of.info.creator == (word_at(file, 40) & UINT32_MAX), "creation");
    REQUIRE(of.info.overrun == 0, "nobody writes");
    const nlohmann::json object = nlohmann::json::parse(format_file("a.trace", of.info, true), nullptr, false);
    REQUIRE(!object.is_discarded() && object["entries"] == of.info.entries, "file");
    REQUIRE(!format_file("a.trace", of.info, false).empty(), "file");
}

reading read_file(const std::string &file) {
    const memory_file stored(file);
    const layout expected(file);
    skein_reader *reader = nullptr;
    reading out;
    out.result = skein_reader_open_path(stored.path().c_str(), &reader);
    REQUIRE((reader != nullptr) == (out.result == 0), std::to_string(out.result));
    if (reader == nullptr) {
        REQUIRE(out.result == EBADMSG, std::to_string(out.result));
        return out;
    }
    skein_entry entry;
    std::vector<uint64_t> tickets;
    while (skein_reader_next(reader, &entry) == 0) {
        REQUIRE(tickets.empty() || tickets.back() < entry.ticket, std::to_string(entry.ticket));
        tickets.push_back(entry.ticket);
        out.texts.emplace_back(entry.text, entry.length);
        require_entry(entry, expected);
        require_lines(entry);
    }
    skein_reader_rewind(reader);
    for (std::size_t i = 0; i < tickets.size(); ++i) {
        REQUIRE(skein_reader_next(reader, &entry) == 0 && entry.ticket == tickets[i], std::to_string(tickets[i]));
        REQUIRE(out.texts[i] == std::string_view(entry.text, entry.length), std::to_string(tickets[i]));
    }
    REQUIRE(skein_reader_next(reader, &entry) == ENOENT && skein_reader_info(reader, &out.info) == 0, "the end");
    skein_reader_close(reader);
    require_info(out, file);
    require_survey(expected.take_survey(), tickets, out.info);
    return out;
}

// A ring that is made, and then damaged, as the input says.
class workshop {
  public:
    workshop(input &in, uint32_t slots, uint32_t slot_size)
        : in_(in), slots_(slots), slot_words_(slot_size / 8), image_(slots, slot_size) {
        const uint64_t most = slots < 2 ? 1 : slots / 2;
        longest_text_ = slot_size - 48 + (most - 1) * (slot_size - 8);
    }

    void work() {
        while (!in_.empty() && made_ < most_operations) {
            ++made_;
            step(in_.byte());
        }
        file_ = image_.bytes();
        file_.resize(file_.size() - std::min<uint64_t>(cut_, file_.size()));
        for (const auto &[offset, value] : bytes_) {
            if (offset < file_.size()) {
                file_[offset] = static_cast<char>(value);
            }
        }
    }

    [[nodiscard]] const std::string &file() const { return file_; }
    [[nodiscard]] bool is_sound() const { return is_sound_; }

    // The texts that are there, oldest first, as far as the newest `slots` tickets go.
    [[nodiscard]] std::vector<std::string> expected() {
        std::vector<std::string> out;
        const uint64_t oldest = image_.next_ticket() > slots_ ? image_.next_ticket() - slots_ : 0;
        for (const auto &[ticket, text] : appended_) {
            if (ticket >= oldest) {
                out.push_back(text);
            }
        }
        return out;
    }

  private:
    static constexpr unsigned most_operations = 400;

    void step(uint8_t operation) {
        if (operation % 8 < 3) {
            append();
            return;
        }
        is_sound_ = false;
        switch (operation % 8) {
            case 3:
                damage_slot(operation / 8);
                break;
            case 4:
                image_.next_ticket() = number_near(image_.next_ticket());
                break;
            case 5:
                image_.put(number_near(image_.next_ticket()) & ticket_bits, some_text());
                break;
            case 6:
                cut_ = in_.number(2);
                break;
            default: {
                const uint64_t offset = in_.number(2);
                bytes_.emplace_back((operation & 8U) != 0 ? offset : header_bytes + offset, in_.byte());
            }
        }
    }

    void append() {
        if (is_sound_) {
            appended_.emplace_back(image_.next_ticket(), some_text());
            image_.append(appended_.back().second);
        } else if (image_.next_ticket() <= ticket_bits) {
            image_.append(some_text());
        }
    }

    void damage_slot(unsigned how) {
        const uint64_t ticket = number_near(image_.next_ticket());
        switch (how % 4) {
            case 0:
                image_.set_state(ticket & ticket_bits, static_cast<skein_test::image_state>(in_.byte() % 4));
                break;
            case 1:
                image_.set_busy(ticket, in_.byte(), in_.byte());
                break;
            case 2:
                image_.slot(ticket)[in_.byte() % 8] = in_.number(8);
                break;
            default:
                image_.slot(ticket)[4] = in_.number(2) | in_.number(2) << 32U;
                reseal(ticket & ticket_bits);
        }
    }

    // Makes the checksum right of what stands in the slots of an entry, so that nothing but its lengths can be wrong.
    void reseal(uint64_t ticket) {
        uint64_t *const first = image_.slot(ticket);
        image_sum sum;
        sum.add(ticket);
        for (unsigned word = 1; word < 5; ++word) {
            sum.add(first[word]);
        }
        const uint64_t words = (std::min(first[4] & UINT32_MAX, longest_text_) + 7) / 8;
        uint64_t slot = ticket;
        for (uint64_t done = 0, word = 6; done < words; ++done, ++word) {
            if (word == slot_words_) {
                ++slot;
                word = 1;
            }
            sum.add(image_.slot(slot)[word]);
        }
        first[5] = sum.value();
    }

    uint64_t number_near(uint64_t centre) {
        const uint8_t how = in_.byte();
        return how == 255 ? in_.number(8) : how >= 128 ? centre - (how & 127U) : centre + how;
    }

    std::string some_text() {
        const uint64_t length = uint64_t{in_.byte()} * (slots_ > 8 ? 4 : 1);
        std::string text(in_.take(length));
        text.resize(std::min<uint64_t>(length, longest_text_), '.');
        return text;
    }

    static constexpr uint64_t ticket_bits = (uint64_t{1} << 62U) - 1;

    input &in_;
    uint64_t slots_;
    uint64_t slot_words_;
    uint64_t longest_text_ = 0;
    trace_image image_;
    std::string file_;
    unsigned made_ = 0;
    bool is_sound_ = true;
    uint64_t cut_ = 0;
    std::vector<std::pair<uint64_t, uint8_t>> bytes_;
    std::vector<std::pair<uint64_t, std::string>> appended_;
};

void read_given_file(input &in) {
    const bool is_to_be_sealed = in.byte() % 2 != 0;
    std::string file(in.rest());
    if (is_to_be_sealed) {
        seal(file);
    }
    read_file(file);
}

void read_made_file(input &in) {
    const uint32_t slots = 1 + in.byte() % 48;
    const uint32_t slot_size = 64 + in.byte() % 16 * 8;
    workshop shop(in, slots, slot_size);
    shop.work();
    const reading read = read_file(shop.file());
    REQUIRE(!shop.is_sound() || (read.result == 0 && read.info.damaged == 0), std::to_string(read.info.damaged));
    REQUIRE(!shop.is_sound() || read.texts == shop.expected(), std::to_string(read.texts.size()));
}

}  // namespace
}  // namespace nyx_fuzz

// What a damaged header asks for may be more than there is: the reader says so, the sanitizer is not to.
extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    nyx_fuzz::input in(data, size);
    if (size != 0 && data[0] == 'R') {
        in.byte();
        nyx_fuzz::read_given_file(in);
    } else {
        nyx_fuzz::read_made_file(in);
    }
    return 0;
}
