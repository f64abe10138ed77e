// What the tests of failed requests share: a request under way, its result, and the result as a text.
#ifndef NYX_TEST_RESULT_FIXTURE_H
#define NYX_TEST_RESULT_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_api_common.h"
#include "nyx_error.h"
#include "nyx_session_store.h"
#include "quill_nyx.h"

namespace nyx_test {

std::string text_of(const quill_nyx_attribute &attribute);
std::string text_of(const quill_nyx_datatree &node);

// Writes members one behind the other: `name*=7 text*="x"`. A star is the member's mark. A member that is neither
// marked nor anything but 0 or null is left out.
class member_writer {
  public:
    void number(const char *name, bool marked, std::uint64_t number) {
        if (marked || number != 0) {
            add(name, marked, "=", std::to_string(number));
        }
    }
    void text(const char *name, bool marked, const char *text) {
        if (text != nullptr) {
            add(name, marked, "=\"", text, "\"");
        } else if (marked) {
            add(name, marked, "=null");
        }
    }
    void nested(const char *name, bool marked, const std::string &members) {
        if (marked || !members.empty()) {
            add(name, marked, "{", members, "}");
        }
    }
    template <class Record>
    void array(const char *name, bool marked, const Record *records, std::uint32_t count) {
        if (records != nullptr) {
            add(name, marked, "[");
            for (std::uint32_t i = 0; i < count; ++i) {
                text_.append("{").append(text_of(records[i])).append("}");
            }
            text_.append("]");
        } else if (marked || count != 0) {
            add(name, marked, "=null, ", std::to_string(count));
        }
    }
    [[nodiscard]] const std::string &text() const { return text_; }

  private:
    template <class... Parts>
    void add(const char *name, bool marked, const Parts &...parts) {
        text_.append(text_.empty() ? "" : " ").append(name).append(marked ? "*" : "");
        (text_.append(parts), ...);
    }

    std::string text_;
};

inline std::string text_of(const quill_nyx_attribute &attribute) {
    member_writer members;
    members.text("key", attribute.has_key, attribute.key);
    members.text("value", attribute.has_value, attribute.value);
    return members.text();
}

// The members that this library gives to nodes of errors; the test fails when there is anything in the others.
inline std::string text_of(const quill_nyx_datatree &node) {
    EXPECT_FALSE(node.has_uint32_4 || node.has_operation || node.has_uint32_8 || node.has_node_info ||
                 node.has_flag_10 || node.has_edit_ins || node.has_node_kind || node.has_string_13 || node.has_flag_14);
    member_writer members;
    members.text("name", node.has_name, node.name);
    members.text("value", node.has_value, node.value);
    members.text("namespace", node.has_namespace, node.namespace_);
    members.array("attributes", node.has_attributes, node.attributes, node.attributes_count);
    members.array("children", node.has_children, node.children, node.children_count);
    return members.text();
}

inline std::string text_of(const quill_nyx_error_message &message) {
    member_writer members;
    members.text("string_1", message.has_string_1, message.string_1);
    members.text("text", message.has_text, message.text);
    return members.text();
}

inline std::string text_of(const quill_nyx_error &error) {
    member_writer members;
    members.number("type", error.has_error_type, error.error_type);
    members.text("tag", error.has_error_tag, error.error_tag);
    members.number("severity", error.has_error_severity, error.error_severity);
    members.text("app_tag", error.has_error_app_tag, error.error_app_tag);
    members.nested("path", error.has_error_path, text_of(error.error_path));
    members.nested("message", error.has_error_message, text_of(error.error_message));
    members.nested("info", error.has_error_info, text_of(error.error_info));
    return members.text();
}

inline std::string text_of(const quill_nyx_request_result &result) {
    member_writer members;
    members.number("status", result.has_uint32_1, result.uint32_1);
    members.number("uint32_2", result.has_uint32_2, result.uint32_2);
    members.text("string_3", result.has_string_3, result.string_3);
    members.nested("error", result.has_error, text_of(result.error));
    return members.text();
}

inline std::string encoded(const quill_nyx_request_result &result) {
    const std::uint64_t size = quill_nyx_request_result_encode_ext(&result, nullptr, 0, nullptr, nullptr, 0);
    std::string bytes(size, '\0');
    EXPECT_EQ(quill_nyx_request_result_encode_ext(&result, reinterpret_cast<std::uint8_t *>(bytes.data()), size,
                                                  nullptr, nullptr, 0),
              size);
    return bytes;
}

inline void release(quill_nyx_request_result &result) {
    quill_nyx_request_result_free_ext(&result, nyx_gpb_free, nullptr, 0);
}

// What an operation makes of a zeroed result when one of its allocations fails.
struct failure_outcome {
    std::string description;  // of the block that is refused
    rcode code;
    std::string result;
};

// A lock request with everything that serves it. The root's trace file is open, and its level NONE.
class result_test : public frame_test {
  protected:
    void SetUp() override {
        frame_test::SetUp();
        request_.type = QUILL_NYX_REQUEST_TYPE_LOCK;
        request_.has_type = 1;
        init_root();
    }

