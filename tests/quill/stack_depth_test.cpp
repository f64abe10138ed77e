// How much stack nested data trees take: the codec recurses, and its callers must be able to reckon with that.
//
// Each operation runs on a thread whose stack was painted before; what is no longer paint was in use. Two depths give
// the stack of one level.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "build_kind.h"
#include "counting_allocator.h"
#include "quill_nyx.h"

namespace nyx_test {
namespace {

constexpr uint64_t most_bytes_per_level = 160;
constexpr std::size_t default_stack = std::size_t{8} << 20;

// Frames of other builds are several times as large.
constexpr std::size_t deep_stack = release_build ? default_stack : default_stack * 8;

// Painted memory with a page below it that nobody may touch.
class painted_stack {
  public:
    explicit painted_stack(std::size_t size)
        : size_(size),
          memory_(static_cast<uint8_t *>(mmap(nullptr, guard + size, PROT_READ | PROT_WRITE,
                                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))) {
        EXPECT_NE(memory_, MAP_FAILED);
        EXPECT_EQ(mprotect(memory_, guard, PROT_NONE), 0);
        std::memset(memory_ + guard, paint, size_);
    }
    painted_stack(const painted_stack &) = delete;
    painted_stack &operator=(const painted_stack &) = delete;
    ~painted_stack() { munmap(memory_, guard + size_); }

    void run(const std::function<void()> &work) {
        pthread_attr_t attributes;
        pthread_t thread;
        ASSERT_EQ(pthread_attr_init(&attributes), 0);
        ASSERT_EQ(pthread_attr_setstack(&attributes, memory_ + guard, size_), 0);
        ASSERT_EQ(pthread_create(&thread, &attributes, enter, const_cast<std::function<void()> *>(&work)), 0);
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
        pthread_attr_destroy(&attributes);
    }

    [[nodiscard]] std::size_t used() const {
        std::size_t untouched = 0;
        while (untouched < size_ && memory_[guard + untouched] == paint) {
            ++untouched;
        }
        return size_ - untouched;
    }

  private:
    static constexpr std::size_t guard = 4096;
    static constexpr uint8_t paint = 0xC3;

    static void *enter(void *work) {
        (*static_cast<std::function<void()> *>(work))();
        return nullptr;
    }

    std::size_t size_;
    uint8_t *memory_;
};

// A chain of data trees, each the only child of the one before, and its encoding: put together level by level, without
// recursion.
class chain {
  public:
    explicit chain(std::size_t depth) : nodes_(depth) {
        for (std::size_t i = 0; i < depth; ++i) {
            nodes_[i].name = name;
            nodes_[i].has_name = 1;
            if (i + 1 < depth) {
                nodes_[i].children = &nodes_[i + 1];
                nodes_[i].children_count = 1;
                nodes_[i].has_children = 1;
            }
        }
        encode_by_hand();
    }

    [[nodiscard]] const quill_nyx_datatree *root() const { return nodes_.data(); }
    [[nodiscard]] const std::vector<uint8_t> &message() const { return message_; }
    [[nodiscard]] std::size_t depth() const { return nodes_.size(); }

  private:
    static std::vector<uint8_t> varint(std::size_t value) {
        std::vector<uint8_t> out;
        for (; value >= 0x80; value >>= 7U) {
            out.push_back(static_cast<uint8_t>(value | 0x80U));
        }
        out.push_back(static_cast<uint8_t>(value));
        return out;
    }

    void encode_by_hand() {
        constexpr std::size_t name_size = 3;
        std::vector<std::size_t> sizes(depth(), name_size);
        for (std::size_t i = depth() - 1; i-- > 0;) {
            sizes[i] = name_size + 1 + varint(sizes[i + 1]).size() + sizes[i + 1];
        }
        for (std::size_t i = 0; i < depth(); ++i) {
            message_.insert(message_.end(), {0x0A, 0x01, 'n'});
            if (i + 1 < depth()) {
                message_.push_back(0x3A);
                const std::vector<uint8_t> length = varint(sizes[i + 1]);
                message_.insert(message_.end(), length.begin(), length.end());
            }
        }
    }

