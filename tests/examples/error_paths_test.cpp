/* Error paths as a client uses them: evaluated on the data of the datastore, with the prefixes that the reply
 * declares. */
#include <gmock/gmock.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>
#include <nyx_session_store.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "conversation.h"
#include "processor.h"
#include "recording_platform.h"

using namespace request_path;
using testing::ElementsAre;

namespace {

const std::string netconf = netconf_namespace;

struct failing_edit {
    const char *name;
    std::string data;  ///< what is stored before
    std::string edit;
    std::string path;
    std::vector<std::string> selected;  ///< the text in each node of the data that the path selects
};

void PrintTo(const failing_edit &one, std::ostream *out) {
    *out << one.name;
}

std::string in_a(const std::string &content) {
    return "<a xmlns='urn:a' xmlns:xc='" + netconf + "'>" + content + "</a>";
}

std::string entry(const std::string &key, const std::string &rest = "") {
    return in_a("<d" + rest + "><name>" + key + "</name></d>");
}

constexpr auto create = " xc:operation='create'";
constexpr auto remove_existing = " xc:operation='delete'";

const std::vector<failing_edit> failing_edits{
    {"Container",
     in_a("<b>1</b>"),
     "<a xmlns='urn:a' xmlns:xc='" + netconf + "' xc:operation='create'/>",
     "/ns1:a",
     {"1"}},
    {"Leaf", in_a("<b>1</b><c>2</c>"), in_a("<c xc:operation='create'>3</c>"), "/ns1:a/ns1:c", {"2"}},
    {"LeafOnOneSideOnly", in_a("<b><c>1</c></b>"), in_a("<b>text</b>"), "/ns1:a/ns1:b", {"1"}},
    {"EntryWithKey",
     in_a("<d><name>x</name><v>1</v></d><d><name>y</name><v>2</v></d>"),
     entry("y", create),
     "/ns1:a/ns1:d[ns1:name = 'y']",
     {"y2"}},
    {"KeyWithSingleQuote", entry("it's"), entry("it's", create), "/ns1:a/ns1:d[ns1:name = \"it's\"]", {"it's"}},
    {"KeyWithDoubleQuotes",
     entry("an \"x\""),
     entry("an \"x\"", create),
     "/ns1:a/ns1:d[ns1:name = 'an \"x\"']",
     {"an\"x\""}},
    {"KeyWithBothQuotes",
     entry("it's \"x\""),
     entry("it's \"x\"", create),
     R"(/ns1:a/ns1:d[ns1:name = concat("it's ", '"x"')])",
     {"it's\"x\""}},
    {"BlanksAroundStoredKey", entry("  w  "), entry("w", create), "/ns1:a/ns1:d[ns1:name = '  w  ']", {"w"}},
    {"LineEndsAroundStoredKey",
     entry("\n it's\t"),
     entry("it's", create),
     "/ns1:a/ns1:d[ns1:name = \"\n it's\t\"]",
     {"it's"}},
    {"BlanksAroundKeyOfEdit", entry("w"), entry(" w\n", create), "/ns1:a/ns1:d[ns1:name = 'w']", {"w"}},
    {"LeafOfEntry",
     in_a("<d><name> x </name><v>1</v></d><d><name>y</name><v>2</v></d>"),
     in_a("<d><name>x</name><v xc:operation='create'>1</v></d>"),
     "/ns1:a/ns1:d[ns1:name = ' x ']/ns1:v",
     {"1"}},
    {"LeafListEntry",
     in_a("<l>1</l><l>2</l><l>3</l>"),
     in_a("<l xc:operation='create'>2</l>"),
     "/ns1:a/ns1:l[. = '2']",
     {"2"}},
    {"LeafListEntryWithBlanks",
     in_a("<l>1</l><l>\n 2 </l>"),
     in_a("<l xc:operation='create'>2</l>"),
     "/ns1:a/ns1:l[. = '\n 2 ']",
     {"2"}},
    {"LeafListEntryWithQuotes",
     in_a("<l>1</l><l>it's \"x\"</l>"),
     in_a("<l xc:operation='create'>it's \"x\"</l>"),
     R"(/ns1:a/ns1:l[. = concat("it's ", '"x"')])",
     {"it's\"x\""}},
    {"EmptyLeafListEntry", in_a("<l>1</l><l/><l>2</l>"), in_a("<l xc:operation='create'/>"), "/ns1:a/ns1:l[2]", {""}},
    {"EntryWithoutKey",
     in_a("<l><x>1</x></l><m>3</m><l><x>2</x></l>"),
     in_a("<l xc:operation='create'><x>2</x></l>"),
     "/ns1:a/ns1:l[2]",
     {"2"}},
    {"LeafOfEntryWithoutKey",
     in_a("<l><x>1</x><y>5</y></l><l><x>2</x><y>6</y></l>"),
     in_a("<l><x>2</x><y xc:operation='create'>6</y></l>"),
     "/ns1:a/ns1:l[2]/ns1:y",
     {"6"}},
    {"EntryBehindADeletedOne",
     in_a("<d><name>k</name><l><x>1</x></l><l><x>2</x></l><l><x>3</x></l></d>"),
     in_a("<d><name>k</name><l xc:operation='delete'><x>1</x></l></d>"
          "<d><name>k</name><l xc:operation='create'><x>3</x></l></d>"),
     "/ns1:a/ns1:d[ns1:name = 'k']/ns1:l[3]",
     {"3"}},
    {"EntryReplacedBefore",
     in_a("<l><x>1</x></l><l><x>2</x></l>"),
     in_a("<l xc:operation='replace'><x>2</x></l><l xc:operation='create'><x>2</x></l>"),
     "/ns1:a/ns1:l[2]",
     {"2"}},
    {"EntryThatAnotherKeyMeansAsWell",
     in_a("<d><name>y</name><id>x</id></d><d><id>x</id></d>"),
     in_a("<d xc:operation='create'><id>x</id></d>"),
     "/ns1:a/ns1:d[1]",
     {"yx"}},
    {"SeveralNamespaces",
     in_a("<b xmlns='urn:b'><c xmlns='urn:a'><name>k</name></c></b>"),
     in_a("<b xmlns='urn:b'><c xmlns='urn:a' xc:operation='create'><name>k</name></c></b>"),
     "/ns1:a/ns2:b/ns1:c[ns1:name = 'k']",
     {"k"}},
    {"PrefixesInsteadOfDefaultNamespace",
     "<x:a xmlns:x='urn:a'><x:d><x:name>k</x:name></x:d></x:a>",
     entry("k", create),
     "/ns1:a/ns1:d[ns1:name = 'k']",
     {"k"}},
    {"NoNamespace",
     "<a xmlns=''><d><name>k</name></d></a>",
     "<a xmlns='' xmlns:xc='" + netconf + "'><d xc:operation='create'><name>k</name></d></a>",
     "/a/d[name = 'k']",
     {"k"}},
    {"NoNamespaceBelowOne",
     in_a("<b xmlns=''><l>1</l><l>2</l></b>"),
     in_a("<b xmlns=''><l xc:operation='create'>2</l></b>"),
     "/ns1:a/b/l[. = '2']",
     {"2"}},
    {"NestedLists",
     in_a("<d><name>x</name><e><id>1</id><l>7</l><l>8</l></e></d>"
          "<d><name>y</name><e><id>1</id><l>7</l><l>9</l></e><e><id>2</id><l>7</l></e></d>"),
     in_a("<d><name>y</name><e><id>1</id><l xc:operation='create'>7</l></e></d>"),
     "/ns1:a/ns1:d[ns1:name = 'y']/ns1:e[ns1:id = '1']/ns1:l[. = '7']",
     {"7"}},
    {"AllFailuresOfAnEdit",
     in_a("<l>1</l><l>2</l><m><x>3</x></m><m><x>4</x></m>"),
     in_a("<l xc:operation='delete'>1</l><l xc:operation='create'>2</l><m xc:operation='delete'><x>3</x></m>"
          "<m xc:operation='create'><x>4</x></m>"),
     "/ns1:a/ns1:l[. = '2'] /ns1:a/ns1:m[2]",
     {"2", "4"}},
    // What is not there is selected by no path, and neither is something else.
    {"MissingEntry", entry("x"), entry("y", remove_existing), "/ns1:a/ns1:d[ns1:name = 'y']", {}},
    {"MissingLeaf", in_a("<b>1</b>"), in_a("<c xc:operation='delete'/>"), "/ns1:a/ns1:c", {}},
    {"MissingLeafListEntry",
     in_a("<l>1</l><l>2</l>"),
     in_a("<l xc:operation='delete'> 3 </l>"),
     "/ns1:a/ns1:l[. = '3']",
     {}},
    {"MissingEntryWithoutKey",
     in_a("<l><x>1</x></l><l><x>2</x></l>"),
     in_a("<l xc:operation='delete'><x>3</x></l>"),
     "/ns1:a/ns1:l[last() + 1]",
     {}},
};

/* @param operation  with the prefix "nc", in the place of which another is put */
std::string rpc(const std::string &prefix, std::string operation) {
    for (size_t at = 0; (at = operation.find("nc:", at)) != std::string::npos; at += prefix.size() + 1) {
        operation.replace(at, 3, prefix + ":");
    }
    return "<" + prefix + ":rpc message-id='1' xmlns:" + prefix + "='" + netconf + "'>" + operation + "</" + prefix +
           ":rpc>";
}

std::string copy_to_running(const std::string &data) {
    return "<nc:copy-config><nc:target><nc:running/></nc:target><nc:source><nc:config>" + data +
           "</nc:config></nc:source></nc:copy-config>";
}

std::string edit_running(const std::string &edit, const std::string &error_option) {
    return "<nc:edit-config><nc:target><nc:running/></nc:target><nc:error-option>" + error_option +
           "</nc:error-option><nc:config>" + edit + "</nc:config></nc:edit-config>";
}

const std::string get_running = "<nc:get-config><nc:source><nc:running/></nc:source></nc:get-config>";

/* @return the replies of a processor of its own, each of them valid */
std::vector<std::string> replies_to(const std::vector<std::string> &rpcs) {
    processor_frame frame(1);
    const uint32_t session = nyx_session_create(&frame.root.api())->session_id;
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    connection agent(ends[0]);
    {
        connection processor(ends[1]);
        for (const std::string &one : rpcs) {
            agent.send(request_of(one, session),
                       &one == &rpcs.back() ? std::optional<uint64_t>(UINT64_MAX) : std::nullopt);
        }
        serve(processor, frame.root.api(), {});
    }
    std::vector<std::string> replies;
    for (const std::string &one : rpcs) {
        message reply;
        EXPECT_EQ(agent.receive(reply, 1 << 20), receive_status::complete);
        const xml_document document = parse_xml(one);
        replies.push_back(as_xml(reply, xmlDocGetRootElement(document.get())));
        EXPECT_TRUE(is_valid_reply(replies.back())) << replies.back();
    }
    return replies;
}

/* @return the elements of an element, as a document without the one element that documents have */
xml_document content_of(const xmlNode *holder) {
    xml_document content(xmlNewDoc(nullptr));
    for (xmlNode *one = element_from(holder->children); one != nullptr; one = element_from(one->next)) {
        xmlAddChild(reinterpret_cast<xmlNode *>(content.get()), xmlDocCopyNode(one, content.get(), 1));
    }
    return content;
}

/* Replies are indented. */
std::string without_blanks(std::string text) {
    std::erase_if(text, [](char c) { return std::string_view(" \t\r\n").find(c) != std::string_view::npos; });
    return text;
}

/* @return the text in each node that the path selects, which an element holds together with its prefixes */
std::vector<std::string> selected_by(xmlNode *path, const xml_document &data) {
    const std::unique_ptr<xmlXPathContext, decltype(&xmlXPathFreeContext)> context(xmlXPathNewContext(data.get()),
                                                                                   xmlXPathFreeContext);
    xmlNs **const spaces = xmlGetNsList(path->doc, path);
    for (xmlNs **space = spaces; space != nullptr && *space != nullptr; ++space) {
        if ((*space)->prefix != nullptr) {
            xmlXPathRegisterNs(context.get(), (*space)->prefix, (*space)->href);
        }
    }
    xmlFree(static_cast<void *>(spaces));
    const std::unique_ptr<xmlChar, decltype(xmlFree)> expression(xmlNodeGetContent(path), xmlFree);
    const std::unique_ptr<xmlXPathObject, decltype(&xmlXPathFreeObject)> result(
        xmlXPathEval(expression.get(), context.get()), xmlXPathFreeObject);
    std::vector<std::string> texts;
    if (result == nullptr || result->type != XPATH_NODESET) {
        ADD_FAILURE() << "not an expression for nodes: " << expression.get();
        return texts;
    }
    const int count = result->nodesetval == nullptr ? 0 : result->nodesetval->nodeNr;
    for (int i = 0; i < count; ++i) {
        texts.push_back(without_blanks(text_of(result->nodesetval->nodeTab[i])));
    }
    return texts;
}

std::vector<xmlNode *> error_paths_in(const xml_document &reply) {
    std::vector<xmlNode *> paths;
    for (xmlNode *error = element_from(xmlDocGetRootElement(reply.get())->children); error != nullptr;
         error = element_from(error->next)) {
        for (xmlNode *part = element_from(error->children); part != nullptr; part = element_from(part->next)) {
            if (is_netconf(part, "error-path")) {
                paths.push_back(part);
            }
        }
    }
    return paths;
}

/* What all paths of a reply say, one behind the other. */
struct said {
    std::string expression;
    std::vector<std::string> selected;
};

said paths_of(const std::string &reply, const xml_document &data) {
    const xml_document document = parse_xml(reply);
    said all;
    for (xmlNode *path : error_paths_in(document)) {
        const std::unique_ptr<xmlChar, decltype(xmlFree)> expression(xmlNodeGetContent(path), xmlFree);
        all.expression += all.expression.empty() ? "" : " ";
        all.expression += reinterpret_cast<const char *>(expression.get());
        for (std::string &text : selected_by(path, data)) {
            all.selected.push_back(std::move(text));
        }
    }
    return all;
}

struct ErrorPath : nyx_test::platform_test {};

struct ErrorPathOfEdit : nyx_test::platform_test, testing::WithParamInterface<failing_edit> {};

}  // namespace

