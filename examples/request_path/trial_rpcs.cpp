#include "trial_rpcs.h"

#include <nyx_api.h>

#include <charconv>
#include <string>
#include <system_error>

#include "back_end.h"
#include "failure.h"
#include "request_numbers.h"

namespace request_path {

namespace {

constexpr const char *trial_namespace = "urn:example:request-path";

/* Codes are written as the rest of the world reads them: as the hexadecimal number of their 32 bits. */
rcode code_in(const node &element) {
    std::string_view text = trimmed(element.value);
    const int base = text.starts_with("0x") ? 16 : 10;
    text.remove_prefix(base == 16 ? 2 : 0);
    uint32_t bits = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), bits, base);
    if (problem != std::errc() || end != text.data() + text.size()) {
        throw bad_element(element.name);
    }
    return static_cast<rcode>(bits);
}

rcode back_end_result(const node &rpc) {
    const node *code = nullptr;
    for (const node &child : rpc.children) {
        if (child.name != "code" || child.name_space != trial_namespace) {
            throw unknown_element(child.name);
        }
        if (code != nullptr) {
            throw bad_element(child.name);
        }
        code = &child;
    }
    if (code == nullptr) {
        throw missing_element("code");
    }
    return code_in(*code);
}

rcode memory_state(const node &rpc) {
    const std::string_view state = trimmed(rpc.value);
    if (state != "short" && state != "normal") {
        throw bad_element(rpc.name);
    }
    nyx_util_set_mem_state(state == "short" ? pressure_that_was_ordered : no_pressure);
    return 0;
}

}  // namespace

rcode carry_out_trial(const node &rpc) {
    if (rpc.name_space == trial_namespace && rpc.name == "back-end-result") {
        return back_end_result(rpc);
    }
    if (rpc.name_space == trial_namespace && rpc.name == "memory-state") {
        return memory_state(rpc);
    }
    return me_not_supported;
}

}  // namespace request_path