    void TearDown() override {
        release(result_);
        frame_test::TearDown();
    }

    void log_everything() { root().level = QUILL_NYX_LOGGING_LEVEL_TRACE; }

    // A line on behalf of the request. `text` is the message with its arguments.
    [[nodiscard]] site line(const std::string &type, const std::string &function, const std::string &format,
                            const std::string &text, const nyx_session_ctx *session) const {
        return {type, function, "ctx=%p,ses=%p,op=%u," + format,
                "ctx=" + text_of_pointer(&api_) + ",ses=" + text_of_pointer(session) +
                    ",op=" + std::to_string(request_.type) + "," + text};
    }

    // The one line that was written since the recorder forgot, in both forms, under the given number.
    static void expect_line(const site &expected, std::uint32_t index) {
        ASSERT_THAT(recorder().log_lines(), testing::SizeIs(1));
        ASSERT_THAT(recorder().trace_lines(), testing::SizeIs(1));
        expect_logged(recorder().log_lines()[0], expected, expected.type == "DBG" ? debug_flag : error_flag);
        expect_traced(recorder().trace_lines()[0], expected, index, trace_handle(1));
    }
    static void expect_no_line() {
        EXPECT_THAT(recorder().log_lines(), testing::IsEmpty());
        EXPECT_THAT(recorder().trace_lines(), testing::IsEmpty());
    }

    // The line of a type goes to the debug log when the level of this operation, or of all, allows it, and else not.
    // `run` logs once, and is given a zeroed result.
    template <class Operation>
    void expect_gated(std::uint32_t needed_level, const Operation &run) {
        const auto logged = [&] {
            recorder().forget();
            run();
            release(result_);
            result_ = {};
            EXPECT_THAT(recorder().trace_lines(), testing::SizeIs(1)) << "whatever the level";
            return recorder().log_lines().size();
        };
        root().level = needed_level - 1;
        EXPECT_EQ(logged(), 0U);
        root().level = needed_level;
        EXPECT_EQ(logged(), 1U);
        root().level = QUILL_NYX_LOGGING_LEVEL_NONE;
        root().op_levels[QUILL_NYX_REQUEST_TYPE_LOCK] = needed_level;
        root().op_level_max = needed_level;
        EXPECT_EQ(logged(), 1U);
        root().op_levels[QUILL_NYX_REQUEST_TYPE_LOCK] = needed_level - 1;
        root().op_levels[QUILL_NYX_REQUEST_TYPE_UNLOCK] = needed_level;
        EXPECT_EQ(logged(), 0U);
    }

    // Without tracing, and at level NONE, nothing is written, and no number taken.
    template <class Operation>
    void expect_silence(const Operation &run) {
        root().trace_enabled = 0;
        recorder().forget();
        const std::uint32_t index = next_trace_index();
        run();
        expect_no_line();
        EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index);
    }

    // Runs an operation on a zeroed result with each of its allocations failing, and then with none: it asks for the
    // blocks of these outcomes, in this order, and holds nothing but what is in the result.
    template <class Operation>
    void expect_failures(const std::vector<failure_outcome> &outcomes, const Operation &run) {
        std::vector<std::string> descriptions;
        for (const failure_outcome &expected : outcomes) {
            descriptions.push_back(expected.description);
            SCOPED_TRACE(std::to_string(descriptions.size()) + ": " + expected.description);
            recorder().forget();
            recorder().fail_allocation(descriptions.size());
            EXPECT_EQ(run(), expected.code);
            EXPECT_EQ(text_of(result_), expected.result);
            if (expected.code == NYX_RC_NO_MEMORY) {
                EXPECT_EQ(recorder().allocation_texts(), descriptions) << "the operation ends there";
            }
            EXPECT_EQ(recorder().complaints(), "");
            recorder().fail_nothing();
            release(result_);
            EXPECT_THAT(recorder().live_blocks(), testing::IsEmpty());
            result_ = {};
        }
        recorder().forget();
        run();
        EXPECT_EQ(recorder().allocation_texts(), descriptions);
        release(result_);
        result_ = {};
    }

    quill_nyx_request request_{};
    nyx_request_ctx req_ctx_{&api_, &request_};
    nyx_session_ctx session_{};
    quill_nyx_request_result result_{};
};

}  // namespace nyx_test

#endif