    static inline char name[] = "n";
    std::vector<quill_nyx_datatree> nodes_;
    std::vector<uint8_t> message_;
};

// Every operation on a chain; those that need a decoded record make it on the same stack, which they share with the
// decoder. Results are kept and checked outside: an assertion would paint the stack itself.
class operations {
  public:
    explicit operations(const chain &tree)
        : tree_(tree), arena_(tree.depth() * 256), copy_arena_(tree.depth() * 256), out_(tree.message().size() + 1) {}

    uint64_t size_only() { return encode(nullptr, 0, nullptr, nullptr); }
    uint64_t write() { return encode(out_.data(), out_.size(), nullptr, nullptr); }
    uint64_t write_short() { return encode(out_.data(), tree_.message().size() - 1, nullptr, nullptr); }
    uint64_t write_half() { return encode(out_.data(), tree_.message().size() / 2, nullptr, nullptr); }
    uint64_t write_with_segments() {
        segments_.resize(tree_.depth());
        segment_count_ = static_cast<uint32_t>(tree_.depth());
        return encode(out_.data(), out_.size(), segments_.data(), &segment_count_);
    }
    uint64_t write_short_with_segments() {
        segments_.resize(tree_.depth());
        segment_count_ = static_cast<uint32_t>(tree_.depth());
        return encode(out_.data(), tree_.message().size() - 1, segments_.data(), &segment_count_);
    }
    uint64_t count_segments() {
        segment_count_ = 0;
        return encode(nullptr, 0, nullptr, &segment_count_);
    }
    int32_t decode() {
        return quill_nyx_datatree_decode_ext(&decoded_, tree_.message().data(), tree_.message().size(),
                                             bump_arena::alloc, &arena_, 0);
    }
    int32_t duplicate() { return quill_nyx_datatree_duplicate(&copy_, tree_.root(), bump_arena::alloc, &copy_arena_); }
    void release() { quill_nyx_datatree_free_ext(&decoded_, count_free, &frees_, 0); }

    [[nodiscard]] const std::vector<uint8_t> &out() const { return out_; }
    [[nodiscard]] uint32_t segment_count() const { return segment_count_; }
    [[nodiscard]] uint64_t frees() const { return frees_; }
    [[nodiscard]] const quill_nyx_datatree &decoded() const { return decoded_; }
    [[nodiscard]] const quill_nyx_datatree &copy() const { return copy_; }

  private:
    uint64_t encode(uint8_t *buffer, uint64_t length, quill_segment *segments, uint32_t *count) {
        return quill_nyx_datatree_encode_ext(tree_.root(), buffer, length, segments, count, 0);
    }
    static void count_free(void * /*block*/, void *frees) { ++*static_cast<uint64_t *>(frees); }

