#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>
#include <google/protobuf/io/coded_stream.h>

#include <memory>

#include "codecs.h"
#include "protobuf/nyx.pb.h"

namespace {

namespace pb = google::protobuf;

template <class Message>
struct context {
    std::vector<uint8_t> bytes;
    std::vector<uint8_t> buffer;
    Message source;
    bool deep;
    std::vector<std::unique_ptr<Message>> live;
    std::vector<char> first_block;
    std::unique_ptr<pb::Arena> arena;

    explicit context(const sample &message)
        : bytes(message.bytes), buffer(bytes.size()), deep(message.name == "chain_1000"), live(message.live_batch()) {
        parse(&source);
        require(source.ByteSizeLong() == bytes.size(), "libprotobuf's encoding has another length");
        encode();
        require(buffer == bytes, "libprotobuf encodes other bytes");
        make_arena();
    }

    // One block that holds whatever a parse or a copy puts into the arena.
    void make_arena() {
        pb::Arena trial;
        parse(pb::Arena::CreateMessage<Message>(&trial));
        first_block.resize(trial.SpaceAllocated() * 2 + 64 * 1024, 1);
        pb::ArenaOptions options;
        options.initial_block = first_block.data();
        options.initial_block_size = first_block.size();
        arena = std::make_unique<pb::Arena>(options);
        parse(pb::Arena::CreateMessage<Message>(arena.get()));
        require(arena->SpaceAllocated() == first_block.size(), "libprotobuf's arena needs more than its first block");
        arena->Reset();
        pb::Arena::CreateMessage<Message>(arena.get())->CopyFrom(source);
        require(arena->SpaceAllocated() == first_block.size(), "libprotobuf's arena needs more than its first block");
    }

    // The plain call gives up at 100 levels.
    void parse(Message *message) const {
        if (!deep) {
            require(message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())), "libprotobuf cannot parse");
            return;
        }
        pb::io::CodedInputStream input(bytes.data(), static_cast<int>(bytes.size()));
        input.SetRecursionLimit(1'000'000);
        require(message->ParseFromCodedStream(&input) && input.ConsumedEntireMessage(), "libprotobuf cannot parse");
    }

    void encode() {
        benchmark::DoNotOptimize(source.ByteSizeLong());
        benchmark::DoNotOptimize(source.SerializeWithCachedSizesToArray(buffer.data()));
    }

    void parse_fresh(std::size_t i) {
        live[i].reset(new Message);
        parse(live[i].get());
    }

    void copy_fresh(std::size_t i) {
        live[i].reset(new Message);
        live[i]->CopyFrom(source);
    }

    void release(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            live[i].reset();
        }
    }
};

template <class Context>
operation filling(const char *name, std::size_t batch, std::shared_ptr<Context> on,
                  void (Context::*fill)(std::size_t)) {
    operation result{name, "libprotobuf", batch, nullptr};
    result.uses_heap = true;
    result.run = [on, fill](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            (*on.*fill)(i);
        }
    };
    result.finish = [on](std::size_t count) { on->release(count); };
    return result;
}

template <class Message>
void add(const sample &message, std::vector<operation> &operations) {
    using context_type = context<Message>;
    auto on = std::make_shared<context_type>(message);
    const std::size_t batch = message.batch();
    const std::size_t live_batch = message.live_batch();
    const char *const self = "libprotobuf";
    operations.push_back(plain("size", self, batch, [on] { benchmark::DoNotOptimize(on->source.ByteSizeLong()); }));
    operations.push_back(plain("encode", self, batch, [on] { on->encode(); }));
    operations.push_back(filling("decode_malloc", live_batch, on, &context_type::parse_fresh));
    operations.push_back(plain("decode_arena", self, batch, [on] {
        on->arena->Reset();
        on->parse(pb::Arena::CreateMessage<Message>(on->arena.get()));
    }));
    operations.push_back(plain("copy_arena", self, batch, [on] {
        on->arena->Reset();
        pb::Arena::CreateMessage<Message>(on->arena.get())->CopyFrom(on->source);
    }));
    operations.push_back(filling("copy_malloc", live_batch, on, &context_type::copy_fresh));
    operation release{"release", self, live_batch, [on](std::size_t count) { on->release(count); }};
    release.uses_heap = true;
    release.prepare = [on](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            on->parse_fresh(i);
        }
    };
    operations.push_back(release);
}

}  // namespace

void add_protobuf(const sample &message, std::vector<operation> &operations) {
    switch (message.kind) {
        case message_kind::request:
            return add<quill::nyx::Request>(message, operations);
        case message_kind::response:
            return add<quill::nyx::Response>(message, operations);
        case message_kind::request_result:
            return add<quill::nyx::RequestResult>(message, operations);
        case message_kind::datatree:
            return add<quill::nyx::Datatree>(message, operations);
    }
}
