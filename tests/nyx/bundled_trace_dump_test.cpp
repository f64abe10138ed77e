// Dumps in trace files of the platform that the library comes with.
#include <gtest/gtest.h>
#include <nyx_api_common.h>
#include <skein/reader.h>
#include <skein/skein.h>
#include <umbra/named_alloc.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr const char *file_name = "agentx-nyx/dumps.trace";

class BundledDump : public testing::Test {
  public:
    BundledDump(const BundledDump &) = delete;
    BundledDump &operator=(const BundledDump &) = delete;

  protected:
    BundledDump() {
        EXPECT_NE(mkdtemp(directory_.data()), nullptr);
        EXPECT_EQ(setenv("SKEIN_DIR", directory_.c_str(), 1), 0);
        EXPECT_EQ(skein_init2(file_name, 0, 0, 6144, 1572864, 0, &debug_.trace_handle), 0);
        debug_.trace_enabled = 1;
    }
    ~BundledDump() override {
        EXPECT_EQ(skein_close(debug_.trace_handle), 0);
        std::filesystem::remove_all(directory_);
    }

    // The texts in the file, the number of each entry checked and removed.
    static std::vector<std::string> dumped(std::uint32_t first_index) {
        std::vector<std::string> texts;
        skein_reader *reader = nullptr;
        EXPECT_EQ(skein_reader_open(nullptr, file_name, &reader), 0);
        skein_entry entry;
        while (reader != nullptr && skein_reader_next(reader, &entry) == 0) {
            EXPECT_EQ(entry.attributes, 0x0000010101000000U);
            const std::string text(entry.text, entry.length);
            std::string head = "#";
            head.append(std::to_string(first_index++)).append(": ");
            EXPECT_EQ(text.substr(0, head.size()), head);
            texts.push_back(text.substr(head.size()));
        }
        skein_reader_close(reader);
        return texts;
    }

    std::string directory_ = testing::TempDir() + "nyx_bundled_XXXXXX";
    nyx_debug_ctx_t debug_ = {};
};

TEST_F(BundledDump, OfADecodedTreeIsInTheFile) {
    // config (urn:a), with the child mtu : 1500
    const std::uint8_t message[] = {0x0A, 6,    'c', 'o',  'n', 'f', 'i', 'g', 0x1A, 5, 'u', 'r', 'n', ':',
                                    'a',  0x3A, 11,  0x0A, 3,   'm', 't', 'u', 0x12, 4, '1', '5', '0', '0'};
    quill_nyx_datatree tree = {};
    ASSERT_EQ(quill_nyx_datatree_decode_ext(&tree, message, sizeof message, nyx_gpb_alloc, nullptr, 0), 0);
    const std::uint32_t index = ret_nc_nyx_trace_index_incr() + 1;
    EXPECT_EQ(nyx_gpb_datatree_trace_internal(&debug_, &tree, "edit-config"), 0);
    EXPECT_EQ(dumped(index), std::vector<std::string>{"edit-config:\n    config (urn:a)\n        mtu : 1500\n"});
    quill_nyx_datatree_free_ext(&tree, nyx_gpb_free, nullptr, 0);
}

TEST_F(BundledDump, OfSchemasIsInTheFile) {
    quill_nyx_schema schemas[2] = {};
    char name[] = "ietf-interfaces";
    schemas[1].string_2 = name;
    schemas[1].has_string_2 = 1;
    schemas[1].flag_4 = 1;
    schemas[1].has_flag_4 = 1;
    const std::uint32_t index = ret_nc_nyx_trace_index_incr() + 1;
    EXPECT_EQ(nyx_gpb_schemas_trace_internal(&debug_, schemas, 2, "schemas"), 0);
    EXPECT_EQ(dumped(index),
              std::vector<std::string>{"schemas:\n    [0]: , , , , 0\n    [1]: ietf-interfaces, , , , 1\n"});
}

TEST_F(BundledDump, OfALargeTreeAllocatesNothing) {
    char name[] = "name";
    quill_nyx_datatree child = {};
    child.name = name;
    child.has_name = 1;
    std::vector<quill_nyx_datatree> children(100'000, child);
    quill_nyx_datatree tree = child;
    tree.children = children.data();
    tree.children_count = static_cast<std::uint32_t>(children.size());
    umbra_named_usage before = {};
    umbra_named_total(&before);
    EXPECT_EQ(nyx_gpb_datatree_trace_internal(&debug_, &tree, nullptr), 0);
    umbra_named_usage after = {};
    umbra_named_total(&after);
    EXPECT_EQ(after.total_blocks, before.total_blocks);
}

TEST_F(BundledDump, IntoAClosedFileIsLost) {
    char name[] = "name";
    quill_nyx_datatree tree = {};
    tree.name = name;
    tree.has_name = 1;
    nyx_debug_ctx_t closed = debug_;
    closed.trace_handle = 0;
    EXPECT_EQ(nyx_gpb_datatree_trace_internal(&closed, &tree, "title"), 0);
    EXPECT_TRUE(dumped(0).empty());
}

}  // namespace
