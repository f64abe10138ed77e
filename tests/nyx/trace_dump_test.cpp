// Dumps of data trees and schemas: their lines, and how these get into the trace file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "../../manageability/yang/framework/src/nyx_api_common/dump_text.h"
#include "../quill/build_kind.h"
#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_api_common.h"
#include "recording_platform.h"

namespace {

using nyx_test::next_trace_index;
using nyx_test::recorder;
using nyx_test::release_build;
using nyx_test::trace_handle;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// A record's text, which nobody writes to.
char *text(const char *literal) {
    return const_cast<char *>(literal);
}

quill_nyx_datatree named(const char *name) {
    quill_nyx_datatree node = {};
    node.name = text(name);
    node.has_name = 1;
    return node;
}

quill_nyx_datatree leaf(const char *name, const char *value) {
    quill_nyx_datatree node = named(name);
    node.value = text(value);
    node.has_value = 1;
    return node;
}

quill_nyx_attribute attribute(const char *key, const char *value) {
    quill_nyx_attribute made = {};
    made.key = text(key);
    made.has_key = 1;
    made.value = text(value);
    made.has_value = 1;
    return made;
}

void give_children(quill_nyx_datatree &node, std::vector<quill_nyx_datatree> &children) {
    node.children = children.data();
    node.children_count = static_cast<std::uint32_t>(children.size());
    node.has_children = 1;
}

void give_attributes(quill_nyx_datatree &node, std::vector<quill_nyx_attribute> &attributes) {
    node.attributes = attributes.data();
    node.attributes_count = static_cast<std::uint32_t>(attributes.size());
    node.has_attributes = 1;
}

void give_namespace(quill_nyx_datatree &node, const char *ns) {
    node.namespace_ = text(ns);
    node.has_namespace = 1;
}

// What a trace entry looks like.
std::string uncut_entry(std::uint32_t index, const std::string &dumped) {
    std::string whole = "#";
    return whole.append(std::to_string(index)).append(": ").append(dumped);
}
std::string entry(std::uint32_t index, const std::string &dumped) {
    return uncut_entry(index, dumped).substr(0, 249);
}

class TraceDump : public nyx_test::frame_test {
  protected:
    void SetUp() override {
        frame_test::SetUp();
        init_root();
        index_ = next_trace_index();
    }

    void dump(const quill_nyx_datatree &tree, const char *title = nullptr) {
        recorder().forget();
        EXPECT_EQ(nyx_gpb_datatree_trace_internal(&root(), &tree, title), 0);
    }
    void dump(const std::vector<quill_nyx_schema> &schemas, const char *title = nullptr) {
        recorder().forget();
        EXPECT_EQ(
            nyx_gpb_schemas_trace_internal(&root(), schemas.data(), static_cast<std::uint32_t>(schemas.size()), title),
            0);
    }

    // The texts of the entries. A dump writes nothing else, and takes no number that it does not use.
    std::vector<std::string> entries() {
        std::vector<std::string> texts;
        EXPECT_THAT(recorder().functions(), testing::Each("_skein_str"));
        for (const nyx_test::trace_line &line : recorder().trace_lines()) {
            EXPECT_EQ(line.handle, trace_handle(1));
            EXPECT_EQ(line.attributes, 0x0000010101000000U);
            const std::string head = entry(index_++, "");
            EXPECT_EQ(line.text.substr(0, head.size()), head);
            texts.push_back(line.text.substr(head.size()));
        }
        EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index_++);
        return texts;
    }

    // The line of a single child, which a root with a blank for its name has.
    std::string child_line(const quill_nyx_datatree &child) {
        std::vector<quill_nyx_datatree> children = {child};
        quill_nyx_datatree tree = named(" ");
        give_children(tree, children);
        dump(tree);
        const std::vector<std::string> texts = entries();
        const std::string root_line = "     \n";
        if (texts.size() != 1 || !texts[0].starts_with(root_line)) {
            ADD_FAILURE() << testing::PrintToString(texts);
            return {};
        }
        return texts[0].substr(root_line.size());
    }

    std::uint32_t index_ = 0;
};

using TreeDump = TraceDump;
using SchemaDump = TraceDump;
using DumpEntries = TraceDump;
using DumpStack = TraceDump;

// Trees

