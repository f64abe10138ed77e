#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#include "arena.h"
#include "codecs.h"
#include "quill_nyx.h"

namespace {

template <class Record>
struct codec_of;

#define NYX_BENCH_CODEC(record)                                           \
    template <>                                                           \
    struct codec_of<quill_nyx_##record> {                                 \
        static constexpr auto encode = quill_nyx_##record##_encode_ext;   \
        static constexpr auto decode = quill_nyx_##record##_decode_ext;   \
        static constexpr auto duplicate = quill_nyx_##record##_duplicate; \
        static constexpr auto free = quill_nyx_##record##_free_ext;       \
    }

NYX_BENCH_CODEC(request);
NYX_BENCH_CODEC(response);
NYX_BENCH_CODEC(request_result);
NYX_BENCH_CODEC(datatree);

void *take(uint64_t size, void *) {
    return std::malloc(size);
}

void give(void *block, void *) {
    std::free(block);
}

// One block that the decoder asks for: a text, which it copies from the message, or an array, which it zeroes.
struct block {
    static constexpr uint32_t array = UINT32_MAX;
    uint32_t text;  // where the text lies in the message, or `array`
    uint32_t size;  // without the terminator of a text
};

// Hands out blocks and remembers them.
struct recorder {
    std::vector<std::pair<void *, uint64_t>> blocks;

    static void *take(uint64_t size, void *self) {
        void *taken = std::malloc(size);
        static_cast<recorder *>(self)->blocks.emplace_back(taken, size);
        return taken;
    }
};

// Where the text lies in the message at or behind `from`, recognised by its length and its bytes.
std::size_t find_text(const std::vector<uint8_t> &bytes, std::size_t from, const char *text, std::size_t length) {
    std::vector<uint8_t> wanted;
    std::size_t rest = length;
    for (; rest >= 128; rest >>= 7U) {
        wanted.push_back(static_cast<uint8_t>(rest | 128U));
    }
    wanted.push_back(static_cast<uint8_t>(rest));
    const std::size_t prefix = wanted.size();
    wanted.insert(wanted.end(), text, text + length);
    const auto found =
        std::search(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(), wanted.begin(), wanted.end());
    require(found != bytes.end(), "a decoded text is not in the message");
    return static_cast<std::size_t>(found - bytes.begin()) + prefix;
}

// The blocks of one decode, in their order. A block is a text if its only NUL is its last byte: all arrays are of
// records that begin with a pointer, whose highest bytes are zero.
template <class Record>
std::vector<block> blocks_of(const std::vector<uint8_t> &bytes) {
    Record record{};
    recorder log;
    require(codec_of<Record>::decode(&record, bytes.data(), bytes.size(), recorder::take, &log, 0) == 0,
            "the message is not decoded");
    std::vector<block> blocks;
    std::size_t position = 0;
    for (const auto &[taken, size] : log.blocks) {
        const auto *text = static_cast<const char *>(taken);
        const std::size_t length = strnlen(text, size);
        if (length + 1 == size) {
            position = find_text(bytes, position, text, length);
            blocks.push_back({static_cast<uint32_t>(position), static_cast<uint32_t>(length)});
            position += length;
        } else {
            blocks.push_back({block::array, static_cast<uint32_t>(size)});
        }
    }
    codec_of<Record>::free(&record, give, nullptr, 0);
    return blocks;
}

inline void copy_text(char *to, const uint8_t *from, uint32_t length) {
    if (length > 32) {
        std::memcpy(to, from, length);
    } else if (length >= 16) {
        std::memcpy(to, from, 16);
        std::memcpy(to + length - 16, from + length - 16, 16);
    } else if (length >= 8) {
        std::memcpy(to, from, 8);
        std::memcpy(to + length - 8, from + length - 8, 8);
    } else if (length >= 4) {
        std::memcpy(to, from, 4);
        std::memcpy(to + length - 4, from + length - 4, 4);
    } else {
        for (uint32_t i = 0; i < length; ++i) {
            to[i] = static_cast<char>(from[i]);
        }
    }
    to[length] = '\0';
}

// The least that any decoder with our contract has to do: reset the record, ask the caller's function for the very same
// blocks in the very same order, copy each text with its terminator, and clear each array. What a decoder does beyond
// that is the reading of the wire format and the storing of the members.
void replay(const std::vector<block> &blocks, const uint8_t *bytes, quill_alloc_fn alloc, void *alloc_ctx) {
    for (const block &each : blocks) {
        if (each.text == block::array) {
            void *array = alloc(each.size, alloc_ctx);
            std::memset(array, 0, each.size);
            benchmark::DoNotOptimize(array);
        } else {
            auto *text = static_cast<char *>(alloc(uint64_t{each.size} + 1, alloc_ctx));
            copy_text(text, bytes + each.text, each.size);
            benchmark::DoNotOptimize(text);
        }
    }
}

template <class Record>
struct context {
    using codec = codec_of<Record>;

    std::vector<uint8_t> bytes;
    std::vector<uint8_t> buffer;
    std::vector<quill_segment> segments;
    std::vector<block> blocks;
    Record source{};  // as callers fill records: zeroed first
    std::vector<Record> live;
    bump_arena arena;

