// Lines of text in a buffer of the caller: what does not fit is left out, and control characters stay on their line.
#ifndef UMBRA_TEXT_LINE_H
#define UMBRA_TEXT_LINE_H

#include <stddef.h>
#include <stdint.h>

namespace umbra {

class text_line {
  public:
    // The last `reserve` bytes are used by a line that fits as a whole, and by the mark of one that does not.
    text_line(char *buffer, size_t capacity, size_t reserve = 0)
        : begin_(buffer), position_(buffer), end_(buffer + capacity), reserve_(end_ - reserve) {}

    void put(char c);
    void put(const char *text);
    // In decimal, with leading zeros up to `digits` of them.
    void put_number(uint64_t number, uint32_t digits = 1);
    // Tabulator, line feed and carriage return become \t, \n and \r; each byte of other control characters, of changes
    // of direction, and of what is not UTF-8 becomes \xNN.
    void put_escaped(const char *text, size_t length);

    // Ends a line of which something is missing with a mark, no longer than the reserve.
    void mark_cut(const char *mark);
    // Did anything not fit?
    [[nodiscard]] bool is_cut() const { return is_cut_; }
    [[nodiscard]] size_t size() const { return static_cast<size_t>(position_ - begin_); }

  private:
    // Of what does not fit, the first divisible(bytes, room) bytes are kept.
    void put_bytes(const char *bytes, size_t count, size_t (*divisible)(const char *bytes, size_t room));
    // All or nothing: no half of an escape.
    void put_bytes(const char *bytes, size_t count);
    void put_escape(char byte);

    char *begin_;
    char *position_;
    char *end_;
    char *reserve_;
    char *cut_ = nullptr;  // where the line ends if it has to be cut, once that is known
    bool is_cut_ = false;
};

// The largest length up to `length` that does not end within a character of UTF-8.
size_t whole_characters(const char *text, size_t length);

// Writes everything with one write(2), unless that is interrupted or takes less. Raises no SIGPIPE. Returns 0 or an
// errno.
int write_whole(int fd, const char *bytes, size_t count);

}  // namespace umbra

#endif