TEST_F(TreeDump, ShowsTitleRootAndDescendants) {
    std::vector<quill_nyx_datatree> leaves = {leaf("name", "eth0"), leaf("mtu", "1500")};
    leaves[0].node_kind = QUILL_NYX_NODE_KIND_KN;
    std::vector<quill_nyx_attribute> attributes = {attribute("xmlns", "urn:if")};
    std::vector<quill_nyx_datatree> children = {named("interface"), named("other")};
    children[0].operation = QUILL_NYX_EDIT_OPERATION_MERGE;
    children[0].has_operation = 1;
    children[0].node_kind = QUILL_NYX_NODE_KIND_DN;
    give_attributes(children[0], attributes);
    give_children(children[0], leaves);
    quill_nyx_datatree tree = named("config");
    give_namespace(tree, "urn:base");
    give_children(tree, children);
    dump(tree, "edit-config");
    EXPECT_THAT(entries(), ElementsAre("edit-config:\n"
                                       "    config (urn:base)\n"
                                       "        interface (merge) xmlns=urn:if (dn)\n"
                                       "            name : eth0 (kn)\n"
                                       "            mtu : 1500\n"
                                       "        other\n"));
}

TEST_F(TreeDump, ShowsTheRootByWhatIsPresent) {
    quill_nyx_datatree tree = leaf("a", "1");
    give_namespace(tree, "urn:a");
    const struct {
        std::uint8_t has_namespace;
        std::uint8_t has_value;
        const char *line;
    } cases[] = {{1, 1, "    a (urn:a) : 1\n"}, {1, 0, "    a (urn:a)\n"}, {0, 1, "    a\n"}, {0, 0, "    a\n"}};
    for (const auto &each : cases) {
        tree.has_namespace = each.has_namespace & 1U;
        tree.has_value = each.has_value & 1U;
        dump(tree);
        EXPECT_THAT(entries(), ElementsAre(each.line));
    }
}

TEST_F(TreeDump, ShowsNoMoreOfTheRoot) {
    std::vector<quill_nyx_attribute> attributes = {attribute("k", "v")};
    quill_nyx_datatree tree = named("a");
    tree.operation = QUILL_NYX_EDIT_OPERATION_CREATE;
    tree.has_operation = 1;
    tree.node_kind = QUILL_NYX_NODE_KIND_DA;
    tree.has_node_kind = 1;
    give_attributes(tree, attributes);
    dump(tree);
    EXPECT_THAT(entries(), ElementsAre("    a\n"));
}

TEST_F(TreeDump, ShowsNullTextsOfTheRootAsEmpty) {
    quill_nyx_datatree tree = leaf(nullptr, nullptr);
    give_namespace(tree, nullptr);
    dump(tree);
    EXPECT_THAT(entries(), ElementsAre("     () : \n"));
}