/* Whatever prefix the client has for NETCONF's elements, also one that the path uses for another namespace. */
TEST_P(ErrorPathOfEdit, SelectsTheNodeInTheData) {
    const failing_edit &one = GetParam();
    for (const char *prefix : {"nc", "ns1", "ns2"}) {
        SCOPED_TRACE(prefix);
        const auto replies =
            replies_to({rpc(prefix, copy_to_running(one.data)), rpc(prefix, get_running),
                        rpc(prefix, edit_running(one.edit, "rollback-on-error")), rpc(prefix, get_running),
                        rpc(prefix, edit_running(one.edit, "continue-on-error"))});
        EXPECT_EQ(replies[1], replies[3]);
        const xml_document before = parse_xml(replies[1]);
        const xml_document data = content_of(element_from(xmlDocGetRootElement(before.get())->children));
        const said all = paths_of(replies[4], data);
        EXPECT_EQ(all.expression, one.path) << replies[4];
        EXPECT_EQ(all.selected, one.selected) << replies[4];
        const said first = paths_of(replies[2], data);
        EXPECT_TRUE(all.expression.starts_with(first.expression) && !first.expression.empty()) << replies[2];
        EXPECT_EQ(first.selected.size(), std::min<size_t>(one.selected.size(), 1));
    }
}

