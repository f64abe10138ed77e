#include <benchmark/benchmark.h>

#include <memory>

#include "codecs.h"
#include "protobuf_c/nyx.pb-c.h"

namespace {

const ProtobufCMessageDescriptor *descriptor_of(message_kind kind) {
    switch (kind) {
        case message_kind::request:
            return &quill__nyx__request__descriptor;
        case message_kind::response:
            return &quill__nyx__response__descriptor;
        case message_kind::request_result:
            return &quill__nyx__request_result__descriptor;
        case message_kind::datatree:
            break;
    }
    return &quill__nyx__datatree__descriptor;
}

struct release {
    void operator()(ProtobufCMessage *message) const { protobuf_c_message_free_unpacked(message, nullptr); }
};

using owned_message = std::unique_ptr<ProtobufCMessage, release>;

struct context {
    const ProtobufCMessageDescriptor *descriptor;
    std::vector<uint8_t> bytes;
    std::vector<uint8_t> buffer;
    owned_message source;
    std::vector<owned_message> live;

    explicit context(const sample &message)
        : descriptor(descriptor_of(message.kind)),
          bytes(message.bytes),
          buffer(bytes.size()),
          source(unpack()),
          live(message.live_batch()) {
        require(source != nullptr, "protobuf-c cannot unpack");
        require(protobuf_c_message_get_packed_size(source.get()) == bytes.size(),
                "protobuf-c's encoding has another length");
        protobuf_c_message_pack(source.get(), buffer.data());
        require(buffer == bytes, "protobuf-c encodes other bytes");
    }

    owned_message unpack() const {
        return owned_message(protobuf_c_message_unpack(descriptor, nullptr, bytes.size(), bytes.data()));
    }
};

}  // namespace

void add_protobuf_c(const sample &message, std::vector<operation> &operations) {
    auto on = std::make_shared<context>(message);
    const char *const self = "protobuf-c";
    operations.push_back(plain("size", self, message.batch(), [on] {
        benchmark::DoNotOptimize(protobuf_c_message_get_packed_size(on->source.get()));
    }));
    operations.push_back(plain("encode", self, message.batch(), [on] {
        benchmark::DoNotOptimize(protobuf_c_message_pack(on->source.get(), on->buffer.data()));
    }));
    operation decode{"decode_malloc", self, message.live_batch(), nullptr};
    decode.uses_heap = true;
    decode.run = [on](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            on->live[i] = on->unpack();
        }
    };
    decode.finish = [on](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            on->live[i].reset();
        }
    };
    operations.push_back(decode);
}
