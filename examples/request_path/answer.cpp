#include "answer.h"

#include <new>
#include <utility>

namespace request_path {

namespace {

template <class record_type, class encoder>
message encoded(message_kind kind, const record_type &record, encoder encode) {
    message outgoing;
    outgoing.kind = kind;
    outgoing.bytes.resize(encode(&record, nullptr, 0, nullptr, nullptr, 0));
    encode(&record, outgoing.bytes.data(), outgoing.bytes.size(), nullptr, nullptr, 0);
    return outgoing;
}

}  // namespace

const quill_nyx_datatree &answer::return_data(node data) {
    data.name = "data";
    data.name_space = netconf_namespace;
    write_tree(response_.record.tree, data);
    response_.record.has_tree = 1;
    is_response_ = true;
    return response_.record.tree;
}

/* The library writes errors into results: each is written there, and moves. */
void answer::return_failures(const std::vector<rpc_failure> &failures, nyx_request_ctx &under_way,
                             nyx_session_ctx *session) {
    quill_nyx_response &response = response_.record;
    response.errors = make_records<quill_nyx_error>(failures.size());
    response.errors_count = static_cast<uint32_t>(failures.size());
    response.has_errors = 1;
    for (size_t i = 0; i < failures.size(); ++i) {
        owned_result one;
        write_failure(failures[i], under_way, session, one.record);
        if (!one.record.has_error) {
            throw std::bad_alloc();
        }
        response.errors[i] = std::exchange(one.record.error, {});
    }
    is_response_ = true;
}

bool answer::is_failure() const {
    const quill_nyx_request_result &result = result_.record;
    return is_response_ ? response_.record.errors_count > 0 : result.has_uint32_1 && result.uint32_1 == 0;
}

message answer::encode() const {
    return is_response_ ? encoded(message_kind::response, response_.record, quill_nyx_response_encode_ext)
                        : encoded(message_kind::request_result, result_.record, quill_nyx_request_result_encode_ext);
}

}  // namespace request_path
