#include "samples.h"

#include <algorithm>
#include <deque>

#include "operation.h"
#include "quill_nyx.h"

namespace {

constexpr const char *netconf_namespace = "urn:ietf:params:xml:ns:netconf:base:1.0";
constexpr const char *interfaces_namespace = "urn:ietf:params:xml:ns:yang:ietf-interfaces";
constexpr const char *ip_namespace = "urn:ietf:params:xml:ns:yang:ietf-ip";
constexpr const char *types_namespace = "urn:ietf:params:xml:ns:yang:iana-if-type";

// Owns what the records that are built here point to, until they have been encoded.
class builder {
  public:
    char *text(std::string value) { return texts_.emplace_back(std::move(value)).data(); }

    quill_nyx_datatree *nodes(std::size_t count) { return nodes_.emplace_back(count).data(); }

    quill_nyx_schema *schemas(std::size_t count) { return schemas_.emplace_back(count).data(); }

    void name(quill_nyx_datatree &node, std::string name) {
        node.name = text(std::move(name));
        node.has_name = 1;
    }

    void value(quill_nyx_datatree &node, std::string value) {
        node.value = text(std::move(value));
        node.has_value = 1;
    }

    void name_space(quill_nyx_datatree &node, const char *uri) {
        node.namespace_ = text(uri);
        node.has_namespace = 1;
    }

    void attribute(quill_nyx_datatree &node, const char *key, const char *value) {
        quill_nyx_attribute &attribute = attributes_.emplace_back();
        attribute.key = text(key);
        attribute.has_key = 1;
        attribute.value = text(value);
        attribute.has_value = 1;
        node.attributes = &attribute;
        node.attributes_count = 1;
        node.has_attributes = 1;
    }

    quill_nyx_datatree *children(quill_nyx_datatree &node, const std::vector<quill_nyx_datatree> &children) {
        node.children = nodes_.emplace_back(children).data();
        node.children_count = static_cast<uint32_t>(children.size());
        node.has_children = 1;
        return node.children;
    }

    quill_nyx_datatree leaf(std::string leaf_name, std::string leaf_value) {
        quill_nyx_datatree node{};
        name(node, std::move(leaf_name));
        value(node, std::move(leaf_value));
        return node;
    }

    quill_nyx_datatree container(std::string node_name, const std::vector<quill_nyx_datatree> &below) {
        quill_nyx_datatree node{};
        name(node, std::move(node_name));
        if (!below.empty()) {
            children(node, below);
        }
        return node;
    }

