// Listens in the constraint handler's place for as long as it lives.
#ifndef NYX_TESTS_SAFESTR_VIOLATION_RECORDER_H
#define NYX_TESTS_SAFESTR_VIOLATION_RECORDER_H

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "safestr/safestr.h"

struct violation {
    std::string message;
    errno_t code;
    const void *ptr = nullptr;

    bool operator==(const violation &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const violation &v) {
        return out << '"' << v.message << "\" (" << v.code << ", " << v.ptr << ')';
    }
};

class violation_recorder {
  public:
    violation_recorder() : before_(set_safe_str_constraint_handler(record)) { calls().clear(); }
    ~violation_recorder() { set_safe_str_constraint_handler(before_); }
    violation_recorder(const violation_recorder &) = delete;
    violation_recorder &operator=(const violation_recorder &) = delete;

    // The calls since the last time that it was asked.
    static std::vector<violation> take() { return std::exchange(calls(), {}); }

  private:
    static std::vector<violation> &calls() {
        static std::vector<violation> list;
        return list;
    }
    static void record(const char *message, void *ptr, errno_t code) { calls().push_back({message, code, ptr}); }

    safe_str_constraint_handler before_;
};

#endif
