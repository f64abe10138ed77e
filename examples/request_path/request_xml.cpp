#include "request_xml.h"

#include <array>
#include <charconv>
#include <functional>
#include <initializer_list>
#include <string>

#include "edit.h"
#include "failure.h"
#include "records.h"
#include "request_numbers.h"
#include "xml.h"

namespace request_path {

namespace {

struct parameter {
    const char *name;
    std::function<void(xmlNode *)> read;
};

void read_parameters(xmlNode *operation, std::initializer_list<parameter> known) {
    for (xmlNode *child = element_from(operation->children); child != nullptr; child = element_from(child->next)) {
        bool taken = false;
        for (const parameter &p : known) {
            if (is_netconf(child, p.name)) {
                p.read(child);
                taken = true;
            }
        }
        if (!taken) {
            throw unknown_element(local_name(child));
        }
    }
}

/* A parameter may stand there twice; the record holds one of them. */
void refuse_second(bool already_present, const xmlNode *element) {
    if (already_present) {
        throw bad_element(local_name(element));
    }
}

void read_text(xmlNode *element, char *&string) {
    refuse_second(string != nullptr, element);
    string = copy_string(text_of(element));
}

void read_tree_of(xmlNode *element, quill_nyx_datatree &record) {
    refuse_second(record.has_name, element);
    write_tree(record, read_element(element, edit_operations::refused));
}

/* NETCONF's namespace holds no data: a configuration that has elements of it lacks the declaration of its own. */
void check_namespaces(const node &config) {
    for (const node &child : config.children) {
        if (child.name_space == netconf_namespace) {
            throw unknown_namespace(child.name, child.name_space);
        }
        check_namespaces(child);
    }
}

void read_config(xmlNode *element, quill_nyx_datatree &record, edit_operations operations) {
    refuse_second(record.has_name, element);
    const node config = read_element(element, operations);
    check_namespaces(config);
    write_tree(record, config);
}

/* source and target hold exactly one element, and it is one of NETCONF's own. */
xmlNode *element_in_role(xmlNode *role) {
    xmlNode *content = element_from(role->children);
    if (content == nullptr) {
        throw missing_element(local_name(role));
    }
    if (element_from(content->next) != nullptr) {
        throw bad_element(local_name(role));
    }
    if (namespace_of(content) != netconf_namespace) {
        throw unknown_namespace(local_name(content), namespace_of(content));
    }
    return content;
}

/* The name of the element is the datastore's. A URL or a whole configuration may stand there instead, where the
 * operation's record has room for it. */
void read_datastore(xmlNode *role, quill_nyx_datastore &record, char **url = nullptr,
                    quill_nyx_datatree *config = nullptr) {
    refuse_second(record.has_name || (url != nullptr && *url != nullptr) || (config != nullptr && config->has_name),
                  role);
    xmlNode *content = element_in_role(role);
    if (url != nullptr && is_netconf(content, "url")) {
        read_text(content, *url);
    } else if (config != nullptr && is_netconf(content, "config")) {
        read_config(content, *config, edit_operations::refused);
    } else {
        record.name = copy_string(local_name(content));
        record.has_name = 1;
    }
}

void read_filter(xmlNode *element, quill_nyx_filter &record) {
    const auto type = plain_attribute(element, "type");
    if (type != nullptr && *type != "subtree" && *type != "xpath") {
        throw bad_attribute("type", "filter");
    }
    record.uint32_1 = type != nullptr && *type == "xpath" ? filter_xpath : filter_subtree;
    record.has_uint32_1 = 1;
    read_tree_of(element, record.tree);
    record.has_tree = 1;
}

/* @param words  in the order of the numbers that stand for them */
uint32_t number_of_word(xmlNode *element, std::initializer_list<const char *> words) {
    const std::string text = text_of(element);
    uint32_t number = 0;
    for (const char *word : words) {
        if (text == word) {
            return number;
        }
        ++number;
    }
    throw bad_element(local_name(element));
}

uint32_t number_in(xmlNode *element) {
    const std::string text = text_of(element);
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw bad_element(local_name(element));
    }
    return number;
}

void read_get_config(xmlNode *operation, quill_nyx_request &request) {
    quill_nyx_get_config &body = request.get_config;
    request.has_get_config = 1;
    read_parameters(operation, {{"source",
                                 [&](xmlNode *e) {
                                     read_datastore(e, body.source);
                                     body.has_source = 1;
                                 }},
                                {"filter", [&](xmlNode *e) {
                                     read_filter(e, body.filter);
                                     body.has_filter = 1;
                                 }}});
}

void read_get(xmlNode *operation, quill_nyx_request &request) {
    request.has_get = 1;
    read_parameters(operation, {{"filter", [&](xmlNode *e) {
                                     read_filter(e, request.get.filter);
                                     request.get.has_filter = 1;
                                 }}});
}

void read_edit_config(xmlNode *operation, quill_nyx_request &request) {
    quill_nyx_edit_config &body = request.edit_config;
    request.has_edit_config = 1;
    read_parameters(
        operation, {{"target",
                     [&](xmlNode *e) {
                         read_datastore(e, body.target);
                         body.has_target = 1;
                     }},
                    {"default-operation",
                     [&](xmlNode *e) {
                         refuse_second(body.has_uint32_2, e);
                         body.uint32_2 = number_of_word(e, {"merge", "replace", "none"});
                         body.has_uint32_2 = 1;
                     }},
                    {"test-option",
                     [&](xmlNode *e) {
                         refuse_second(body.has_uint32_3, e);
                         body.uint32_3 = number_of_word(e, {"test-then-set", "set", "test-only"});
                         body.has_uint32_3 = 1;
                     }},
                    {"error-option",
                     [&](xmlNode *e) {
                         refuse_second(body.has_uint32_4, e);
                         body.uint32_4 = number_of_word(e, {"stop-on-error", "continue-on-error", "rollback-on-error"});
                         body.has_uint32_4 = 1;
                     }},
                    {"config", [&](xmlNode *e) {
                         read_config(e, body.config, edit_operations::taken);
                         body.has_config = 1;
                     }}});
}

void read_copy_config(xmlNode *operation, quill_nyx_request &request) {
    quill_nyx_copy_config &body = request.copy_config;
    request.has_copy_config = 1;
    read_parameters(operation,
                    {{"target", [&](xmlNode *e) { read_datastore(e, body.target, &body.string_2); }},
                     {"source", [&](xmlNode *e) { read_datastore(e, body.source, &body.string_4, &body.config); }}});
    body.has_target = body.target.has_name;
    body.has_string_2 = body.string_2 != nullptr;
    body.has_source = body.source.has_name;
    body.has_string_4 = body.string_4 != nullptr;
    body.has_config = body.config.has_name;
}

/* The request has no room for the target, and the processor deletes the one datastore that can be deleted. Any other
 * target has to be refused here, or the wrong datastore would be deleted. */
void read_delete_config(xmlNode *operation, quill_nyx_request &) {
    std::string target;
    read_parameters(operation, {{"target", [&](xmlNode *e) {
                                     refuse_second(!target.empty(), e);
                                     target = local_name(element_in_role(e));
                                 }}});
    if (target.empty()) {
        throw missing_element("target");
    }
    if (target != "startup") {
        throw custom_failure("target", "Only the startup configuration can be deleted.");
    }
}

void read_lock(xmlNode *operation, quill_nyx_request &request) {
    request.has_lock = 1;
    read_parameters(operation, {{"target", [&](xmlNode *e) {
                                     read_datastore(e, request.lock.target);
                                     request.lock.has_target = 1;
                                 }}});
}

void read_unlock(xmlNode *operation, quill_nyx_request &request) {
    request.has_unlock = 1;
    read_parameters(operation, {{"target", [&](xmlNode *e) {
                                     read_datastore(e, request.unlock.target);
                                     request.unlock.has_target = 1;
                                 }}});
}

void read_validate(xmlNode *operation, quill_nyx_request &request) {
    quill_nyx_validate &body = request.validate;
    request.has_validate = 1;
    read_parameters(operation,
                    {{"source", [&](xmlNode *e) { read_datastore(e, body.source, nullptr, &body.config); }}});
    body.has_source = body.source.has_name;
    body.has_config = body.config.has_name;
}

void read_commit(xmlNode *operation, quill_nyx_request &request) {
    quill_nyx_commit &body = request.commit;
    request.has_commit = 1;
    read_parameters(operation, {{"confirmed",
                                 [&](xmlNode *e) {
                                     refuse_second(body.has_uint32_1, e);
                                     body.uint32_1 = 1;
                                     body.has_uint32_1 = 1;
                                 }},
                                {"confirm-timeout",
                                 [&](xmlNode *e) {
                                     refuse_second(body.has_uint32_2, e);
                                     body.uint32_2 = number_in(e);
                                     body.has_uint32_2 = 1;
                                 }},
                                {"persist",
                                 [&](xmlNode *e) {
                                     read_text(e, body.string_3);
                                     body.has_string_3 = 1;
                                 }},
                                {"persist-id", [&](xmlNode *e) {
                                     read_text(e, body.string_4);
                                     body.has_string_4 = 1;
                                 }}});
}

void read_cancel_commit(xmlNode *operation, quill_nyx_request &request) {
    request.has_cancel_commit = 1;
    read_parameters(operation, {{"persist-id", [&](xmlNode *e) {
                                     read_text(e, request.cancel_commit.string_1);
                                     request.cancel_commit.has_string_1 = 1;
                                 }}});
}

void read_discard_changes(xmlNode *operation, quill_nyx_request &request) {
    request.has_discard_changes = 1;
    read_parameters(operation, {});
}

void read_close_session(xmlNode *operation, quill_nyx_request &request) {
    request.has_stop_session = 1;
    read_parameters(operation, {});
}

void read_kill_session(xmlNode *operation, quill_nyx_request &request) {
    request.has_stop_session = 1;
    read_parameters(operation, {{"session-id", [&](xmlNode *e) {
                                     refuse_second(request.stop_session.has_uint32_1, e);
                                     request.stop_session.uint32_1 = number_in(e);
                                     request.stop_session.has_uint32_1 = 1;
                                 }}});
    if (!request.stop_session.has_uint32_1) {
        throw missing_element("session-id");
    }
}

void read_other(xmlNode *operation, quill_nyx_request &request) {
    request.has_invoke_rpc = 1;
    read_tree_of(operation, request.invoke_rpc.tree);
    request.invoke_rpc.has_tree = 1;
}

struct operation_reader {
    const char *name;
    uint32_t type;
    void (*read)(xmlNode *, quill_nyx_request &);
};

constexpr std::array operation_readers{
    operation_reader{"get-config", QUILL_NYX_REQUEST_TYPE_GET_CONFIG, read_get_config},
    operation_reader{"edit-config", QUILL_NYX_REQUEST_TYPE_EDIT_CONFIG, read_edit_config},
    operation_reader{"copy-config", QUILL_NYX_REQUEST_TYPE_COPY_CONFIG, read_copy_config},
    operation_reader{"delete-config", QUILL_NYX_REQUEST_TYPE_DELETE_CONFIG, read_delete_config},
    operation_reader{"lock", QUILL_NYX_REQUEST_TYPE_LOCK, read_lock},
    operation_reader{"unlock", QUILL_NYX_REQUEST_TYPE_UNLOCK, read_unlock},
    operation_reader{"get", QUILL_NYX_REQUEST_TYPE_GET, read_get},
    operation_reader{"validate", QUILL_NYX_REQUEST_TYPE_VALIDATE, read_validate},
    operation_reader{"commit", QUILL_NYX_REQUEST_TYPE_COMMIT, read_commit},
    operation_reader{"cancel-commit", QUILL_NYX_REQUEST_TYPE_CANCEL_COMMIT, read_cancel_commit},
    operation_reader{"discard-changes", QUILL_NYX_REQUEST_TYPE_DISCARD_CHANGES, read_discard_changes},
    operation_reader{"close-session", QUILL_NYX_REQUEST_TYPE_STOP_SESSION, read_close_session},
    operation_reader{"kill-session", QUILL_NYX_REQUEST_TYPE_STOP_SESSION, read_kill_session},
};

operation_reader reader_for(const xmlNode *operation) {
    for (const operation_reader &known : operation_readers) {
        if (is_netconf(operation, known.name)) {
            return known;
        }
    }
    return {"", QUILL_NYX_REQUEST_TYPE_INVOKE_RPC, read_other};
}

}  // namespace

void read_request(xmlNode *rpc, quill_nyx_request &request) {
    if (const auto id = plain_attribute(rpc, "message-id")) {
        if (!fits_message_id(*id)) {
            throw bad_attribute("message-id", "rpc");
        }
        request.message_id = copy_string(*id);
        request.has_message_id = 1;
    }
    xmlNode *operation = element_from(rpc->children);
    if (operation == nullptr || element_from(operation->next) != nullptr) {
        throw simple_failure(NYX_ERROR_TYPE_RPC, "malformed-message", "The rpc does not hold exactly one operation.");
    }
    const operation_reader reader = reader_for(operation);
    request.type = reader.type;
    request.has_type = 1;
    reader.read(operation, request);
}

}  // namespace request_path
