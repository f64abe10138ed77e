// Lines of text in a buffer of the caller: what does not fit is left out, and control characters stay on their line.
#ifndef UMBRA_TEXT_LINE_H
#define UMBRA_TEXT_LINE_H

#include <stddef.h>
#include <stdint.h>

namespace umbra {

class text_line {
  public:
    text_line(char *buffer, size_t capacity) : begin_(buffer), position_(buffer), end_(buffer + capacity) {}

    void put(char c);
    void put(const char *text);
    // In decimal, with leading zeros up to `digits` of them.
    void put_number(uint64_t number, uint32_t digits = 1);
    // Tabulator, line feed and carriage return become \t, \n and \r, other control characters \xNN.
    void put_escaped(const char *text, size_t length);

    // Puts a text behind everything else, whether or not there is room: the constructor was not told of its place.
    void end_with(const char *text);
    // Did anything not fit?
    [[nodiscard]] bool is_cut() const { return is_cut_; }
    [[nodiscard]] size_t size() const { return static_cast<size_t>(position_ - begin_); }

  private:
    // All or nothing: no half of an escape.
    void put_bytes(const char *bytes, size_t count);

    char *begin_;
    char *position_;
    char *end_;
    bool is_cut_ = false;
};

// The largest length up to `length` that does not end within a character of UTF-8.
size_t whole_characters(const char *text, size_t length);

// Writes everything with one write(2), unless that is interrupted or takes less. Returns 0 or an errno.
int write_whole(int fd, const char *bytes, size_t count);

}  // namespace umbra

#endif
