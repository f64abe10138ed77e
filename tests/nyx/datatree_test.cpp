// Blocks of data trees, and the codec's callbacks on the named-allocation service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "frame_fixture.h"
#include "nyx_api_common.h"
#include "quill_nyx.h"

namespace {

using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::error_flag;
using nyx_test::expect_logged;
using nyx_test::expect_traced;
using nyx_test::next_trace_index;
using nyx_test::recorder;
using nyx_test::site;
using nyx_test::text_of_pointer;
using nyx_test::trace_handle;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char *block_text = "GPB datatree (nyx_req_datatree_create)";

class DatatreeCreate : public nyx_test::frame_test {
  protected:
    void SetUp() override {
        frame_test::SetUp();
        init_root();
    }

    [[nodiscard]] site failure_line() const {
        return {"ERR", "nyx_gpb_datatree_create", "ctx=%p,NYX datatree allocation failed",
                "ctx=" + text_of_pointer(&api_) + ",NYX datatree allocation failed"};
    }
};
using DatatreeCreateDeathTest = DatatreeCreate;

using GpbAlloc = nyx_test::platform_test;
using GpbFree = nyx_test::platform_test;

TEST_F(DatatreeCreate, MakesEmptyRecordsInOneBlock) {
    quill_nyx_datatree *const records = nyx_gpb_datatree_create(&api_, 3);
    ASSERT_NE(records, nullptr);
    EXPECT_EQ(recorder().calls(), calls_of(called("umbra_named_malloc_", 600, block_text)));
    EXPECT_EQ(recorder().size_of(records), 600U);
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(records[i].name, nullptr);
        EXPECT_EQ(records[i].children, nullptr);
        EXPECT_EQ(records[i].node_info.strings_3, nullptr);
        EXPECT_EQ(records[i].edit_ins.key.keys, nullptr);
        EXPECT_EQ(records[i].edit_ins.attribute.value, nullptr);
    }
    // Members, presence bits and the bits that belong to none.
    EXPECT_THAT(std::string(reinterpret_cast<const char *>(records), 600), Each('\0'));
    nyx_gpb_free(records);
}

TEST_F(DatatreeCreate, LogsNothingAndNeedsNoContextWhenItSucceeds) {
    root().level = QUILL_NYX_LOGGING_LEVEL_TRACE;
    nyx_gpb_free(nyx_gpb_datatree_create(&api_, 1));
    quill_nyx_datatree *const records = nyx_gpb_datatree_create(nullptr, 1);
    EXPECT_NE(records, nullptr);
    nyx_gpb_free(records);
    EXPECT_THAT(recorder().functions(),
                ElementsAre("umbra_named_malloc_", "umbra_named_free", "umbra_named_malloc_", "umbra_named_free"));
}

TEST_F(DatatreeCreate, WorksWhileMemoryIsShort) {
    nyx_util_set_mem_state(1);
    quill_nyx_datatree *const records = nyx_gpb_datatree_create(&api_, 1);
    EXPECT_NE(records, nullptr);
    nyx_gpb_free(records);
}

TEST_F(DatatreeCreate, ReturnsTheServicesAnswerToACountOfNone) {
    quill_nyx_datatree *const none = nyx_gpb_datatree_create(&api_, 0);
    ASSERT_EQ(recorder().calls(), calls_of(called("umbra_named_malloc_", 0, block_text)));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(none), recorder().calls()[0].result.bits);
    EXPECT_NE(none, nullptr);
    nyx_gpb_free(none);

    recorder().fail_allocation(1);
    EXPECT_EQ(nyx_gpb_datatree_create(&api_, 0), nullptr);
    EXPECT_THAT(recorder().trace_lines(), SizeIs(1));
}

TEST_F(DatatreeCreate, CountsBytesIn64Bits) {
    recorder().fail_all("umbra_named_malloc_");
    EXPECT_EQ(nyx_gpb_datatree_create(&api_, 0xFFFFFFFF), nullptr);
    EXPECT_EQ(nyx_gpb_datatree_create(&api_, 0x80000000), nullptr);
    EXPECT_EQ(recorder().calls("umbra_named_malloc_"),
              calls_of(called("umbra_named_malloc_", 858993459000, block_text),
                       called("umbra_named_malloc_", 429496729600, block_text)));
}

