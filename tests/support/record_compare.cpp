#include "record_compare.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>
#include <vector>

namespace nyx_test {
namespace {

bool encodes_to_something(const record_table &table, const void *record) {
    return std::any_of(table.members.begin(), table.members.end(),
                       [&](const member &m) { return is_written(table, m, record); });
}

bool holds_a_text(const void *array, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        if (text_at(array, i) != nullptr) {
            return true;
        }
    }
    return false;
}

std::string shown(const char *text) {
    if (text == nullptr) {
        return "null";
    }
    const std::string whole = text;
    std::string out = '"' + whole.substr(0, 40);
    return out + (whole.size() > 40 ? "..." : "") + "\" (" + std::to_string(whole.size()) + " bytes)";
}

bool same_text(const char *left, const char *right) {
    return left == nullptr || right == nullptr ? left == right : std::strcmp(left, right) == 0;
}

class comparison {
  public:
    explicit comparison(compare_mode mode) : mode_(mode) {}

    std::string records(const record_table &table, const void *left, const void *right, const std::string &path) {
        for (const member &m : table.members) {
            std::string found = one_member(table, m, left, right, path + '.' + m.name);
            if (!found.empty()) {
                return found;
            }
        }
        return {};
    }

  private:
    static std::string differ(const std::string &path, const std::string &left, const std::string &right) {
        return left == right ? std::string{} : path + ": " + left + " / " + right;
    }

    std::string one_member(const record_table &table, const member &m, const void *left, const void *right,
                           const std::string &path) {
        if (mode_ == compare_mode::wire) {
            const bool in_left = is_written(table, m, left);
            const bool in_right = is_written(table, m, right);
            if (in_left != in_right) {
                return differ(path + " written", std::to_string(in_left), std::to_string(in_right));
            }
            return in_left ? values(m, left, right, path) : std::string{};
        }
        std::string found = differ(path + " present", std::to_string(is_present(table, m, left)),
                                   std::to_string(is_present(table, m, right)));
        return found.empty() ? values(m, left, right, path) : found;
    }

    std::string values(const member &m, const void *left, const void *right, const std::string &path) {
        if (is_number(m.kind)) {
            return differ(path, std::to_string(number_of(m, left)), std::to_string(number_of(m, right)));
        }
        if (m.kind == member_kind::text) {
            return texts(static_cast<const char *>(pointer_of(m, left)),
                         static_cast<const char *>(pointer_of(m, right)), path);
        }
        if (m.kind == member_kind::record) {
            return records(table_of(m.element), nested_of(m, left), nested_of(m, right), path);
        }
        return m.kind == member_kind::texts && mode_ == compare_mode::wire ? written_texts(m, left, right, path)
                                                                           : arrays(m, left, right, path);
    }

    static std::string texts(const char *left, const char *right, const std::string &path) {
        return same_text(left, right) ? std::string{} : path + ": " + shown(left) + " / " + shown(right);
    }

    std::string arrays(const member &m, const void *left, const void *right, const std::string &path) {
        std::string found =
            differ(path + " count", std::to_string(count_of(m, left)), std::to_string(count_of(m, right)));
        const void *left_array = pointer_of(m, left);
        const void *right_array = pointer_of(m, right);
        if (found.empty() && (left_array == nullptr) != (right_array == nullptr)) {
            found = path + ": " + (left_array == nullptr ? "null / array" : "array / null");
        }
        for (uint32_t i = 0; found.empty() && left_array != nullptr && i < count_of(m, left); ++i) {
            found = elements(m, left_array, right_array, i, path + '[' + std::to_string(i) + ']');
        }
        return found;
    }

    std::string elements(const member &m, const void *left, const void *right, uint32_t i, const std::string &path) {
        if (m.kind == member_kind::texts) {
            return texts(text_at(left, i), text_at(right, i), path);
        }
        if (m.kind == member_kind::numbers32) {
            return differ(path, std::to_string(number32_at(left, i)), std::to_string(number32_at(right, i)));
        }
        return records(table_of(m.element), record_at(m, left, i), record_at(m, right, i), path);
    }

    static std::vector<const char *> entries(const member &m, const void *record) {
        std::vector<const char *> found;
        for (uint32_t i = 0; i < count_of(m, record); ++i) {
            if (text_at(pointer_of(m, record), i) != nullptr) {
                found.push_back(text_at(pointer_of(m, record), i));
            }
        }
        return found;
    }

    static std::string written_texts(const member &m, const void *left, const void *right, const std::string &path) {
        const auto left_entries = entries(m, left);
        const auto right_entries = entries(m, right);
        std::string found =
            differ(path + " entries", std::to_string(left_entries.size()), std::to_string(right_entries.size()));
        for (std::size_t i = 0; found.empty() && i < left_entries.size(); ++i) {
            found = texts(left_entries[i], right_entries[i], path + '[' + std::to_string(i) + ']');
        }
        return found;
    }

    compare_mode mode_;
};

class block_collector {
  public:
    std::string visit(const record_table &table, const void *record, const std::string &path) {
        for (const member &m : table.members) {
            std::string found = one_member(m, record, path + '.' + m.name);
            if (!found.empty()) {
                return found;
            }
        }
        return {};
    }

  private:
    std::string take(const void *block, const std::string &path) {
        return block == nullptr || blocks_.insert(block).second ? std::string{} : path;
    }

    std::string one_member(const member &m, const void *record, const std::string &path) {
        if (is_number(m.kind)) {
            return {};
        }
        if (m.kind == member_kind::record) {
            return visit(table_of(m.element), nested_of(m, record), path);
        }
        const void *block = pointer_of(m, record);
        std::string found = take(block, path);
        for (uint32_t i = 0; found.empty() && block != nullptr && is_repeated(m.kind) && i < count_of(m, record); ++i) {
            found = element(m, block, i, path + '[' + std::to_string(i) + ']');
        }
        return found;
    }

    std::string element(const member &m, const void *array, uint32_t i, const std::string &path) {
        if (m.kind == member_kind::texts) {
            return take(text_at(array, i), path);
        }
        return m.kind == member_kind::records ? visit(table_of(m.element), record_at(m, array, i), path)
                                              : std::string{};
    }

    std::unordered_set<const void *> blocks_;
};

}  // namespace

bool is_written(const record_table &table, const member &m, const void *record) {
    const bool present = is_present(table, m, record);
    if (is_number(m.kind)) {
        return present;
    }
    if (m.kind == member_kind::record) {
        return present || encodes_to_something(table_of(m.element), nested_of(m, record));
    }
    const void *pointer = pointer_of(m, record);
    if (!present || pointer == nullptr) {
        return false;
    }
    return m.kind == member_kind::texts ? holds_a_text(pointer, count_of(m, record))
                                        : m.kind == member_kind::text || count_of(m, record) != 0;
}

std::string difference(const record_table &table, const void *left, const void *right, compare_mode mode) {
    return comparison(mode).records(table, left, right, table.name);
}

std::string shared_block(const record_table &table, const void *left, const void *right) {
    block_collector collector;
    std::string found = collector.visit(table, left, table.name);
    return found.empty() ? collector.visit(table, right, table.name) : found;
}

}  // namespace nyx_test
