// The text of a dump, gathered in a buffer of a fixed size.
//
// It grows piece by piece, and looks as if each line were formatted into what is left of the buffer as a whole: what
// comes after the piece that did not fit changes nothing any more.
#ifndef NYX_DUMP_TEXT_H
#define NYX_DUMP_TEXT_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

namespace nyx {

class dump_text {
  public:
    void add(std::string_view text) {
        if (text.size() >= room()) {
            cut_behind(text.data());
            return;
        }
        std::memcpy(end(), text.data(), text.size());
        length_ += text.size();
    }

    // Looks at no more of the text than there is room for. Null is empty.
    void add_text(const char *text) {
        if (text != nullptr) {
            add({text, strnlen(text, room())});
        }
    }

    void add_blanks(std::uint64_t count) {
        if (count >= room()) {
            cut_behind_blanks();
            return;
        }
        std::memset(end(), ' ', count);
        length_ += count;
    }

    void add_number(std::int32_t number) {
        char digits[sizeof "-2147483648"];
        const char *const last = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
        add({digits, static_cast<std::size_t>(last - digits)});
    }

    [[nodiscard]] std::string_view text() const { return {buffer_, length_}; }

    void clear() { length_ = 0; }

  private:
    static constexpr std::uint64_t capacity = 1024;  // formatting would need one of them for its terminator

    char *end() { return buffer_ + length_; }
    [[nodiscard]] std::uint64_t room() const { return capacity - length_; }

    // What there is room for, of a text that is at least that long.
    [[gnu::cold, gnu::noinline]] void cut_behind(const char *text) {
        std::memcpy(end(), text, room() - 1);
        mark_as_cut();
    }

    [[gnu::cold, gnu::noinline]] void cut_behind_blanks() {
        std::memset(end(), ' ', room() - 1);
        mark_as_cut();
    }

    void mark_as_cut() {
        constexpr std::string_view marker = "[TRUNCATED...]";
        length_ = capacity - 1;
        std::memcpy(end() - marker.size(), marker.data(), marker.size());
    }

    std::uint64_t length_ = 0;
    char buffer_[capacity];
};

}  // namespace nyx

#endif
