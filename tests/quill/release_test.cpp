// Release.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "decode_fixture.h"

namespace nyx_test {
namespace {

using order = std::vector<std::string>;

// Records hold the addresses of literals instead of blocks: a release lists the literals in the order of its calls, and
// the arrays by the names that the test gave them.
struct released_names {
    std::vector<std::pair<const void *, std::string>> arrays;
    order names;

    static void free(void *block, void *ctx) {
        auto *self = static_cast<released_names *>(ctx);
        for (const auto &[array, name] : self->arrays) {
            if (array == block) {
                self->names.push_back(name);
                return;
            }
        }
        self->names.emplace_back(static_cast<const char *>(block));
    }
};

char *text(const char *literal) {
    return const_cast<char *>(literal);
}

class ReleaseEveryRecord : public testing::TestWithParam<record_id> {
  protected:
    [[nodiscard]] static const record_table &table() { return table_of(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(All, ReleaseEveryRecord, every_record(), record_name);

void must_not_free(void *block, void * /*free_ctx*/) {
    ADD_FAILURE() << "freed " << block;
}

TEST_P(ReleaseEveryRecord, ZeroFilledRecordOwnsNothing) {
    raw_record record(table(), 0);
    table().free(record.get(), must_not_free, nullptr, 0);
    raw_record zero(table(), 0);
    EXPECT_EQ(std::memcmp(record.get(), zero.get(), table().size), 0);
}

// What the rules say of each member, written down once more: the order of the calls, and what the record looks like
// afterwards.
void release_by_the_rules(const record_table &table, void *record, std::vector<void *> &calls) {
    for (const member &m : table.members) {
        if (m.kind == member_kind::record) {
            release_by_the_rules(table_of(m.element), nested_of(m, record), calls);
        }
        if (is_number(m.kind) || m.kind == member_kind::record || pointer_of(m, record) == nullptr) {
            continue;
        }
        void *block = pointer_of(m, record);
        for (uint32_t i = 0; is_repeated(m.kind) && i < count_of(m, record); ++i) {
            if (m.kind == member_kind::records) {
                release_by_the_rules(table_of(m.element), record_at(m, block, i), calls);
            } else if (m.kind == member_kind::texts && text_at(block, i) != nullptr) {
                calls.push_back(const_cast<char *>(text_at(block, i)));
            }
        }
        calls.push_back(block);
        set_pointer(m, record, nullptr);
        if (m.kind == member_kind::texts || m.kind == member_kind::records) {
            set_count(m, record, 0);
        }
    }
}

// Keeps the blocks until the end: what was released can be compared address by address.
struct call_list {
    std::vector<void *> calls;

    static void free(void *block, void *ctx) { static_cast<call_list *>(ctx)->calls.push_back(block); }
};

void copy_elements_too(const record_table &table, void *record, counting_allocator &blocks) {
    for (const member &m : table.members) {
        if (m.kind == member_kind::record) {
            copy_elements_too(table_of(m.element), nested_of(m, record), blocks);
        } else if (m.kind == member_kind::records && pointer_of(m, record) != nullptr) {
            const std::size_t size = count_of(m, record) * element_size(m);
            if (size == 0) {
                continue;
            }
            void *array = counting_allocator::alloc(size, &blocks);
            std::memcpy(array, pointer_of(m, record), size);
            set_pointer(m, record, array);
            for (uint32_t i = 0; i < count_of(m, record); ++i) {
                copy_elements_too(table_of(m.element), record_at(m, array, i), blocks);
            }
        }
    }
}

// The arrays of records are copied for the reckoning, so their own addresses are left out of the comparison.
TEST_P(ReleaseEveryRecord, RandomRecordsInTheOrderOfTheirMembers) {
    build_options options;
    options.longest_text = 100;
    for (uint64_t seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        counting_allocator blocks;
        std::mt19937_64 random(seed);
        raw_record record(table());
        build_record(table(), record.get(), random, options, counting_allocator::alloc, &blocks);

        raw_record reckoned(table());
        std::memcpy(reckoned.get(), record.get(), table().size);
        counting_allocator arrays;
        copy_elements_too(table(), reckoned.get(), arrays);
        std::vector<void *> expected;
        release_by_the_rules(table(), reckoned.get(), expected);

        call_list released;
        table().free(record.get(), call_list::free, &released, 7);
        ASSERT_EQ(released.calls.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            EXPECT_TRUE(released.calls[i] == expected[i] || arrays.owns(expected[i])) << "call " << i;
        }
        EXPECT_EQ(released.calls.size(), blocks.live_blocks());
        EXPECT_EQ(std::memcmp(record.get(), reckoned.get(), table().size), 0);

        table().free(record.get(), must_not_free, nullptr, 0);
        for (void *block : released.calls) {
            counting_allocator::free(block, &blocks);
        }
        EXPECT_EQ(blocks.live_blocks(), 0U);
        EXPECT_EQ(blocks.complaints(), "");
    }
}

TEST_P(ReleaseEveryRecord, PresenceBitsAndNumbersStay) {
    const bytes message = full_message(table(), 1);
    counting_allocator blocks;
    raw_record record(table());
    ASSERT_EQ(table().decode(record.get(), message.data(), message.size(), counting_allocator::alloc, &blocks, 0), 0);
    set_spare_bits(table(), record.get());
    const auto *presence = static_cast<const uint8_t *>(record.get()) + table().presence_offset;
    const bytes before(presence, presence + table().presence_bytes());
    expect_released(table(), record.get(), blocks);
    EXPECT_EQ(bytes(presence, presence + table().presence_bytes()), before);
    for (const member &m : table().members) {
        EXPECT_TRUE(is_present(table(), m, record.get()));
        if (m.kind == member_kind::number32) {
            EXPECT_EQ(number_of(m, record.get()), 1000 + m.field);
        } else if (is_number(m.kind)) {
            EXPECT_EQ(number_of(m, record.get()), m.kind == member_kind::number64 ? 0x123456789ABCDEF0 : 1 - m.reset);
        }
    }
}

quill_nyx_datatree named_tree(const char *name) {
    quill_nyx_datatree tree = {};
    tree.name = text(name);
    return tree;
}

TEST(Release, OrderOfADataTree) {
    quill_nyx_attribute attributes[2] = {};
    attributes[0].key = text("a0.key");
    attributes[0].value = text("a0.value");
    attributes[1].value = text("a1.value");
    quill_nyx_datatree children[2] = {named_tree("c0.name"), named_tree("c1.name")};
    children[0].string_13 = text("c0.string_13");
    quill_nyx_attribute keys[1] = {};
    keys[0].key = text("k0.key");
    char *strings[] = {text("s0"), nullptr, text("s2")};

    quill_nyx_datatree tree = {};
    tree.string_13 = text("string_13");
    tree.edit_ins.attribute.key = text("ins.attribute.key");
    tree.edit_ins.attribute.value = text("ins.attribute.value");
    tree.edit_ins.key.value = text("ins.key.value");
    tree.edit_ins.key.keys = keys;
    tree.edit_ins.key.keys_count = 1;
    tree.node_info.string_1 = text("info.string_1");
    tree.node_info.strings_3 = strings;
    tree.node_info.strings_3_count = 3;
    tree.children = children;
    tree.children_count = 2;
    tree.attributes = attributes;
    tree.attributes_count = 2;
    tree.namespace_ = text("namespace");
    tree.value = text("value");
    tree.name = text("name");

    released_names released = {
        {{attributes, "[attributes]"}, {children, "[children]"}, {keys, "[keys]"}, {strings, "[strings_3]"}}, {}};
    quill_nyx_datatree_free_ext(&tree, released_names::free, &released, 0);
    EXPECT_EQ(released.names, (order{"name",
                                     "value",
                                     "namespace",
                                     "a0.key",
                                     "a0.value",
                                     "a1.value",
                                     "[attributes]",
                                     "c0.name",
                                     "c0.string_13",
                                     "c1.name",
                                     "[children]",
                                     "info.string_1",
                                     "s0",
                                     "s2",
                                     "[strings_3]",
                                     "k0.key",
                                     "[keys]",
                                     "ins.key.value",
                                     "ins.attribute.key",
                                     "ins.attribute.value",
                                     "string_13"}));
    EXPECT_EQ(tree.attributes, nullptr);
    EXPECT_EQ(tree.attributes_count, 0U);
    EXPECT_EQ(tree.children_count, 0U);
    EXPECT_EQ(tree.node_info.strings_3_count, 0U);
    EXPECT_EQ(tree.edit_ins.key.keys_count, 0U);
}

// One text in every body that owns something.
TEST(Release, OrderOfARequest) {
    quill_nyx_request request = {};
    request.message_id = text("message_id");
    request.get_config.source.name = text("get_config.source");
    request.get_config.filter.tree.name = text("get_config.filter");
    request.get_config.with_defaults.string_3 = text("get_config.with_defaults");
    request.get_config.string_5 = text("get_config.string_5");
    request.edit_config.target.name = text("edit_config.target");
    request.edit_config.config.name = text("edit_config.config");
    request.validate.source.name = text("validate.source");
    request.validate.config.name = text("validate.config");
    request.lock.target.name = text("lock");
    request.unlock.target.name = text("unlock");
    request.commit.string_3 = text("commit.string_3");
    request.commit.string_4 = text("commit.string_4");
    request.cancel_commit.string_1 = text("cancel_commit");
    request.copy_config.target.name = text("copy_config.target");
    request.copy_config.string_2 = text("copy_config.string_2");
    request.copy_config.source.name = text("copy_config.source");
    request.copy_config.string_4 = text("copy_config.string_4");
    request.copy_config.config.name = text("copy_config.config");
    request.copy_config.with_defaults.string_3 = text("copy_config.with_defaults");
    request.get.filter.tree.name = text("get.filter");
    request.get.with_defaults.string_3 = text("get.with_defaults");
    request.start_session.string_1 = text("start_session.string_1");
    request.start_session.string_2 = text("start_session.string_2");
    request.start_session.string_5 = text("start_session.string_5");
    request.start_session.string_6 = text("start_session.string_6");
    request.start_session.string_7 = text("start_session.string_7");
    request.start_session.string_10 = text("start_session.string_10");
    request.cli_show.string_1 = text("cli_show");
    request.cli_config.string_1 = text("cli_config");
    request.invoke_rpc.tree.name = text("invoke_rpc");
    request.create_subscription.string_1 = text("create_subscription.string_1");
    request.create_subscription.filter.tree.name = text("create_subscription.filter");
    released_names released;
    quill_nyx_request_free_ext(&request, released_names::free, &released, 0);
    EXPECT_EQ(released.names, (order{"message_id",
                                     "get_config.source",
                                     "get_config.filter",
                                     "get_config.with_defaults",
                                     "get_config.string_5",
                                     "edit_config.target",
                                     "edit_config.config",
                                     "validate.source",
                                     "validate.config",
                                     "lock",
                                     "unlock",
                                     "commit.string_3",
                                     "commit.string_4",
                                     "cancel_commit",
                                     "copy_config.target",
                                     "copy_config.string_2",
                                     "copy_config.source",
                                     "copy_config.string_4",
                                     "copy_config.config",
                                     "copy_config.with_defaults",
                                     "get.filter",
                                     "get.with_defaults",
                                     "start_session.string_1",
                                     "start_session.string_2",
                                     "start_session.string_5",
                                     "start_session.string_6",
                                     "start_session.string_7",
                                     "start_session.string_10",
                                     "cli_show",
                                     "cli_config",
                                     "invoke_rpc",
                                     "create_subscription.string_1",
                                     "create_subscription.filter"}));
    released.names.clear();
    quill_nyx_request_free_ext(&request, released_names::free, &released, 0);
    EXPECT_EQ(released.names, order{});
}

TEST(Release, OrderOfAResponse) {
    quill_nyx_schema schemas[1] = {};
    schemas[0].string_2 = text("schema.string_2");
    schemas[0].string_13 = text("schema.string_13");
    quill_nyx_notification_stream streams[2] = {};
    streams[0].string_2 = text("stream0.string_2");
    streams[1].string_1 = text("stream1.string_1");
    quill_nyx_error errors[2] = {};
    errors[0].error_tag = text("errors0.tag");
    errors[0].error_app_tag = text("errors0.app_tag");
    errors[0].error_path.name = text("errors0.path");
    errors[0].error_message.string_1 = text("errors0.string_1");
    errors[0].error_message.text = text("errors0.text");
    errors[0].error_info.name = text("errors0.info");
    errors[1].error_tag = text("errors1.tag");
    quill_nyx_response response = {};
    response.errors = errors;
    response.errors_count = 2;
    response.error.error_tag = text("error.tag");
    response.tree.name = text("tree.name");
    response.streams = streams;
    response.streams_count = 2;
    response.schemas = schemas;
    response.schemas_count = 1;
    response.string_3 = text("string_3");

    released_names released = {{{schemas, "[schemas]"}, {streams, "[streams]"}, {errors, "[errors]"}}, {}};
    quill_nyx_response_free_ext(&response, released_names::free, &released, 0);
    EXPECT_EQ(released.names,
              (order{"string_3", "schema.string_2", "schema.string_13", "[schemas]", "stream0.string_2",
                     "stream1.string_1", "[streams]", "tree.name", "error.tag", "errors0.tag", "errors0.app_tag",
                     "errors0.path", "errors0.string_1", "errors0.text", "errors0.info", "errors1.tag", "[errors]"}));
    EXPECT_EQ(response.schemas_count, 0U);
    EXPECT_EQ(response.streams_count, 0U);
    EXPECT_EQ(response.errors_count, 0U);
    EXPECT_EQ(response.errors, nullptr);
}

TEST(Release, NumbersKeepTheirCount) {
    counting_allocator blocks;
    quill_nyx_notification notification = {};
    notification.uint32s_1 = static_cast<uint32_t *>(counting_allocator::alloc(12, &blocks));
    notification.uint32s_1_count = 3;
    notification.has_uint32s_1 = 1;
    quill_nyx_notification_free_ext(&notification, counting_allocator::free, &blocks, 0);
    EXPECT_EQ(blocks.live_blocks(), 0U);
    EXPECT_EQ(notification.uint32s_1, nullptr);
    EXPECT_EQ(notification.uint32s_1_count, 3U);
    EXPECT_EQ(notification.has_uint32s_1, 1);
    quill_nyx_notification_free_ext(&notification, must_not_free, nullptr, 0);
}

// An array with a pointer is freed whatever its count; one without is not looked at.
TEST_P(ReleaseEveryRecord, ArraysWithAndWithoutACount) {
    for (const member &m : table().members) {
        if (!is_repeated(m.kind)) {
            continue;
        }
        SCOPED_TRACE(m.name);
        counting_allocator blocks;
        raw_record empty(table(), 0);
        set_pointer(m, empty.get(), counting_allocator::alloc(1, &blocks));
        expect_released(table(), empty.get(), blocks);
        EXPECT_EQ(blocks.frees(), 1U);
        raw_record zero(table(), 0);
        EXPECT_EQ(std::memcmp(empty.get(), zero.get(), table().size), 0);

        raw_record missing(table(), 0);
        set_count(m, missing.get(), 1000);
        table().free(missing.get(), must_not_free, nullptr, 0);
        EXPECT_EQ(count_of(m, missing.get()), 1000U);
    }
}

TEST(Release, NullEntriesAreSkipped) {
    counting_allocator blocks;
    quill_nyx_node_info info = {};
    info.strings_3 = static_cast<char **>(counting_allocator::alloc(4 * sizeof(char *), &blocks));
    info.strings_3_count = 4;
    info.strings_3[0] = nullptr;
    info.strings_3[1] = static_cast<char *>(counting_allocator::alloc(1, &blocks));
    info.strings_3[2] = nullptr;
    info.strings_3[3] = static_cast<char *>(counting_allocator::alloc(1, &blocks));
    expect_released(table_of(record_id::node_info), &info, blocks);
    EXPECT_EQ(blocks.frees(), 3U);
    EXPECT_EQ(info.strings_3, nullptr);
    EXPECT_EQ(info.strings_3_count, 0U);
}

// A free function that changes the record under release, as one does that detaches elements it keeps.
struct meddling {
    quill_nyx_edit_ins_key *key = nullptr;
    quill_nyx_attribute *moved_to = nullptr;
    order names;

    static void lower_count(void *block, void *ctx) {
        auto *self = static_cast<meddling *>(ctx);
        if (block == self->key->keys) {
            self->names.emplace_back("[keys]");
            return;
        }
        self->names.emplace_back(static_cast<const char *>(block));
        self->key->keys_count = 2;
    }

    static void move_array(void *block, void *ctx) {
        auto *self = static_cast<meddling *>(ctx);
        if (block == self->moved_to) {
            self->names.emplace_back("[moved]");
            return;
        }
        self->names.emplace_back(static_cast<const char *>(block));
        self->key->keys = self->moved_to;
    }
};

// The free function still finds the block where it was.
TEST(Release, BlockIsGivenBeforeItIsForgotten) {
    quill_nyx_attribute attribute = {};
    attribute.has_key = 1;
    attribute.key = text("key");
    quill_nyx_edit_ins_key record = {};
    record.keys = &attribute;
    record.keys_count = 1;
    record.value = text("value");
    const auto look = [](void *block, void *ctx) {
        const auto &seen = *static_cast<quill_nyx_edit_ins_key *>(ctx);
        if (block == seen.keys) {
            EXPECT_EQ(seen.keys_count, 1U);
        } else if (seen.keys != nullptr) {
            EXPECT_EQ(block, seen.keys[0].key);
        } else {
            EXPECT_EQ(block, seen.value);
        }
    };
    quill_nyx_edit_ins_key_free_ext(&record, look, &record);
    EXPECT_EQ(record.keys, nullptr);
    EXPECT_EQ(record.value, nullptr);
}

TEST(Release, CountIsReadAnewOnEachPass) {
    quill_nyx_attribute keys[4] = {};
    keys[0].key = text("k0");
    keys[1].key = text("k1");
    keys[2].key = text("k2");
    keys[3].key = text("k3");
    quill_nyx_edit_ins_key key = {};
    key.keys = keys;
    key.keys_count = 4;
    meddling released;
    released.key = &key;
    quill_nyx_edit_ins_key_free_ext(&key, meddling::lower_count, &released);
    EXPECT_EQ(released.names, (order{"k0", "k1", "[keys]"}));
    EXPECT_EQ(key.keys, nullptr);
    EXPECT_EQ(key.keys_count, 0U);
}

TEST(Release, ArrayIsReadAnewOnEachPass) {
    quill_nyx_attribute keys[2] = {};
    keys[0].key = text("k0");
    keys[1].key = text("k1");
    quill_nyx_attribute other[2] = {};
    other[0].key = text("o0");
    other[1].key = text("o1");
    quill_nyx_edit_ins_key key = {};
    key.keys = keys;
    key.keys_count = 2;
    meddling released;
    released.key = &key;
    released.moved_to = other;
    quill_nyx_edit_ins_key_free_ext(&key, meddling::move_array, &released);
    EXPECT_EQ(released.names, (order{"k0", "o1", "[moved]"}));
    EXPECT_EQ(key.keys, nullptr);
}

}  // namespace
}  // namespace nyx_test