    explicit context(const sample &message)
        : bytes(message.bytes),
          buffer(bytes.size()),
          blocks(blocks_of<Record>(bytes)),
          live(message.live_batch()),
          arena(room_for(blocks)) {
        decode_malloc(&source);
        require(encode() == bytes.size() && buffer == bytes, "libnyx encodes other bytes");
        uint32_t count = 0;
        codec::encode(&source, nullptr, 0, nullptr, &count, 0);
        segments.resize(count);
    }

    ~context() { codec::free(&source, give, nullptr, 0); }
    context(const context &) = delete;
    context &operator=(const context &) = delete;

    static uint64_t room_for(const std::vector<block> &blocks) {
        uint64_t room = 0;
        for (const block &each : blocks) {
            room += bump_arena::rounded(uint64_t{each.size} + 1);
        }
        return room;
    }

    uint64_t size() const { return codec::encode(&source, nullptr, 0, nullptr, nullptr, 0); }

    uint64_t encode() { return codec::encode(&source, buffer.data(), buffer.size(), nullptr, nullptr, 0); }

    void encode_segments() {
        auto count = static_cast<uint32_t>(segments.size());
        codec::encode(&source, buffer.data(), buffer.size(), segments.data(), &count, 0);
    }

    void decode_malloc(Record *record) {
        require(codec::decode(record, bytes.data(), bytes.size(), take, nullptr, 0) == 0, "decode failed");
    }

    void copy_malloc(Record *record) { require(codec::duplicate(record, &source, take, nullptr) == 0, "copy failed"); }

    void decode_arena() {
        arena.reset();
        require(codec::decode(live.data(), bytes.data(), bytes.size(), bump_arena::take, &arena, 0) == 0,
                "decode failed");
    }

    void copy_arena() {
        arena.reset();
        require(codec::duplicate(live.data(), &source, bump_arena::take, &arena) == 0, "copy failed");
    }

    void replay_arena() {
        arena.reset();
        std::memset(static_cast<void *>(live.data()), 0, sizeof(Record));
        benchmark::ClobberMemory();
        quill_alloc_fn alloc = bump_arena::take;
        benchmark::DoNotOptimize(alloc);  // called through the pointer, as a library has to
        replay(blocks, bytes.data(), alloc, &arena);
    }

    void free_live(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            codec::free(&live[i], give, nullptr, 0);
        }
    }
};

// An operation that fills the live records; they are released outside the timing.
template <class Context, class Body>
operation filling(const char *name, std::size_t batch, std::shared_ptr<Context> on, Body body) {
    operation result{name, "libnyx", batch, nullptr};
    result.uses_heap = true;
    result.run = [on, body](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            body(*on, &on->live[i]);
        }
    };
    result.finish = [on](std::size_t count) { on->free_live(count); };
    return result;
}

template <class Record>
void add(const sample &message, std::vector<operation> &operations) {
    auto on = std::make_shared<context<Record>>(message);
    const std::size_t batch = message.batch();
    const std::size_t live_batch = message.live_batch();
    const char *const self = "libnyx";
    operations.push_back(plain("size", self, batch, [on] { benchmark::DoNotOptimize(on->size()); }));
    operations.push_back(plain("encode", self, batch, [on] { benchmark::DoNotOptimize(on->encode()); }));
    operations.push_back(plain("encode", "memcpy", batch, [on] {
        std::memcpy(on->buffer.data(), on->bytes.data(), on->bytes.size());
        benchmark::ClobberMemory();
    }));
    operations.push_back(plain("size_encode", self, batch, [on] {
        benchmark::DoNotOptimize(on->size());
        benchmark::DoNotOptimize(on->encode());
    }));
    operations.push_back(plain("encode_segments", self, batch, [on] { on->encode_segments(); }));
    operations.push_back(
        filling("decode_malloc", live_batch, on, [](auto &with, Record *record) { with.decode_malloc(record); }));
    operations.push_back(plain("decode_arena", self, batch, [on] { on->decode_arena(); }));
    operations.push_back(plain("decode_arena", "limit", batch, [on] { on->replay_arena(); }));
    operations.push_back(plain("copy_arena", self, batch, [on] { on->copy_arena(); }));
    operations.push_back(
        filling("copy_malloc", live_batch, on, [](auto &with, Record *record) { with.copy_malloc(record); }));
    operation release{"release", self, live_batch, [on](std::size_t count) { on->free_live(count); }};
    release.uses_heap = true;
    release.prepare = [on](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            on->decode_malloc(&on->live[i]);
        }
    };
    operations.push_back(release);
}

}  // namespace

void add_libnyx(const sample &message, std::vector<operation> &operations) {
    switch (message.kind) {
        case message_kind::request:
            return add<quill_nyx_request>(message, operations);
        case message_kind::response:
            return add<quill_nyx_response>(message, operations);
        case message_kind::request_result:
            return add<quill_nyx_request_result>(message, operations);
        case message_kind::datatree:
            return add<quill_nyx_datatree>(message, operations);
    }
}