    const chain &tree_;
    bump_arena arena_;
    bump_arena copy_arena_;
    std::vector<uint8_t> out_;
    std::vector<quill_segment> segments_;
    uint32_t segment_count_ = 0;
    uint64_t frees_ = 0;
    quill_nyx_datatree decoded_ = {};
    quill_nyx_datatree copy_ = {};
};

std::size_t stack_of(std::size_t depth, const std::function<void(operations &)> &prepare,
                     const std::function<void(operations &)> &work) {
    const chain tree(depth);
    operations on(tree);
    painted_stack preparing(deep_stack);
    preparing.run([&] { prepare(on); });
    painted_stack stack(deep_stack);
    stack.run([&] { work(on); });
    return stack.used();
}

TEST(StackDepth, BytesPerLevel) {
    const std::function<void(operations &)> nothing = [](operations &) {};
    const struct {
        const char *name;
        std::function<void(operations &)> prepare;
        std::function<void(operations &)> work;
    } cases[] = {
        {"encode, size only", nothing, [](operations &on) { on.size_only(); }},
        {"encode", nothing, [](operations &on) { on.write(); }},
        {"encode with segments", nothing, [](operations &on) { on.write_with_segments(); }},
        {"encode, buffer one byte short", nothing, [](operations &on) { on.write_short(); }},
        {"encode, half a buffer", nothing, [](operations &on) { on.write_half(); }},
        {"encode with segments, short buffer", nothing, [](operations &on) { on.write_short_with_segments(); }},
        {"encode, count segments only", nothing, [](operations &on) { on.count_segments(); }},
        {"decode", nothing, [](operations &on) { on.decode(); }},
        {"duplicate", nothing, [](operations &on) { on.duplicate(); }},
        {"release", [](operations &on) { on.decode(); }, [](operations &on) { on.release(); }},
    };
    // Deep enough that the pass with the largest frames decides, and not one with a large fixed part.
    constexpr std::size_t shallow = 10000;
    constexpr std::size_t deep = 30000;
    for (const auto &c : cases) {
        const std::size_t more = stack_of(deep, c.prepare, c.work) - stack_of(shallow, c.prepare, c.work);
        const double per_level = static_cast<double>(more) / (deep - shallow);
        std::printf("%-36s %6.1f bytes of stack per level\n", c.name, per_level);
        RecordProperty(c.name, std::to_string(per_level));
        EXPECT_GT(per_level, 8.0) << c.name;  // less than a return address: the measurement itself is broken
        if (release_build) {
            EXPECT_LE(per_level, most_bytes_per_level) << c.name;
        }
    }
}

// What an operation takes at any depth: the encoder's table above all. Threads with small stacks count on it.
TEST(StackDepth, FixedPartIsSmall) {
    const std::function<void(operations &)> cases[] = {
        [](operations &on) { on.size_only(); },
        [](operations &on) { on.write(); },
        [](operations &on) { on.write_with_segments(); },
        [](operations &on) { on.write_short(); },
        [](operations &on) { on.decode(); },
        [](operations &on) { on.duplicate(); },
    };
    for (const auto &work : cases) {
        const std::size_t used = stack_of(
            1, [](operations &) {}, work);
        std::printf("%zu bytes at depth 1\n", used);
        if (release_build) {
            EXPECT_LE(used, 16384U);  // also the thread's own start, which is about 4 KiB of it
        }
    }
}

// The nodes of both chains have the same names all the way down; compared without recursion.
std::size_t common_depth(const quill_nyx_datatree *left, const quill_nyx_datatree *right) {
    std::size_t depth = 0;
    while (std::strcmp(left->name, right->name) == 0) {
        ++depth;
        if (left->children_count != 1 || right->children_count != 1) {
            break;
        }
        left = left->children;
        right = right->children;
    }
    return depth;
}

TEST(StackDepth, FiftyThousandLevelsOnAnOrdinaryStack) {
    constexpr std::size_t depth = 50000;
    const chain tree(depth);
    operations on(tree);
    painted_stack stack(deep_stack);
    const uint64_t size = tree.message().size();

    uint64_t sizes[7] = {};
    std::vector<uint8_t> written;
    int32_t results[2] = {-1, -1};
    uint32_t segment_counts[3] = {};
    stack.run([&] {
        sizes[0] = on.size_only();
        sizes[1] = on.write();
        written = on.out();
        sizes[2] = on.write_short();
        sizes[3] = on.write_half();
        sizes[4] = on.write_with_segments();
        segment_counts[0] = on.segment_count();
        sizes[5] = on.write_short_with_segments();
        segment_counts[1] = on.segment_count();
        sizes[6] = on.count_segments();
        segment_counts[2] = on.segment_count();
        results[0] = on.decode();
        results[1] = on.duplicate();
    });
    for (const uint64_t result : sizes) {
        EXPECT_EQ(result, size);
    }
    written.pop_back();
    EXPECT_TRUE(written == tree.message());
    for (const uint32_t count : segment_counts) {
        EXPECT_EQ(count, depth);
    }
    EXPECT_EQ(results[0], 0);
    EXPECT_EQ(results[1], 0);
    EXPECT_EQ(common_depth(&on.decoded(), tree.root()), depth);
    EXPECT_EQ(common_depth(&on.copy(), tree.root()), depth);
    stack.run([&] { on.release(); });
    EXPECT_EQ(on.frees(), 2 * depth - 1);  // a name each, and an array for each child
    std::printf("%zu levels used %zu of %zu bytes of stack\n", depth, stack.used(), deep_stack);
}

}  // namespace
}  // namespace nyx_test
