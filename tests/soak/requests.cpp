#include "requests.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "agent.h"
#include "children.h"

namespace soak {

namespace {

constexpr std::string_view declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
constexpr std::string_view netconf = " xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"";

std::string read_file(const std::string &name) {
    std::ifstream file(name, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    require(file && !text.empty(), "cannot read " + name);
    return text;
}

bool has_any(std::string_view text, std::initializer_list<std::string_view> parts) {
    return std::any_of(parts.begin(), parts.end(),
                       [text](std::string_view part) { return text.find(part) != std::string_view::npos; });
}

reply_kind kind_of(const std::string &text, const std::string &reply) {
    if (has_any(reply, {"<data>", "<data/>"})) {
        return reply_kind::reading;
    }
    if (!has_any(text, {"edit-config>", "copy-config>", "delete-config>", "lock>", "commit/>", "discard-changes/>"})) {
        return reply_kind::fixed;
    }
    return is_ok(reply) || has_any(reply, {"error-tag>data-"}) ? reply_kind::writing : reply_kind::lockable;
}

// The session that a request ends when there is one of this number.
std::optional<uint32_t> killed_by(const std::string &text, const std::string &reply) {
    const size_t at = text.find("<session-id>");
    if (at == std::string::npos || !has_any(reply, {"error-tag>invalid-value"})) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(std::stoul(text.substr(at + std::string_view("<session-id>").size())));
}

struct element {
    std::string head;    ///< the declaration and the start tag
    std::string prefix;  ///< with its colon
};

element start_of(const std::string &reply) {
    const size_t end = reply.find('>', declaration.size());
    const size_t name = reply.find("rpc-reply", declaration.size());
    require(reply.starts_with(declaration) && end != std::string::npos && name < end, "no reply: " + reply);
    return {reply.substr(0, end + 1), reply.substr(declaration.size() + 1, name - declaration.size() - 1)};
}

std::string ended(const element &start, const std::string &content) {
    return start.head + "\n" + content + "</" + start.prefix + "rpc-reply>\n";
}

bool has_only_tags(const std::string &reply, std::initializer_list<std::string_view> tags) {
    uint64_t found = 0;
    for (const std::string_view tag : tags) {
        found += occurrences(reply, "error-tag>" + std::string(tag) + "</");
    }
    return found > 0 && found == occurrences(reply, "rpc-error>") / 2;
}

}  // namespace

request read_request(const std::string &file) {
    const std::string name = std::filesystem::path(file).filename();
    const std::string text = read_file(file);
    const std::vector<std::string_view> messages = request_path::split_messages(text);
    require(!messages.empty(), "no request in " + name);
    request found;
    found.name = name;
    found.before.assign(messages.begin(), messages.end() - 1);
    found.text = messages.back();
    found.reply = read_file(EXPECTED_REPLIES "/" + name);
    found.kind = kind_of(found.text, found.reply);
    found.closes_its_session = has_any(found.text, {"<close-session/>"});
    if (is_ok(found.reply) && has_any(found.text, {"<memory-state"})) {
        found.sets_pressure = has_any(found.text, {">short<"});
    }
    found.kills = killed_by(found.text, found.reply);
    return found;
}

std::string rpc(std::string_view content) {
    return "<rpc" + std::string(netconf) + " message-id=\"\">" + std::string(content) + "</rpc>";
}

std::string rpc_reply(std::string_view content) {
    return std::string(declaration) + "<rpc-reply" + std::string(netconf) + " message-id=\"\">\n" +
           std::string(content) + "</rpc-reply>\n";
}

std::string with_message_id(const std::string &text, uint64_t id) {
    constexpr std::string_view attribute = " message-id=\"";
    const size_t at = text.find(attribute);
    if (at == std::string::npos) {
        return text;
    }
    const size_t value = at + attribute.size();
    return text.substr(0, value) + std::to_string(id) + text.substr(text.find('"', value));
}

std::string ok_instead_of(const std::string &reply) {
    const element start = start_of(reply);
    return ended(start, "  <" + start.prefix + "ok/>\n");
}

std::string bare_failure_instead_of(const std::string &reply) {
    const element start = start_of(reply);
    const auto line = [&start](const std::string &name, const std::string &value) {
        return "    <" + start.prefix + name + ">" + value + "</" + start.prefix + name + ">\n";
    };
    return ended(start, "  <" + start.prefix + "rpc-error>\n" + line("error-type", "application") +
                            line("error-tag", "resource-denied") + line("error-severity", "error") + "  </" +
                            start.prefix + "rpc-error>\n");
}

bool is_ok(const std::string &reply) {
    return reply == ok_instead_of(reply);
}

bool is_error(const std::string &reply) {
    return has_any(reply, {"rpc-error>"});
}

uint64_t occurrences(std::string_view text, std::string_view of) {
    uint64_t count = 0;
    for (size_t at = text.find(of); at != std::string_view::npos; at = text.find(of, at + of.size())) {
        ++count;
    }
    return count;
}

bool is_acceptable(const std::string &reply, const std::string &expected, reply_kind kind, bool pressed) {
    if (start_of(reply).head != start_of(expected).head) {
        return false;
    }
    const bool is_refused_for_memory = pressed && reply == bare_failure_instead_of(expected);
    switch (kind) {
        case reply_kind::fixed:
            return reply == expected || (is_refused_for_memory && !is_ok(expected));
        case reply_kind::lockable:
            return reply == expected || is_refused_for_memory || (!pressed && has_only_tags(reply, {"in-use"}));
        case reply_kind::reading:
            return pressed ? is_refused_for_memory : has_any(reply, {"<data>", "<data/>"}) && !is_error(reply);
        case reply_kind::writing:
            return is_ok(reply) || is_refused_for_memory ||
                   (!pressed &&
                    has_only_tags(reply, {"data-exists", "data-missing", "in-use", "lock-denied", "operation-failed"}));
    }
    return false;
}

}  // namespace soak
