#include "round.h"

#include <algorithm>

#include "children.h"

namespace soak {

namespace {

std::string value_element(uint64_t value) {
    return "<value xmlns=\"urn:example:soak\">number " + std::to_string(value) + "</value>";
}

std::string source(const std::string &datastore) {
    return "<get-config><source><" + datastore + "/></source></get-config>";
}

std::string replacement(const std::string &datastore, const std::string &content) {
    return "<copy-config><target><" + datastore + "/></target><source><config>" + content +
           "</config></source></copy-config>";
}

const std::string no_data = rpc_reply("  <data/>\n");
const std::string ok = rpc_reply("  <ok/>\n");

std::string error(const std::string &type, const std::string &tag, const std::string &rest) {
    return rpc_reply("  <rpc-error>\n    <error-type>" + type + "</error-type>\n    <error-tag>" + tag +
                     "</error-tag>\n    <error-severity>error</error-severity>\n" + rest + "  </rpc-error>\n");
}

const std::string unknown_session =
    error("application", "invalid-value", "    <error-message>Entered session ID was not found.</error-message>\n");

const std::string no_session_opened =
    error("application", "resource-denied",
          "    <error-message>Not enough resources to carry out the request</error-message>\n");

std::string stored(uint64_t value) {
    return rpc_reply("  <data>\n    " + value_element(value) + "\n  </data>\n");
}

std::string unknown_element(const std::string &name) {
    return error("protocol", "unknown-element",
                 "    <error-message>Unknown element is specified.</error-message>\n    <error-info>\n      "
                 "<bad-element>" +
                     name + "</bad-element>\n    </error-info>\n");
}

}  // namespace

void round::run(std::vector<request> requests) {
    for (const uint32_t session : sessions_) {
        require_empty_datastores(session);
    }
    std::shuffle(requests.begin(), requests.end(), random_);
    for (const request &one : requests) {
        if (one_in(6)) {
            set_pressure(!pressed_);
        }
        send(one, any_session());
        probe(any_session());
        if (!pressed_ && one_in(4)) {
            fail_an_allocation();
        }
    }
    set_pressure(false);
    for (const uint32_t session : sessions_) {
        close(session);
    }
    const uint32_t last = ++newest_session_;
    empty_datastores(last);
    require_empty_datastores(last);
    close(last);
    expect(source("running"), last, unknown_session);
}

// One request, and all that the agent says to it.
std::string round::ask(const std::string &text, uint32_t session) {
    ++count_.requests;
    replies_.str("");
    agent_.handle(text, {request_path::speaker_kind::session, session});
    const std::string printed = replies_.str();
    const size_t begin = printed.find("<?xml ");
    require(occurrences(printed, "<?xml ") == 1, "not one reply, but this: " + printed);
    count_.errors += is_error(printed) ? 1 : 0;
    return printed.substr(begin);
}

void round::expect(const std::string &content, uint32_t session, const std::string &reply) {
    const uint64_t id = count_.requests;
    const std::string expected = with_message_id(reply, id);
    const std::string found = ask(with_message_id(rpc(content), id), session);
    require(found == expected, content + " was answered with\n" + found + "instead of\n" + expected);
}

// Null: it ends none.
uint32_t *round::ended_by(const request &one, uint32_t &session) {
    if (one.closes_its_session) {
        return &session;
    }
    for (uint32_t &other : sessions_) {
        if (one.kills == other && other != session) {
            return &other;
        }
    }
    return nullptr;
}

// A session that ends is followed by a new one.
void round::send(const request &one, uint32_t &session) {
    for (const std::string &earlier : one.before) {
        const uint64_t its_id = count_.requests;
        const std::string reply = ask(with_message_id(earlier, its_id), session);
        require(reply.find(" message-id=\"" + std::to_string(its_id) + "\"") != std::string::npos,
                one.name + " was answered with another message-id\n" + reply);
    }
    uint32_t *const ended = ended_by(one, session);
    const uint64_t id = count_.requests;
    const std::string expected = with_message_id(ended == nullptr ? one.reply : ok_instead_of(one.reply), id);
    const std::string found = ask(with_message_id(one.text, id), session);
    require(is_acceptable(found, expected, one.kind, pressed_),
            one.name + " was answered with\n" + found + "and not as expected, such as\n" + expected);
    pressed_ = one.sets_pressure.value_or(pressed_);
    if (ended != nullptr) {
        *ended = ++newest_session_;
    }
}

void round::set_pressure(bool pressed) {
    const std::string state = pressed ? "short" : "normal";
    expect(R"(<memory-state xmlns="urn:example:request-path">)" + state + "</memory-state>", any_session(), ok);
    pressed_ = pressed;
    if (!pressed) {
        read_value(any_session());
    }
}

// Replies that depend on numbers of their own: that of another request is not one of them. Under pressure, there are
// no texts for them; what was written then is read when it is over.
void round::probe(uint32_t session) {
    write_value(session);
    read_value(session);
    echo(session);
    if (pressed_) {
        count_.pressed += 2;
    }
}

// Nobody locks the startup configuration.
void round::write_value(uint32_t session) {
    const uint64_t value = count_.requests;
    expect(replacement("startup", value_element(value)), session, ok);
    value_ = value;
}

void round::read_value(uint32_t session) {
    const std::string reply = stored(value_);
    expect(source("startup"), session, pressed_ ? bare_failure_instead_of(reply) : reply);
}

void round::echo(uint32_t session) {
    const std::string name = "no" + std::to_string(count_.requests);
    const std::string reply = unknown_element(name);
    expect(source(name), session, pressed_ ? bare_failure_instead_of(reply) : reply);
}

// One of the processor's, while it reads for a session that is there or has to be opened. The next requests succeed.
void round::fail_an_allocation() {
    constexpr uint32_t of_one_request = 12;
    const bool opens = one_in(2);
    const uint32_t session = opens ? ++newest_session_ : any_session();
    const uint64_t id = count_.requests;
    failures_.fail(1 + static_cast<uint32_t>(random_() % of_one_request));
    const std::string found = ask(with_message_id(rpc(source("startup")), id), session);
    const bool has_failed = failures_.has_failed();
    failures_.fail(0);
    const auto is = [&](const std::string &reply) { return found == with_message_id(reply, id); };
    const std::string data = stored(value_);
    require(has_failed ? is(bare_failure_instead_of(data)) || is(no_session_opened) : is(data),
            "with an allocation that fails, a request was answered with\n" + found);
    count_.failed_allocations += has_failed ? 1 : 0;
    probe(session);
    if (opens) {
        close(session);
    }
}

void round::close(uint32_t session) {
    expect("<close-session/>", session, ok);
}

void round::require_empty_datastores(uint32_t session) {
    for (const char *datastore : {"running", "candidate", "startup"}) {
        expect(source(datastore), session, no_data);
    }
}

void round::empty_datastores(uint32_t session) {
    expect("<discard-changes/>", session, ok);
    expect(replacement("running", ""), session, ok);
    expect("<delete-config><target><startup/></target></delete-config>", session, ok);
}

}  // namespace soak
