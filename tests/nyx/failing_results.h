// Results and errors that hold something before a call, and what the call makes of them.
#ifndef NYX_TEST_FAILING_RESULTS_H
#define NYX_TEST_FAILING_RESULTS_H

#include <cstdint>
#include <cstring>
#include <string>

#include "frame_fixture.h"
#include "quill_nyx.h"
#include "result_fixture.h"

namespace nyx_test {

// Writes the members that are not as before. One that has become null or 0, without a mark, reads "none".
class change_writer {
  public:
    void text(const char *name, bool marked_before, const char *before, bool marked, const char *now) {
        if (marked != marked_before || now != before) {
            writer_.text(name, marked, now == nullptr && !marked ? "none" : now);
        }
    }
    void number(const char *name, bool marked_before, std::uint64_t before, bool marked, std::uint64_t now) {
        if (marked != marked_before || now != before) {
            now != 0 || marked ? writer_.number(name, marked, now) : writer_.text(name, false, "none");
        }
    }
    void nested(const char *name, bool marked, const std::string &members) { writer_.nested(name, marked, members); }
    template <class Record>
    void array(const char *name, bool same, bool marked, const Record *records, std::uint32_t count) {
        if (!same) {
            writer_.array(name, marked, records, count);
        }
    }
    void note(const char *what, bool noted) {
        if (noted) {
            writer_.text(what, false, "yes");
        }
    }
    [[nodiscard]] const std::string &text() const { return writer_.text(); }