TEST_F(DatatreeCreate, TellsOfItsFailure) {
    root().level = QUILL_NYX_LOGGING_LEVEL_ERROR;
    recorder().fail_allocation(1);
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_gpb_datatree_create(&api_, 2), nullptr);
    ASSERT_THAT(recorder().log_lines(), SizeIs(1));
    ASSERT_THAT(recorder().trace_lines(), SizeIs(1));
    expect_logged(recorder().log_lines()[0], failure_line(), error_flag);
    expect_traced(recorder().trace_lines()[0], failure_line(), index, trace_handle(1));
    EXPECT_THAT(recorder().functions(), ElementsAre("umbra_named_malloc_", "_umbra_dt_log_filter_adv", "_skein_str"));
}

TEST_F(DatatreeCreate, TracesItsFailureAtLevelNone) {
    recorder().fail_allocation(1);
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_gpb_datatree_create(&api_, 2), nullptr);
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
    ASSERT_THAT(recorder().trace_lines(), SizeIs(1));
    expect_traced(recorder().trace_lines()[0], failure_line(), index, trace_handle(1));
}

TEST_F(DatatreeCreate, FailsInSilenceWhenNobodyListens) {
    root().trace_enabled = 0;
    // It belongs to no operation: their levels do not matter.
    root().op_level_max = QUILL_NYX_LOGGING_LEVEL_TRACE;
    for (std::uint32_t &level : root().op_levels) {
        level = QUILL_NYX_LOGGING_LEVEL_TRACE;
    }
    recorder().fail_allocation(1);
    EXPECT_EQ(nyx_gpb_datatree_create(&api_, 2), nullptr);
    EXPECT_THAT(recorder().functions(), ElementsAre("umbra_named_malloc_"));
}

TEST_F(DatatreeCreateDeathTest, AssertsTheContextWhenItFails) {
    recorder().fail_all("umbra_named_malloc_");
    EXPECT_DEATH(nyx_gpb_datatree_create(nullptr, 1),
                 nyx_test::assertion_regex(
                     "nyx_api_common/datatree\\.cpp",
                     "quill_nyx_datatree ?\\* ?nyx_gpb_datatree_create\\(nyx_api_ctx ?\\*, (std::)?uint32_t\\)",
                     nyx_test::null_regex("ctx")));
    nyx_gpb_datatree_create(&api_, 1);
}

TEST_F(GpbAlloc, ZeroesABlock) {
    int unused = 0;
    auto *const block = static_cast<char *>(nyx_gpb_alloc(40, &unused));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(recorder().calls(), calls_of(called("umbra_named_calloc_", 1, 40, "NYX GPB")));
    EXPECT_EQ(recorder().size_of(block), 40U);
    EXPECT_THAT(std::string(block, 40), Each('\0'));
    nyx_gpb_free(block);
}

TEST_F(GpbAlloc, AsksForAnySize) {
    recorder().fail_all("umbra_named_calloc_");
    EXPECT_EQ(nyx_gpb_alloc(UINT64_MAX, nullptr), nullptr);
    EXPECT_EQ(nyx_gpb_alloc(0, nullptr), nullptr);
    EXPECT_EQ(recorder().calls(), calls_of(called("umbra_named_calloc_", 1, UINT64_MAX, "NYX GPB"),
                                           called("umbra_named_calloc_", 1, 0, "NYX GPB")))
        << "and nothing is logged";
}

TEST_F(GpbFree, GivesABlockBack) {
    void *const block = nyx_gpb_alloc(1, nullptr);
    recorder().forget();
    nyx_gpb_free(block);
    EXPECT_EQ(recorder().calls(), calls_of(called("umbra_named_free", block)));
}

TEST_F(GpbFree, IgnoresNull) {
    nyx_gpb_free(nullptr);
    nyx_gpb_free(nullptr, &recorder());
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(GpbFree, AndAllocServeTheCodec) {
    const std::uint8_t bytes[] = {0x0A, 1, 'a', 0x32, 6, 0x0A, 1, 'k', 0x12, 1, 'v', 0x3A, 3, 0x0A, 1, 'c'};
    quill_nyx_datatree tree{};
    ASSERT_EQ(quill_nyx_datatree_decode_ext(&tree, bytes, sizeof bytes, nyx_gpb_alloc, nullptr, 0), 0);
    quill_nyx_datatree copy{};
    ASSERT_EQ(quill_nyx_datatree_duplicate(&copy, &tree, nyx_gpb_alloc, nullptr), 0);
    EXPECT_STREQ(copy.children[0].name, "c");
    EXPECT_THAT(recorder().live_blocks(), SizeIs(12));
    EXPECT_THAT(recorder().live_blocks(), Each(std::string("NYX GPB")));
    quill_nyx_datatree_free_ext(&tree, nyx_gpb_free, nullptr, 0);
    quill_nyx_datatree_free_ext(&copy, nyx_gpb_free, nullptr, 0);
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
}

}  // namespace
