#include "session_numbers.h"

#include <charconv>
#include <string>
#include <string_view>
#include <system_error>

#include "records.h"

namespace request_path {

void session_numbers::close(uint32_t id) {
    for (auto &[number, known] : ids_) {
        if (known == id) {
            known = no_session;
        }
    }
}

std::optional<uint32_t> session_numbers::id_of(uint32_t number) const {
    const auto found = ids_.find(number);
    return found == ids_.end() ? std::nullopt : std::optional(found->second);
}

uint32_t session_numbers::number_of(uint32_t id) const {
    for (const auto &[number, known] : ids_) {
        if (known == id && id != no_session) {
            return number;
        }
    }
    return no_session;
}

uint32_t session_numbers::unknown_id() const {
    uint32_t id = no_session + 1;
    while (number_of(id) != no_session) {
        ++id;
    }
    return id;
}

void name_sessions(quill_nyx_error &error, const session_numbers &sessions) {
    for (uint32_t i = 0; i < error.error_info.children_count; ++i) {
        quill_nyx_datatree &entry = error.error_info.children[i];
        if (entry.name == nullptr || std::string_view(entry.name) != "session-id" || entry.value == nullptr) {
            continue;
        }
        const std::string_view text = entry.value;
        uint32_t id = no_session;
        const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), id);
        if (problem == std::errc() && end == text.data() + text.size()) {
            char *const number = copy_string(std::to_string(sessions.number_of(id)));
            nyx_gpb_free(entry.value);
            entry.value = number;
        }
    }
}

}  // namespace request_path