  private:
    member_writer writer_;
};

// Copies a record with its padding, which an assignment may leave out: records are compared by their bytes below.
template <class Record>
void copy_bytes(Record &to, const Record &from) {
    std::memcpy(&to, &from, sizeof to);
}

// Whether anything has changed in a node that changes() of nodes does not write.
inline bool more_changed(const quill_nyx_datatree &before, const quill_nyx_datatree &now) {
    quill_nyx_datatree rest{};
    copy_bytes(rest, now);
    rest.name = before.name;
    rest.has_name = before.has_name;
    rest.value = before.value;
    rest.has_value = before.has_value;
    rest.namespace_ = before.namespace_;
    rest.has_namespace = before.has_namespace;
    rest.attributes = before.attributes;
    rest.attributes_count = before.attributes_count;
    rest.has_attributes = before.has_attributes;
    rest.children = before.children;
    rest.children_count = before.children_count;
    rest.has_children = before.has_children;
    return bytes_of(rest) != bytes_of(before);
}

// A child has nothing but what text_of() writes of it.
inline bool children_have_more(const quill_nyx_datatree &node) {
    static const quill_nyx_datatree empty{};
    for (std::uint32_t i = 0; node.children != nullptr && i < node.children_count; ++i) {
        if (more_changed(empty, node.children[i])) {
            return true;
        }
    }
    return false;
}

inline std::string changes(const quill_nyx_datatree &before, const quill_nyx_datatree &now) {
    change_writer written;
    written.text("name", before.has_name, before.name, now.has_name, now.name);
    written.text("value", before.has_value, before.value, now.has_value, now.value);
    written.text("namespace", before.has_namespace, before.namespace_, now.has_namespace, now.namespace_);
    const bool same_attributes = now.attributes == before.attributes &&
                                 now.attributes_count == before.attributes_count &&
                                 now.has_attributes == before.has_attributes;
    written.array("attributes", same_attributes, now.has_attributes, now.attributes, now.attributes_count);
    const bool same_children = now.children == before.children && now.children_count == before.children_count &&
                               now.has_children == before.has_children;
    written.array("children", same_children, now.has_children, now.children, now.children_count);
    written.note("more", more_changed(before, now) || (!same_children && children_have_more(now)));
    return written.text();
}

inline std::string changes(const quill_nyx_error_message &before, const quill_nyx_error_message &now) {
    change_writer written;
    written.text("string_1", before.has_string_1, before.string_1, now.has_string_1, now.string_1);
    written.text("text", before.has_text, before.text, now.has_text, now.text);
    return written.text();
}

inline std::string changes(const quill_nyx_error &before, const quill_nyx_error &now) {
    change_writer written;
    written.number("type", before.has_error_type, before.error_type, now.has_error_type, now.error_type);
    written.text("tag", before.has_error_tag, before.error_tag, now.has_error_tag, now.error_tag);
    written.number("severity", before.has_error_severity, before.error_severity, now.has_error_severity,
                   now.error_severity);
    written.text("app_tag", before.has_error_app_tag, before.error_app_tag, now.has_error_app_tag, now.error_app_tag);
    written.nested("path", now.has_error_path, changes(before.error_path, now.error_path));
    written.nested("message", now.has_error_message, changes(before.error_message, now.error_message));
    written.nested("info", now.has_error_info, changes(before.error_info, now.error_info));
    return written.text();
}

inline std::string changes(const quill_nyx_request_result &before, const quill_nyx_request_result &now) {
    change_writer written;
    written.number("status", before.has_uint32_1, before.uint32_1, now.has_uint32_1, now.uint32_1);
    written.number("uint32_2", before.has_uint32_2, before.uint32_2, now.has_uint32_2, now.uint32_2);
    written.text("string_3", before.has_string_3, before.string_3, now.has_string_3, now.string_3);
    written.nested("error", now.has_error, changes(before.error, now.error));
    return written.text();
}

// What used records hold. None of it is released.
struct old_members {
    char text[4] = "old";
    quill_nyx_attribute attribute{};
    quill_nyx_datatree child{};
};

inline void fill(quill_nyx_datatree &node, old_members &old) {
    node.name = old.text;
    node.has_name = 1;
    node.namespace_ = old.text;
    node.has_namespace = 1;
    node.children = &old.child;
    node.children_count = 1;
    node.has_children = 1;
}

// All but the path's value and attributes.
inline void fill(quill_nyx_error &error, old_members &old) {
    error.error_type = 9;
    error.has_error_type = 1;
    error.error_severity = 9;
    error.has_error_severity = 1;
    error.error_tag = old.text;
    error.has_error_tag = 1;
    error.error_app_tag = old.text;
    error.has_error_app_tag = 1;
    error.error_message.string_1 = old.text;
    error.error_message.has_string_1 = 1;
    error.error_message.text = old.text;
    error.error_message.has_text = 1;
    fill(error.error_path, old);
    fill(error.error_info, old);
}

// All but the mark of the error.
inline void fill(quill_nyx_request_result &result, old_members &old) {
    result.uint32_1 = 7;
    result.has_uint32_1 = 1;
    result.uint32_2 = 7;
    result.has_uint32_2 = 1;
    result.string_3 = old.text;
    result.has_string_3 = 1;
    fill(result.error, old);
    quill_nyx_datatree &path = result.error.error_path;
    path.value = old.text;
    path.has_value = 1;
    path.attributes = &old.attribute;
    path.attributes_count = 1;
    path.has_attributes = 1;
}

template <class Member>
void forget(Member *&place, const Member *old) {
    if (place == old) {
        place = nullptr;
    }
}

inline void forget_old(quill_nyx_error &error, const old_members &old) {
    forget(error.error_tag, old.text);
    forget(error.error_app_tag, old.text);
    forget(error.error_message.string_1, old.text);
    forget(error.error_message.text, old.text);
    for (quill_nyx_datatree *const node : {&error.error_path, &error.error_info}) {
        forget(node->name, old.text);
        forget(node->value, old.text);
        forget(node->namespace_, old.text);
        forget(node->attributes, &old.attribute);
        forget(node->children, &old.child);
    }
}

inline void release_but_old(quill_nyx_error &error, const old_members &old) {
    forget_old(error, old);
    quill_nyx_error_free_ext(&error, nyx_gpb_free, nullptr, 0);
}

inline void release_but_old(quill_nyx_request_result &result, const old_members &old) {
    forget(result.string_3, old.text);
    forget_old(result.error, old);
    release(result);
}

// A record with something in its members, as fill() has it: what a call leaves alone has to be there still.
template <class Record>
class used {
  public:
    used() { refill(); }
    used(const used &) = delete;
    used &operator=(const used &) = delete;
    ~used() = default;

    [[nodiscard]] std::string changed() const {
        return changes(before_, record) + (bytes_of(old_) == old_before_ ? "" : " old members: changed");
    }
    void release_new() { release_but_old(record, old_); }
    void renew() {
        release_new();
        refill();
    }

    Record record{};

  private:
    void refill() {
        std::memset(&record, 0, sizeof record);
        fill(record, old_);
        old_before_ = bytes_of(old_);
        copy_bytes(before_, record);
    }

    old_members old_;
    std::string old_before_;
    Record before_{};
};

}  // namespace nyx_test

#endif