  private:
    std::deque<std::string> texts_;
    std::deque<std::vector<quill_nyx_datatree>> nodes_;
    std::deque<quill_nyx_attribute> attributes_;
    std::deque<std::vector<quill_nyx_schema>> schemas_;
};

void operation_of(quill_nyx_datatree &node, uint32_t edit) {
    node.operation = edit;
    node.has_operation = 1;
}

void request_head(quill_nyx_request &request, builder &build, uint32_t type) {
    request.type = type;
    request.has_type = 1;
    request.session_id = 4711;
    request.has_session_id = 1;
    request.message_id = build.text("101");
    request.has_message_id = 1;
}

template <class Record>
using encoder = uint64_t (*)(const Record *, uint8_t *, uint64_t, quill_segment *, uint32_t *, uint32_t);

template <class Record>
std::vector<uint8_t> encoded(encoder<Record> encode, const Record &record) {
    std::vector<uint8_t> bytes(encode(&record, nullptr, 0, nullptr, nullptr, 0));
    require(encode(&record, bytes.data(), bytes.size(), nullptr, nullptr, 0) == bytes.size(), "sample not encoded");
    return bytes;
}

std::vector<uint8_t> small_get_config() {
    builder build;
    quill_nyx_request request{};
    request_head(request, build, QUILL_NYX_REQUEST_TYPE_GET_CONFIG);
    request.get_config.source.name = build.text("running");
    request.get_config.source.has_name = 1;
    request.get_config.has_source = 1;
    request.get_config.filter.has_tree = 1;
    request.get_config.has_filter = 1;
    request.has_get_config = 1;
    quill_nyx_datatree name = build.container("name", {});
    quill_nyx_datatree &filter = request.get_config.filter.tree;
    filter = build.container("interfaces", {build.container("interface", {name})});
    build.name_space(filter, interfaces_namespace);
    return encoded(quill_nyx_request_encode_ext, request);
}

std::string number(std::size_t value) {
    return std::to_string(value);
}

std::string octets(const char *prefix, std::size_t index) {
    return prefix + number(index / 250 % 250) + "." + number(index % 250 + 1);
}

constexpr std::size_t nodes_of_interface = 23;

// One entry of the list of interfaces: 23 nodes with their texts, after the models of interfaces and addresses.
quill_nyx_datatree interface_entry(builder &build, std::size_t index) {
    quill_nyx_datatree type = build.leaf("type", "ianaift:ethernetCsmacd");
    build.attribute(type, "xmlns:ianaift", types_namespace);

    quill_nyx_datatree address =
        build.container("address", {build.leaf("ip", octets("10.16.", index)), build.leaf("prefix-length", "24")});
    if (index % 10 == 3) {
        operation_of(address, QUILL_NYX_EDIT_OPERATION_REPLACE);
    }
    const quill_nyx_datatree neighbor =
        build.container("neighbor", {build.leaf("ip", octets("10.16.", index + 1)),
                                     build.leaf("link-layer-address", "00:16:3e:5a:00:" + number(10 + index % 90))});
    quill_nyx_datatree ipv4 = build.container("ipv4", {build.leaf("enabled", "true"), build.leaf("forwarding", "false"),
                                                       build.leaf("mtu", "1500"), address, neighbor});
    build.name_space(ipv4, ip_namespace);

    const quill_nyx_datatree address6 = build.container(
        "address", {build.leaf("ip", "2001:db8:" + number(index % 9999) + "::1"), build.leaf("prefix-length", "64")});
    quill_nyx_datatree ipv6 = build.container("ipv6", {build.leaf("enabled", "true"), build.leaf("forwarding", "false"),
                                                       build.leaf("dup-addr-detect-transmits", "1"), address6});
    build.name_space(ipv6, ip_namespace);

    quill_nyx_datatree entry = build.container(
        "interface", {build.leaf("name", "GigabitEthernet0/0/" + number(index)),
                      build.leaf("description", "customer link " + number(index) + " to the aggregation switch"), type,
                      build.leaf("enabled", "true"), build.leaf("link-up-down-trap-enable", "enabled"), ipv4, ipv6});
    if (index % 10 == 0) {
        operation_of(entry, QUILL_NYX_EDIT_OPERATION_CREATE);
    }
    return entry;
}

std::size_t count_nodes(const quill_nyx_datatree &node) {
    std::size_t count = 1;
    for (uint32_t i = 0; i < node.children_count; ++i) {
        count += count_nodes(node.children[i]);
    }
    return count;
}

// The last interface gets what is left of the count as entries of a leaf-list.
std::vector<uint8_t> edit(std::size_t count) {
    builder build;
    std::vector<quill_nyx_datatree> entries;
    std::size_t left = count - 2;
    for (; left >= nodes_of_interface; left -= nodes_of_interface) {
        entries.push_back(interface_entry(build, entries.size()));
    }
    if (left != 0) {
        std::vector<quill_nyx_datatree> leaves{build.leaf("name", "Loopback0")};
        while (leaves.size() + 1 < left) {
            leaves.push_back(build.leaf("higher-layer-if", "tunnel" + number(leaves.size())));
        }
        entries.push_back(build.container("interface", leaves));
    }
    quill_nyx_request request{};
    request_head(request, build, QUILL_NYX_REQUEST_TYPE_EDIT_CONFIG);
    request.edit_config.target.name = build.text("candidate");
    request.edit_config.target.has_name = 1;
    request.edit_config.has_target = 1;
    request.edit_config.has_config = 1;
    request.has_edit_config = 1;
    quill_nyx_datatree interfaces = build.container("interfaces", entries);
    build.name_space(interfaces, interfaces_namespace);
    build.attribute(interfaces, "xmlns:if", interfaces_namespace);
    request.edit_config.config = build.container("config", {interfaces});
    build.name_space(request.edit_config.config, netconf_namespace);
    require(count_nodes(request.edit_config.config) == count, "the edit does not have its number of nodes");
    return encoded(quill_nyx_request_encode_ext, request);
}

std::vector<uint8_t> schemas_300() {
    builder build;
    quill_nyx_response response{};
    response.uint32_1 = 1;
    response.has_uint32_1 = 1;
    response.schemas_count = 300;
    response.schemas = build.schemas(response.schemas_count);
    response.has_schemas = 1;
    const char *const subjects[] = {"interfaces", "ip", "routing", "system", "hardware", "netconf-acm", "l3vpn-svc"};
    for (uint32_t i = 0; i < response.schemas_count; ++i) {
        quill_nyx_schema &schema = response.schemas[i];
        const std::string name = std::string("ietf-") + subjects[i % 7] + "-" + number(i);
        schema.string_1 = build.text(name);
        schema.has_string_1 = 1;
        schema.string_2 = build.text(i % 3 == 0 ? "2018-02-20" : "2014-05-08");
        schema.has_string_2 = 1;
        schema.string_3 = build.text("urn:ietf:params:xml:ns:yang:" + name);
        schema.has_string_3 = 1;
        schema.flag_4 = i % 2 == 0 ? 1 : 0;
        schema.has_flag_4 = 1;
        schema.flag_8 = 1;
        schema.has_flag_8 = i % 4 == 0 ? 1 : 0;
        schema.string_12 = build.text(name.substr(5, 3));
        schema.has_string_12 = 1;
    }
    return encoded(quill_nyx_response_encode_ext, response);
}

std::vector<uint8_t> rpc_error() {
    builder build;
    quill_nyx_request_result result{};
    result.has_uint32_1 = 1;
    result.has_error = 1;
    quill_nyx_error &error = result.error;
    error.error_type = 1;
    error.has_error_type = 1;
    error.error_tag = build.text("invalid-value");
    error.has_error_tag = 1;
    error.has_error_severity = 1;
    error.error_app_tag = build.text("out-of-range");
    error.has_error_app_tag = 1;
    error.error_path = build.leaf(
        " ", "/if:interfaces/if:interface[if:name='GigabitEthernet0/0/7']/ip:ipv4/ip:address/ip:prefix-length");
    build.name_space(error.error_path, interfaces_namespace);
    build.attribute(error.error_path, "xmlns:if", interfaces_namespace);
    error.has_error_path = 1;
    error.error_message.text = build.text("Prefix length 42 is not in the range 0..32.");
    error.error_message.has_text = 1;
    error.has_error_message = 1;
    error.error_info = build.container(
        "error-info", {build.leaf("bad-element", "prefix-length"), build.leaf("bad-value", "42"),
                       build.container("range", {build.leaf("minimum", "0"), build.leaf("maximum", "32")})});
    build.name_space(error.error_info, netconf_namespace);
    error.has_error_info = 1;
    return encoded(quill_nyx_request_result_encode_ext, result);
}

std::vector<uint8_t> chain(std::size_t levels) {
    builder build;
    quill_nyx_datatree node = build.leaf("leaf", "value");
    for (std::size_t level = 1; level < levels; ++level) {
        node = build.container("container", {node});
    }
    require(count_nodes(node) == levels, "the chain does not have its number of levels");
    return encoded(quill_nyx_datatree_encode_ext, node);
}

std::vector<uint8_t> flat_10k() {
    builder build;
    std::vector<quill_nyx_datatree> leaves;
    for (std::size_t i = 0; i < 10'000; ++i) {
        leaves.push_back(build.leaf("counter-" + number(i), number(i * 7919)));
    }
    quill_nyx_datatree node = build.container("statistics", leaves);
    build.name_space(node, interfaces_namespace);
    return encoded(quill_nyx_datatree_encode_ext, node);
}

struct recipe {
    const char *name;
    message_kind kind;
    std::vector<uint8_t> (*make)();
};

constexpr recipe recipes[] = {
    {"small_get_config", message_kind::request, small_get_config},
    {"edit_1k", message_kind::request, [] { return edit(1'000); }},
    {"edit_100k", message_kind::request, [] { return edit(100'000); }},
    {"schemas_300", message_kind::response, schemas_300},
    {"rpc_error", message_kind::request_result, rpc_error},
    {"chain_20", message_kind::datatree, [] { return chain(20); }},
    {"chain_80", message_kind::datatree, [] { return chain(80); }},
    {"chain_1000", message_kind::datatree, [] { return chain(1'000); }},
    {"flat_10k", message_kind::datatree, flat_10k},
};

}  // namespace

std::size_t sample::batch() const {
    return std::clamp<std::size_t>(64 * 1024 / bytes.size(), 1, 256);
}

std::size_t sample::live_batch() const {
    return std::clamp<std::size_t>(32 * 1024 / bytes.size(), 1, 16);
}

const std::vector<std::string> &sample_names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> result;
        for (const recipe &each : recipes) {
            result.emplace_back(each.name);
        }
        return result;
    }();
    return names;
}

sample make_sample(const std::string &name) {
    for (const recipe &each : recipes) {
        if (name == each.name) {
            return {name, each.kind, each.make()};
        }
    }
    require(false, ("no message " + name).c_str());
    return {};
}