TEST_F(TreeDump, OfARootWithoutANameIsItsTitle) {
    std::vector<quill_nyx_datatree> children = {named("child")};
    quill_nyx_datatree tree = leaf("unmarked", "1");
    tree.has_name = 0;
    give_namespace(tree, "urn:a");
    give_children(tree, children);
    dump(tree, "the title");
    EXPECT_THAT(entries(), ElementsAre("the title:\n"));
    dump(tree, "");
    EXPECT_THAT(entries(), ElementsAre(":\n"));
    dump(tree);
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(TreeDump, ShowsTheChildrenOfTheRootAlsoIfTheyAreNotMarked) {
    std::vector<quill_nyx_datatree> grandchildren = {named("c")};
    std::vector<quill_nyx_datatree> children = {named("b"), named("d")};
    give_children(children[0], grandchildren);
    quill_nyx_datatree tree = named("a");
    give_children(tree, children);
    tree.has_children = 0;
    dump(tree);
    EXPECT_THAT(entries(), ElementsAre("    a\n        b\n            c\n        d\n"));
    children[0].has_children = 0;
    dump(tree);
    EXPECT_THAT(entries(), ElementsAre("    a\n        b\n        d\n"));
}

TEST_F(TreeDump, TakesNullArraysForEmptyOnes) {
    std::vector<quill_nyx_datatree> children = {named("b")};
    children[0].has_children = 1;
    children[0].children_count = 7;
    children[0].has_attributes = 1;
    children[0].attributes_count = 7;
    quill_nyx_datatree tree = named("a");
    give_children(tree, children);
    dump(tree);
    EXPECT_THAT(entries(), ElementsAre("    a\n        b\n"));
    tree.children = nullptr;
    dump(tree);
    EXPECT_THAT(entries(), ElementsAre("    a\n"));
    tree.children = children.data();
    tree.children_count = 0;
    dump(tree);
    EXPECT_THAT(entries(), ElementsAre("    a\n"));
}

TEST_F(TreeDump, ShowsAChildWithAllThatItHas) {
    std::vector<quill_nyx_attribute> attributes = {attribute("k", "v")};
    quill_nyx_datatree child = leaf("a", "1");
    child.operation = QUILL_NYX_EDIT_OPERATION_REPLACE;
    child.has_operation = 1;
    child.node_kind = QUILL_NYX_NODE_KIND_DA;
    give_attributes(child, attributes);
    EXPECT_EQ(child_line(child), "        a : 1 (replace) k=v (da)\n");
}

TEST_F(TreeDump, ShowsAChildByWhatIsPresent) {
    std::vector<quill_nyx_attribute> attributes = {attribute("k", "v")};
    quill_nyx_datatree child = leaf("a", "1");
    give_namespace(child, "urn:a");
    give_attributes(child, attributes);
    child.operation = QUILL_NYX_EDIT_OPERATION_DELETE;
    EXPECT_EQ(child_line(child), "        a : 1 k=v\n") << "no namespace, and no operation that is not marked";
    child.has_value = 0;
    EXPECT_EQ(child_line(child), "        a k=v\n");
    child.has_attributes = 0;
    EXPECT_EQ(child_line(child), "        a\n");
    child.has_name = 0;
    EXPECT_EQ(child_line(child), "        \n");
    child.has_operation = 1;
    EXPECT_EQ(child_line(child), "         (delete)\n");
}

TEST_F(TreeDump, ShowsNullTextsOfAChildAsEmpty) {
    std::vector<quill_nyx_attribute> attributes = {attribute(nullptr, "v"), attribute("k", nullptr),
                                                   attribute("unmarked", "too"), attribute("", "")};
    attributes[2].has_key = 0;
    attributes[2].has_value = 0;
    quill_nyx_datatree child = leaf(nullptr, nullptr);
    give_attributes(child, attributes);
    EXPECT_EQ(child_line(child), "         :  =v k= = =\n");
}

TEST_F(TreeDump, NamesEachOperation) {
    const std::pair<std::uint32_t, const char *> suffixes[] = {{0, " (merge)"},  {1, " (replace)"},   {2, " (create)"},
                                                               {3, " (delete)"}, {4, " (remove)"},    {5, " (-)"},
                                                               {6, " (-)"},      {0xFFFFFFFF, " (-)"}};
    for (const auto &[operation, suffix] : suffixes) {
        quill_nyx_datatree child = named("a");
        child.operation = operation;
        child.has_operation = 1;
        EXPECT_EQ(child_line(child), std::string("        a") + suffix + "\n");
    }
}

TEST_F(TreeDump, NamesEachKindOfNodeWhetherItIsMarkedOrNot) {
    const std::pair<std::uint32_t, const char *> suffixes[] = {
        {0, ""}, {1, " (dn)"}, {2, " (kn)"}, {3, " (ka)"}, {4, " (da)"}, {5, ""}, {0xFFFFFFFF, ""}};
    for (const auto &[kind, suffix] : suffixes) {
        for (const unsigned marked : {0U, 1U}) {
            quill_nyx_datatree child = named("a");
            child.node_kind = kind;
            child.has_node_kind = marked & 1U;
            EXPECT_EQ(child_line(child), std::string("        a") + suffix + "\n");
        }
    }
}

TEST_F(TreeDump, TakesTextsAsTheyAre) {
    std::vector<quill_nyx_attribute> attributes = {attribute("%d=", "\n%")};
    quill_nyx_datatree child = leaf("%s%n", "\t\xFF\x01");
    give_attributes(child, attributes);
    EXPECT_EQ(child_line(child), "        %s%n : \t\xFF\x01 %d==\n%\n");
    dump(named("%s"), "%n%s");
    EXPECT_THAT(entries(), ElementsAre("%n%s:\n    %s\n"));
}

TEST_F(TreeDump, RefusesNullArgumentsAndWritesNothing) {
    const quill_nyx_datatree tree = named("a");
    EXPECT_EQ(nyx_gpb_datatree_trace_internal(nullptr, &tree, "title"), NYX_RC_INVALID_ARGUMENT);
    EXPECT_EQ(nyx_gpb_datatree_trace_internal(&root(), nullptr, "title"), NYX_RC_INVALID_ARGUMENT);
    EXPECT_EQ(nyx_gpb_datatree_trace_internal(nullptr, nullptr, nullptr), NYX_RC_INVALID_ARGUMENT);
    root().trace_enabled = 0;
    EXPECT_EQ(nyx_gpb_datatree_trace_internal(&root(), nullptr, "title"), NYX_RC_INVALID_ARGUMENT);
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(TreeDump, WritesNothingWhileTracingIsOff) {
    root().trace_enabled = 0;
    root().level = QUILL_NYX_LOGGING_LEVEL_TRACE;
    dump(leaf("a", "1"), std::string(2000, 't').c_str());
    EXPECT_THAT(recorder().calls(), IsEmpty());
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(TreeDump, EndsWhenTracingIsSwitchedOff) {
    std::vector<quill_nyx_datatree> children(100, leaf("a", "1"));
    quill_nyx_datatree tree = named("r");
    give_children(tree, children);
    recorder().when_called("_skein_str", [this] { root().trace_enabled = 0; });
    dump(tree);
    EXPECT_THAT(entries(), SizeIs(1));
}

// Schemas

quill_nyx_schema schema(const char *first, const char *second, const char *third, std::uint8_t flag,
                        const char *fifth) {
    quill_nyx_schema made = {};
    made.string_1 = text(first);
    made.string_2 = text(second);
    made.string_3 = text(third);
    made.flag_4 = flag;
    made.string_5 = text(fifth);
    made.has_string_1 = made.has_string_2 = made.has_string_3 = made.has_flag_4 = made.has_string_5 = 1;
    return made;
}

TEST_F(SchemaDump, ShowsALineForEach) {
    std::vector<quill_nyx_schema> schemas = {schema("one", "two", "three", 1, "five"),
                                             schema("%s", "", nullptr, 255, "urn:x"),
                                             schema("unmarked", "unmarked", "unmarked", 7, "unmarked")};
    schemas[2].has_string_1 = schemas[2].has_string_2 = schemas[2].has_string_3 = 0;
    schemas[2].has_flag_4 = schemas[2].has_string_5 = 0;
    dump(schemas, "schemas");
    EXPECT_THAT(entries(), ElementsAre("schemas:\n"
                                       "    [0]: two, one, five, three, 1\n"
                                       "    [1]: , %s, urn:x, , 255\n"
                                       "    [2]: , , , , 0\n"));
}

TEST_F(SchemaDump, OfAnEmptyListWritesItsTitle) {
    const quill_nyx_schema none = {};
    EXPECT_EQ(nyx_gpb_schemas_trace_internal(&root(), &none, 0, "title"), 0);
    EXPECT_THAT(entries(), ElementsAre("title:\n"));
}

TEST_F(SchemaDump, WritesAnEntryAlsoWhenThereIsNothing) {
    const quill_nyx_schema none = {};
    EXPECT_EQ(nyx_gpb_schemas_trace_internal(&root(), &none, 0, nullptr), 0);
    EXPECT_THAT(entries(), ElementsAre(""));
}

TEST_F(SchemaDump, EndsWithAnEmptyEntryBehindAFullOne) {
    const std::string long_name(200, 'n');
    dump({schema(long_name.c_str(), "", "", 0, "")});
    EXPECT_THAT(entries(), ElementsAre("    [0]: , " + long_name + ", , , 0\n", ""));
}

TEST_F(SchemaDump, CountsLongLists) {
    std::vector<quill_nyx_schema> schemas(1234);
    dump(schemas);
    std::string expected;
    for (int i = 0; i < 1234; ++i) {
        expected += "    [" + std::to_string(i) + "]: , , , , 0\n";
    }
    std::string all;
    for (const std::string &each : entries()) {
        all += each;
    }
    EXPECT_EQ(all, expected);
}

TEST_F(SchemaDump, WritesTheTitleOfAMissingList) {
    EXPECT_EQ(nyx_gpb_schemas_trace_internal(&root(), nullptr, 3, "title"), NYX_RC_INVALID_ARGUMENT);
    EXPECT_EQ(nyx_gpb_schemas_trace_internal(&root(), nullptr, 0, nullptr), NYX_RC_INVALID_ARGUMENT);
    EXPECT_THAT(entries(), ElementsAre("title:\n", ""));
}

TEST_F(SchemaDump, RefusesAMissingContext) {
    const quill_nyx_schema one = schema("1", "2", "3", 4, "5");
    EXPECT_EQ(nyx_gpb_schemas_trace_internal(nullptr, &one, 1, "title"), NYX_RC_INVALID_ARGUMENT);
    EXPECT_EQ(nyx_gpb_schemas_trace_internal(nullptr, nullptr, 1, "title"), NYX_RC_INVALID_ARGUMENT);
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(SchemaDump, WritesNothingWhileTracingIsOff) {
    root().trace_enabled = 0;
    dump({schema("1", "2", "3", 4, "5")}, "title");
    EXPECT_EQ(nyx_gpb_schemas_trace_internal(&root(), nullptr, 1, "title"), NYX_RC_INVALID_ARGUMENT);
    EXPECT_THAT(recorder().calls(), IsEmpty());
    EXPECT_THAT(entries(), IsEmpty());
}

// Entries

TEST_F(DumpEntries, GatherLinesUntilThereAreEnoughCharacters) {
    // Four blanks, the name, a line end.
    const std::string short_name(159 - 5, 'n');
    const std::string long_name(160 - 5, 'n');
    std::vector<quill_nyx_datatree> children = {named("c")};
    quill_nyx_datatree tree = named(short_name.c_str());
    give_children(tree, children);
    dump(tree);
    EXPECT_THAT(entries(), ElementsAre("    " + short_name + "\n        c\n"));
    tree.name = text(long_name.c_str());
    dump(tree);
    EXPECT_THAT(entries(), ElementsAre("    " + long_name + "\n", "        c\n"));
}

TEST_F(DumpEntries, GatherTheLinesOfSchemasAlike) {
    const std::string short_name(159 - 19, 'n');
    const std::string long_name(160 - 19, 'n');
    dump({schema(short_name.c_str(), "", "", 0, ""), quill_nyx_schema{}});
    EXPECT_THAT(entries(), ElementsAre("    [0]: , " + short_name + ", , , 0\n    [1]: , , , , 0\n", ""));
    dump({schema(long_name.c_str(), "", "", 0, ""), quill_nyx_schema{}});
    EXPECT_THAT(entries(), ElementsAre("    [0]: , " + long_name + ", , , 0\n", "    [1]: , , , , 0\n"));
}

TEST_F(DumpEntries, AreNotWrittenForATitleAlone) {
    const std::string title(200, 't');
    dump(named("a"), title.c_str());
    EXPECT_THAT(entries(), ElementsAre(title + ":\n    a\n"));
}

TEST_F(DumpEntries, AreCutTo249Characters) {
    quill_nyx_datatree tree = {};
    for (const std::size_t length : {std::size_t{220}, std::size_t{260}, std::size_t{1020}, std::size_t{100000}}) {
        const std::string title(length, 't');
        recorder().forget();
        const std::uint32_t index = next_trace_index();
        EXPECT_EQ(nyx_gpb_datatree_trace_internal(&root(), &tree, title.c_str()), 0);
        EXPECT_THAT(recorder().trace_texts(), ElementsAre(entry(index, title + ":\n")));
    }
}

TEST_F(DumpEntries, AreCutToExactlyThatMuch) {
    quill_nyx_datatree tree = {};
    for (std::size_t length = 225; length < 260; ++length) {
        const std::string title(length, 't');
        recorder().forget();
        const std::uint32_t index = next_trace_index();
        EXPECT_EQ(nyx_gpb_datatree_trace_internal(&root(), &tree, title.c_str()), 0);
        const std::string whole = uncut_entry(index, title + ":\n");
        ASSERT_THAT(recorder().trace_texts(), SizeIs(1));
        EXPECT_EQ(recorder().trace_texts()[0], whole.substr(0, 249));
        EXPECT_EQ(recorder().trace_texts()[0].size(), whole.size() < 249 ? whole.size() : 249);
    }
}

TEST_F(DumpEntries, GoOnWhenOneCannotBeWritten) {
    const std::string name(200, 'n');
    std::vector<quill_nyx_datatree> children = {named("c")};
    quill_nyx_datatree tree = named(name.c_str());
    give_children(tree, children);
    recorder().fail("_skein_str", 1, 16);
    recorder().forget();
    EXPECT_EQ(nyx_gpb_datatree_trace_internal(&root(), &tree, nullptr), 0);
    EXPECT_THAT(recorder().calls("_skein_str"), SizeIs(2));
    EXPECT_EQ(recorder().trace_texts().back(), entry(index_ + 1, "        c\n"));
}

TEST_F(DumpEntries, GoIntoTheFileOfTheContext) {
    nyx_debug_ctx_t other = {};
    other.trace_enabled = 1;
    other.trace_handle = 4711;
    const quill_nyx_datatree tree = named("a");
    ASSERT_EQ(nyx_gpb_datatree_trace_internal(&other, &tree, nullptr), 0);
    ASSERT_EQ(nyx_gpb_schemas_trace_internal(&other, nullptr, 0, nullptr), NYX_RC_INVALID_ARGUMENT);
    EXPECT_THAT(recorder().trace_texts(), ElementsAre(entry(index_, "    a\n"), entry(index_ + 1, "")));
    EXPECT_EQ(recorder().trace_lines()[0].handle, 4711U);
    EXPECT_EQ(recorder().trace_lines()[1].handle, 4711U);
}

// What the dump is told to do, done by snprintf.
class reference_dump {
  public:
    explicit reference_dump(std::uint32_t index) : index_(index) {}

    std::vector<std::string> tree(const quill_nyx_datatree &tree, const char *title) {
        if (title != nullptr) {
            append("%s:\n", title);
        }
        if (tree.has_name != 0) {
            const char *const name = shown(true, tree.name);
            if (tree.has_namespace == 0) {
                append("    %s\n", name);
            } else if (tree.has_value == 0) {
                append("    %s (%s)\n", name, shown(true, tree.namespace_));
            } else {
                append("    %s (%s) : %s\n", name, shown(true, tree.namespace_), shown(true, tree.value));
            }
            flush(false);
            children(tree, 2);
        }
        if (length_ != 0) {
            flush(true);
        }
        return entries_;
    }

    std::vector<std::string> schemas(const std::vector<quill_nyx_schema> &schemas, const char *title) {
        if (title != nullptr) {
            append("%s:\n", title);
        }
        int index = 0;
        for (const quill_nyx_schema &each : schemas) {
            append("    [%d]: %s, %s, %s, %s, %d\n", index++, shown(each.has_string_2, each.string_2),
                   shown(each.has_string_1, each.string_1), shown(each.has_string_5, each.string_5),
                   shown(each.has_string_3, each.string_3), each.has_flag_4 != 0 ? each.flag_4 : 0);
            flush(false);
        }
        flush(true);
        return entries_;
    }

    [[gnu::format(printf, 2, 3)]] void append(const char *format, ...) {
        va_list arguments;
        va_start(arguments, format);
        const std::size_t room = sizeof text_ - length_;
        const auto wanted = static_cast<std::size_t>(std::vsnprintf(text_ + length_, room, format, arguments));
        va_end(arguments);
        if (wanted < room) {
            length_ += wanted;
        } else {
            std::memcpy(text_ + 1009, "[TRUNCATED...]", 15);
            length_ = 1023;
        }
    }

    [[nodiscard]] std::string gathered() const { return {text_, length_}; }

  private:
    static const char *shown(bool present, const char *text) { return present && text != nullptr ? text : ""; }

    void children(const quill_nyx_datatree &node, int level) {
        for (std::uint32_t i = 0; node.children != nullptr && i < node.children_count; ++i) {
            const quill_nyx_datatree &child = node.children[i];
            line(child, level);
            flush(false);
            if (child.has_children != 0) {
                children(child, level + 1);
            }
        }
    }

    void line(const quill_nyx_datatree &node, int level) {
        const char *const operations[] = {" (merge)", " (replace)", " (create)", " (delete)", " (remove)"};
        const char *const kinds[] = {"", " (dn)", " (kn)", " (ka)", " (da)"};
        append("%*s%s", level * 4, "", shown(node.has_name, node.name));
        if (node.has_value != 0) {
            append(" : %s", shown(true, node.value));
        }
        if (node.has_operation != 0) {
            append("%s", node.operation < 5 ? operations[node.operation] : " (-)");
        }
        for (std::uint32_t i = 0; node.has_attributes != 0 && node.attributes != nullptr && i < node.attributes_count;
             ++i) {
            append(" %s=%s", shown(node.attributes[i].has_key, node.attributes[i].key),
                   shown(node.attributes[i].has_value, node.attributes[i].value));
        }
        append("%s", node.node_kind < 5 ? kinds[node.node_kind] : "");
        append("\n");
    }

    void flush(bool forced) {
        if (!forced && length_ < 160) {
            return;
        }
        text_[length_] = '\0';
        entries_.push_back(entry(index_++, text_));
        length_ = 0;
    }

    char text_[1024] = {};
    std::size_t length_ = 0;
    std::uint32_t index_;
    std::vector<std::string> entries_;
};

// Records of random contents, which live as long as this.
class random_records {
  public:
    explicit random_records(std::uint32_t seed) : random_(seed) {}

    quill_nyx_datatree tree(unsigned depth) {
        quill_nyx_datatree node = {};
        node.name = random_text();
        node.value = random_text();
        node.namespace_ = random_text();
        node.operation = below(7);
        node.node_kind = below(7);
        node.has_name = !chance(10);
        node.has_value = chance(50);
        node.has_namespace = chance(50);
        node.has_operation = chance(30);
        node.has_attributes = chance(80);
        node.has_children = chance(90);
        node.has_node_kind = chance(50);
        attributes_.emplace_back(chance(60) ? 0 : below(5));
        for (quill_nyx_attribute &each : attributes_.back()) {
            each.key = random_text();
            each.value = random_text();
            each.has_key = chance(80);
            each.has_value = chance(80);
        }
        node.attributes = chance(90) ? attributes_.back().data() : nullptr;
        node.attributes_count = static_cast<std::uint32_t>(attributes_.back().size());
        if (depth != 0) {
            std::vector<quill_nyx_datatree> &children = children_.emplace_back(below(7));
            for (quill_nyx_datatree &each : children) {
                each = tree(depth - 1);
            }
            node.children = chance(95) ? children.data() : nullptr;
            node.children_count = static_cast<std::uint32_t>(children.size());
        }
        return node;
    }

    quill_nyx_schema schema() {
        quill_nyx_schema made =
            ::schema(random_text(), random_text(), random_text(), static_cast<std::uint8_t>(below(256)), random_text());
        made.has_string_1 = chance(80);
        made.has_string_2 = chance(80);
        made.has_string_3 = chance(80);
        made.has_flag_4 = chance(80);
        made.has_string_5 = chance(80);
        return made;
    }

    // Mostly short; some fill the buffer, or nearly.
    char *random_text() {
        if (chance(5)) {
            return nullptr;
        }
        const std::size_t most = chance(90) ? 20 : (chance(70) ? 200 : 1100);
        std::string &made = texts_.emplace_back(below(static_cast<std::uint32_t>(most) + 1), '\0');
        for (char &each : made) {
            each = static_cast<char>(1 + below(255));
        }
        return made.data();
    }

    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
    bool chance(unsigned percent) { return below(100) < percent; }

  private:
    std::minstd_rand random_;
    std::deque<std::string> texts_;
    std::deque<std::vector<quill_nyx_attribute>> attributes_;
    std::deque<std::vector<quill_nyx_datatree>> children_;
};

TEST_F(TreeDump, OfRandomTreesIsWhatFormattingGives) {
    std::size_t compared = 0;
    for (std::uint32_t seed = 1; seed <= 300; ++seed) {
        random_records records(seed);
        const quill_nyx_datatree tree = records.tree(records.below(6));
        const char *const title = records.chance(70) ? records.random_text() : nullptr;
        const std::uint32_t index = next_trace_index();
        dump(tree, title);
        EXPECT_EQ(recorder().trace_texts(), reference_dump(index).tree(tree, title)) << seed;
        compared += recorder().trace_texts().size();
    }
    EXPECT_GT(compared, 1000U);
}

TEST_F(SchemaDump, OfRandomListsIsWhatFormattingGives) {
    for (std::uint32_t seed = 1; seed <= 100; ++seed) {
        random_records records(seed);
        std::vector<quill_nyx_schema> schemas(1 + records.below(60));
        for (quill_nyx_schema &each : schemas) {
            each = records.schema();
        }
        const char *const title = records.random_text();
        const std::uint32_t index = next_trace_index();
        dump(schemas, title);
        EXPECT_EQ(recorder().trace_texts(), reference_dump(index).schemas(schemas, title)) << seed;
    }
}

// The text before it becomes an entry

std::string as(std::size_t length) {
    std::string text(length, 'a');
    return text;
}

constexpr const char *marker = "[TRUNCATED...]";

TEST(DumpText, HoldsExactly1023Characters) {
    nyx::dump_text fits;
    fits.add(as(1023));
    EXPECT_EQ(fits.text(), as(1023));
    nyx::dump_text too_long;
    too_long.add(as(1024));
    EXPECT_EQ(too_long.text(), as(1009) + marker);
}

TEST(DumpText, IsCutBehindWhatFits) {
    for (std::size_t before = 0; before <= 1023; ++before) {
        nyx::dump_text dumped;
        dumped.add(as(before));
        dumped.add_text(std::string(1023 - before, 'b').c_str());
        EXPECT_EQ(dumped.text(), as(before) + std::string(1023 - before, 'b'));
        dumped.clear();
        dumped.add(as(before));
        dumped.add_text(std::string(1024 - before, 'b').c_str());
        EXPECT_EQ(dumped.text(), (as(before) + std::string(1024 - before, 'b')).substr(0, 1009) + marker);
    }
}

TEST(DumpText, StaysCutWhateverComes) {
    nyx::dump_text dumped;
    dumped.add(as(1020));
    dumped.add_text("1234");
    const std::string cut(dumped.text());
    EXPECT_EQ(cut, as(1009) + marker);
    dumped.add("");
    dumped.add_text("");
    dumped.add_text(nullptr);
    dumped.add_blanks(0);
    EXPECT_EQ(dumped.text(), cut);
    dumped.add("x");
    dumped.add_text("x");
    dumped.add_blanks(1);
    dumped.add_number(7);
    dumped.add_text(std::string(5000, 'x').c_str());
    EXPECT_EQ(dumped.text(), cut);
}

TEST(DumpText, CutsBlanksOfAnyNumber) {
    for (const std::uint64_t count : {std::uint64_t{1024}, std::uint64_t{1} << 40, UINT64_MAX}) {
        nyx::dump_text dumped;
        dumped.add_blanks(count);
        EXPECT_EQ(dumped.text(), std::string(1009, ' ') + marker);
        dumped.clear();
        dumped.add(as(1000));
        dumped.add_blanks(count);
        EXPECT_EQ(dumped.text(), as(1000) + std::string(9, ' ') + marker);
    }
    nyx::dump_text fits;
    fits.add_blanks(1023);
    EXPECT_EQ(fits.text(), std::string(1023, ' '));
}

TEST(DumpText, WritesNumbers) {
    for (const std::int32_t number : {0, 9, 10, -1, INT32_MAX, INT32_MIN}) {
        nyx::dump_text dumped;
        dumped.add_number(number);
        EXPECT_EQ(dumped.text(), std::to_string(number));
    }
}

TEST(DumpText, ReadsNoMoreOfATextThanThereIsRoomFor) {
    const std::vector<char> unterminated(1024, 'a');
    nyx::dump_text dumped;
    dumped.add_text(unterminated.data());
    EXPECT_EQ(dumped.text(), as(1009) + marker);
}

TEST(DumpText, LooksAsIfPiecesWereFormatted) {
    std::minstd_rand random(11);
    for (int round = 0; round < 2000; ++round) {
        nyx::dump_text dumped;
        reference_dump expected(0);
        for (int piece = 0; piece < 12; ++piece) {
            const std::string added(random() % 3 == 0 ? random() % 700 : random() % 40,
                                    static_cast<char>('a' + random() % 26));
            if (random() % 4 == 0) {
                dumped.add_blanks(added.size());
                expected.append("%*s", static_cast<int>(added.size()), "");
            } else {
                dumped.add_text(added.c_str());
                expected.append("%s", added.c_str());
            }
            ASSERT_EQ(dumped.text(), expected.gathered());
        }
    }
}

// Large trees

TEST_F(TreeDump, AllocatesNothing) {
    std::vector<quill_nyx_datatree> children(100'000, leaf("name", "value"));
    quill_nyx_datatree tree = named("a");
    give_children(tree, children);
    dump(tree, "large");
    EXPECT_THAT(recorder().allocations(), IsEmpty());
    std::string all;
    for (const std::string &each : entries()) {  // which finds no other calls
        all += each;
    }
    EXPECT_EQ(all.size(), std::strlen("large:\n    a\n") + children.size() * std::strlen("        name : value\n"));
}

// Each node the first of two children of the one before.
class chain {
  public:
    explicit chain(std::size_t depth) : nodes_(depth * 2, named("n")) {
        for (std::size_t i = 0; i + 2 < nodes_.size(); i += 2) {
            nodes_[i].children = &nodes_[i + 2];
            nodes_[i].children_count = 2;
            nodes_[i].has_children = 1;
        }
    }
    [[nodiscard]] const quill_nyx_datatree &root() const { return nodes_.front(); }

  private:
    std::vector<quill_nyx_datatree> nodes_;
};

void run_on_a_stack_of(std::size_t size, std::function<void()> work) {
    pthread_attr_t attributes;
    pthread_t thread;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
    const auto enter = [](void *given) -> void * {
        (*static_cast<std::function<void()> *>(given))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, enter, &work), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

// Frames of other builds are several times as large.
constexpr std::size_t ordinary_stack = std::size_t{8} << 20;
constexpr std::size_t deep_stack = release_build ? ordinary_stack : ordinary_stack * 8;

TEST_F(DumpStack, TakesAHundredThousandLevels) {
    constexpr std::size_t depth = 100'000;
    const chain tree(depth);
    rcode result = -1;
    run_on_a_stack_of(deep_stack, [&] { result = nyx_gpb_datatree_trace_internal(&root(), &tree.root(), nullptr); });
    EXPECT_EQ(result, 0);
    const std::vector<std::string> texts = entries();
    // From a level of 40 on, each line is an entry of its own.
    ASSERT_GT(texts.size(), 2 * (depth - 41));
    EXPECT_THAT(texts.front(), testing::StartsWith("    n\n        n\n            n\n                n\n"));
    EXPECT_THAT(texts.back(), testing::EndsWith("            n\n        n\n"));
    const std::string &deepest = texts[texts.size() / 2];
    EXPECT_EQ(deepest.find_first_not_of(' '), std::string::npos);
    EXPECT_GE(deepest.size(), 249 - std::strlen("#4294967295: "));
}

TEST_F(DumpStack, BytesPerLevel) {
    constexpr std::size_t shallow = 10'000;
    constexpr std::size_t deep = 30'000;
    const auto lowest_of = [this](std::size_t depth) {
        const chain tree(depth);
        std::uintptr_t first = 0;
        std::uintptr_t lowest = UINTPTR_MAX;
        recorder().when_called("_skein_str", [&first, &lowest] {
            const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
            first = first == 0 ? here : first;
            lowest = here < lowest ? here : lowest;
        });
        run_on_a_stack_of(deep_stack,
                          [&] { EXPECT_EQ(nyx_gpb_datatree_trace_internal(&root(), &tree.root(), nullptr), 0); });
        return first - lowest;
    };
    const double per_level = static_cast<double>(lowest_of(deep) - lowest_of(shallow)) / (deep - shallow);
    std::printf("%.1f bytes of stack per level\n", per_level);
    RecordProperty("bytes per level", std::to_string(per_level));
    EXPECT_GT(per_level, 8.0);  // less than a return address: the measurement itself is broken
    if (release_build) {
        EXPECT_LE(per_level, 96.0);
    }
}

}  // namespace
