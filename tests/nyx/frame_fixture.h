// What the tests of the frame share: contexts on a fresh platform, and what a log site has to write.
#ifndef NYX_TEST_FRAME_FIXTURE_H
#define NYX_TEST_FRAME_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "nyx_api.h"
#include "nyx_debug.h"
#include "recording_platform.h"

namespace nyx_test {

inline std::string text_of_pointer(const void *pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

// The bytes of an object, padding included.
template <class Object>
std::string bytes_of(const Object &object) {
    return {reinterpret_cast<const char *>(&object), sizeof object};
}

// What a site writes: its two lines differ in their heads only.
struct site {
    std::string type;      // such as "ERR"
    std::string function;  // the exported function that logs
    std::string format;    // of the body
    std::string body;      // the same with its arguments
};

// The line of a site in the debug log: through the flag of its type, in its own form and not as a finished text.
inline void expect_logged(const log_line &line, const site &expected, std::uint64_t flag) {
    EXPECT_EQ(line.text, expected.type + ": NYX: " + expected.body);
    EXPECT_EQ(line.format_text, expected.type + ": NYX: " + expected.format);
    EXPECT_EQ(line.flag, flag) << line.text;
    EXPECT_EQ(line.zeros, (std::vector<std::uint64_t>{0, 0, 0, 0, 0})) << line.text;
    ASSERT_NE(line.filter, nullptr) << line.text;
    EXPECT_EQ(line.filter_value, 0xFFFFFFFFU) << line.text;
}

// The part of a trace line before the line number, which may change from release to release.
inline std::string trace_head(const site &expected, std::uint32_t index) {
    std::string head = "#";
    return head.append(std::to_string(index)).append(": " + expected.type + ": " + expected.function + ":");
}

// The line of a site in the trace file, under the given number.
inline void expect_traced(const trace_line &line, const site &expected, std::uint32_t index, std::uint64_t handle) {
    EXPECT_EQ(line.handle, handle) << line.text;
    EXPECT_EQ(line.attributes, 0x0000010101000000U) << line.text;
    const std::string head = trace_head(expected, index);
    ASSERT_EQ(line.text.substr(0, head.size()), head);
    const std::size_t blank = line.text.find(' ', head.size());
    ASSERT_NE(blank, std::string::npos) << line.text;
    const std::string line_number = line.text.substr(head.size(), blank - head.size());
    EXPECT_EQ(line_number.find_first_not_of("0123456789"), std::string::npos) << line.text;
    EXPECT_GT(std::atoi(line_number.c_str()), 0) << line.text;
    EXPECT_EQ(line.text.substr(blank + 1), expected.body);
}

// The address behind "ctx=" in a line.
inline const void *printed_context(const std::string &text) {
    const std::size_t at = text.find("ctx=0x");
    EXPECT_NE(at, std::string::npos) << text;
    return at == std::string::npos ? nullptr
                                   : reinterpret_cast<const void *>(std::stoull(text.substr(at + 4), nullptr, 16));
}

// Takes a number, so that the test knows the one that comes next.
inline std::uint32_t next_trace_index() {
    return ret_nc_nyx_trace_index_incr() + 1;
}

// A failing assertion's message: "<program>: <file>:<line>: <prototype>: Assertion `<condition>' failed."
inline std::string assertion_regex(const std::string &file, const std::string &prototype,
                                   const std::string &condition) {
    const std::string source = "manageability/yang/framework/src/" + file;
    return "(^|[^/]: )" + source + ":[1-9][0-9]*: " + prototype + ": Assertion `" + condition + "' failed\\.";
}
inline std::string null_regex(const std::string &pointer) {
    return R"(\(\(void \*\)0\) != )" + pointer;
}

// A zeroed API context, and process-wide state as at the start of a process but for the agent's name.
class frame_test : public platform_test {
  protected:
    void SetUp() override {
        platform_test::SetUp();
        nyx_log_set_ctx(nullptr);
        nyx_util_set_mem_state(0);
        nyx_debug_save_agent_name("agentx");
    }

    // The root as NYX, at the given level; its flags are flag_handle(1) to (4), its trace file is trace_handle(1).
    void init_root(std::uint32_t level = 0) {
        ASSERT_EQ(nyx_debug_init(&root(), "processor", NYX_COMPONENT_NYX, nullptr), 0);
        root().level = level;
        recorder().forget();
    }

    nyx_debug_ctx_t &root() { return api_.debug; }

    // The calls that set up and take down flags and trace files, and write lines.
    static std::vector<call> flag_and_trace_calls() {
        std::vector<call> found;
        for (const call &each : recorder().calls()) {
            if (each.function.starts_with("umbra_dt_") || each.function.starts_with("skein_")) {
                found.push_back(each);
            }
        }
        return found;
    }

    nyx_api_ctx api_{};
};

// The flags of a root context that was initialised first, by the order of their registration.
inline constexpr std::uint64_t component_flag = flag_handle(1);
inline constexpr std::uint64_t error_flag = flag_handle(2);
inline constexpr std::uint64_t debug_flag = flag_handle(3);
inline constexpr std::uint64_t trace_flag = flag_handle(4);

}  // namespace nyx_test

#endif
