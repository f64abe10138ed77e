#include <benchmark/benchmark.h>

#include <memory>

#include "codecs.h"
#include "nanopb_message.h"

// nanopb takes part in size and encode only: the packaged library is built without malloc, so that it cannot decode
// members that are pointers.

namespace {

void *take(uint64_t size, void *) {
    return std::malloc(size);
}

void give(void *block, void *) {
    std::free(block);
}

template <class Record, class Decode, class Release, class Convert>
nanopb_message *convert(const sample &message, Decode decode, Release release, Convert convert_record) {
    auto record = std::make_unique<Record>();
    require(decode(record.get(), message.bytes.data(), message.bytes.size(), take, nullptr, 0) == 0, "decode failed");
    nanopb_message *converted = convert_record(record.get());
    release(record.get(), give, nullptr, 0);
    return converted;
}

nanopb_message *converted(const sample &message) {
    switch (message.kind) {
        case message_kind::request:
            return convert<quill_nyx_request>(message, quill_nyx_request_decode_ext, quill_nyx_request_free_ext,
                                              nanopb_from_request);
        case message_kind::response:
            return convert<quill_nyx_response>(message, quill_nyx_response_decode_ext, quill_nyx_response_free_ext,
                                               nanopb_from_response);
        case message_kind::request_result:
            return convert<quill_nyx_request_result>(message, quill_nyx_request_result_decode_ext,
                                                     quill_nyx_request_result_free_ext, nanopb_from_request_result);
        case message_kind::datatree:
            break;
    }
    return convert<quill_nyx_datatree>(message, quill_nyx_datatree_decode_ext, quill_nyx_datatree_free_ext,
                                       nanopb_from_datatree);
}

}  // namespace

void add_nanopb(const sample &message, std::vector<operation> &operations) {
    const nanopb_message *const source = converted(message);
    auto buffer = std::make_shared<std::vector<uint8_t>>(message.bytes.size());
    require(nanopb_size(source) == message.bytes.size(), "nanopb's encoding has another length");
    require(nanopb_encode(source, buffer->data(), buffer->size()) == buffer->size() && *buffer == message.bytes,
            "nanopb encodes other bytes");
    const char *const self = "nanopb";
    operations.push_back(
        plain("size", self, message.batch(), [source] { benchmark::DoNotOptimize(nanopb_size(source)); }));
    operations.push_back(plain("encode", self, message.batch(), [source, buffer] {
        benchmark::DoNotOptimize(nanopb_encode(source, buffer->data(), buffer->size()));
    }));
}