INSTANTIATE_TEST_SUITE_P(Table, ErrorPathOfEdit, testing::ValuesIn(failing_edits),
                         [](const auto &one) { return std::string(one.param.name); });

/* A value that a leaf-list has twice, which no edit can bring about. */
TEST_F(ErrorPath, TellsEqualEntriesApartByPosition) {
    const auto replies =
        replies_to({rpc("nc", copy_to_running(in_a("<l>1</l><l>2</l><l>2</l>"))), rpc("nc", get_running),
                    rpc("nc", edit_running(in_a("<l xc:operation='create'>2</l>"), "stop-on-error"))});
    const xml_document before = parse_xml(replies[1]);
    const said all = paths_of(replies[2], content_of(element_from(xmlDocGetRootElement(before.get())->children)));
    EXPECT_EQ(all.expression, "/ns1:a/ns1:l[2]");
    EXPECT_THAT(all.selected, ElementsAre("2"));
}

/* The path is about the configuration that is refused, and both entries are to blame. */
TEST_F(ErrorPath, SelectsAllEntriesWithTheSameKey) {
    const std::string refused = in_a(
        "<l><x>1</x></l><l><d><name>k</name><v>1</v></d><d><name>o</name></d><d><name>k</name><v>2</v></d></l>"
        "<s>3</s>");
    const auto replies = replies_to({rpc("ns1", copy_to_running(refused)), rpc("ns1", get_running)});
    const xml_document configuration = parse_xml("<config>" + refused + "</config>");
    const said all = paths_of(replies[0], content_of(xmlDocGetRootElement(configuration.get())));
    EXPECT_EQ(all.expression, "/ns1:a/ns1:l[2]/ns1:d[ns1:name = 'k']");
    EXPECT_THAT(all.selected, ElementsAre("k1", "k2"));
}
