#include "wire.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <system_error>

namespace request_path {

namespace {

std::array<uint8_t, header_size> make_header(message_kind kind, uint32_t length) {
    return {static_cast<uint8_t>(kind), static_cast<uint8_t>(length >> 24), static_cast<uint8_t>(length >> 16),
            static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
}

message_kind kind_in(const std::array<uint8_t, header_size> &header) {
    if (header[0] < static_cast<uint8_t>(message_kind::request) ||
        header[0] > static_cast<uint8_t>(message_kind::request_result)) {
        throw conversation_error("a message of unknown kind " + std::to_string(header[0]));
    }
    return static_cast<message_kind>(header[0]);
}

uint32_t length_in(const std::array<uint8_t, header_size> &header) {
    return uint32_t{header[1]} << 24 | uint32_t{header[2]} << 16 | uint32_t{header[3]} << 8 | uint32_t{header[4]};
}

[[noreturn]] void fail_cut_short(uint64_t arrived, uint64_t announced, const char *what) {
    throw conversation_error("message cut short: " + std::to_string(arrived) + " of " + std::to_string(announced) +
                             " bytes of its " + what + " arrived");
}

}  // namespace

void connection::fail_with_errno(const char *what) const {
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
        throw silence_error("no answer within " + std::to_string(timeout_) + " s");
    }
    throw conversation_error(what + std::string(": ") + std::generic_category().message(errno));
}

void connection::set_timeout(uint32_t seconds) {
    timeout_ = seconds;
    timeval limit{};
    limit.tv_sec = seconds;
    if (setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
        setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) {
        fail_with_errno("setting a timeout");
    }
}

void connection::write_all(const uint8_t *bytes, size_t length) {
    while (length > 0) {
        const ssize_t sent = ::send(socket_, bytes, length, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail_with_errno("sending");
        }
        bytes += sent;
        length -= static_cast<size_t>(sent);
    }
}

void connection::send(const message &outgoing, std::optional<uint64_t> cut_after) {
    if (outgoing.bytes.size() > UINT32_MAX) {
        throw conversation_error("a message does not fit the framing");
    }
    const auto header = make_header(outgoing.kind, static_cast<uint32_t>(outgoing.bytes.size()));
    const uint64_t to_send = cut_after.value_or(UINT64_MAX);
    const size_t of_header = static_cast<size_t>(std::min<uint64_t>(to_send, header.size()));
    write_all(header.data(), of_header);
    const size_t of_bytes = static_cast<size_t>(std::min<uint64_t>(to_send - of_header, outgoing.bytes.size()));
    write_all(outgoing.bytes.data(), of_bytes);
    if (cut_after && shutdown(socket_, SHUT_WR) != 0) {
        fail_with_errno("closing");
    }
}

size_t connection::read_some(uint8_t *bytes, size_t length) {
    for (;;) {
        const ssize_t got = recv(socket_, bytes, length, 0);
        if (got >= 0) {
            return static_cast<size_t>(got);
        }
        /* A peer that died with something of ours unread resets the connection; for us that is its end. */
        if (errno == ECONNRESET) {
            return 0;
        }
        if (errno != EINTR) {
            fail_with_errno("receiving");
        }
    }
}

void connection::read_exactly(uint8_t *bytes, uint64_t length) {
    for (uint64_t arrived = 0; arrived < length;) {
        const size_t got = read_some(bytes + arrived, static_cast<size_t>(length - arrived));
        if (got == 0) {
            fail_cut_short(arrived, length, "content");
        }
        arrived += got;
    }
}

void connection::drop(uint64_t length) {
    std::array<uint8_t, 4096> unwanted;
    for (uint64_t arrived = 0; arrived < length;) {
        const size_t got = read_some(unwanted.data(), std::min<uint64_t>(length - arrived, unwanted.size()));
        if (got == 0) {
            fail_cut_short(arrived, length, "content");
        }
        arrived += got;
    }
}

receive_status connection::receive(message &incoming, uint64_t limit) {
    std::array<uint8_t, header_size> header;
    for (size_t arrived = 0; arrived < header.size();) {
        const size_t got = read_some(header.data() + arrived, header.size() - arrived);
        if (got == 0 && arrived == 0) {
            return receive_status::closed;
        }
        if (got == 0) {
            fail_cut_short(arrived, header.size(), "header");
        }
        arrived += got;
    }
    incoming.kind = kind_in(header);
    const uint32_t length = length_in(header);
    if (length > limit) {
        drop(length);
        return receive_status::too_long;
    }
    incoming.bytes.resize(length);
    read_exactly(incoming.bytes.data(), length);
    return receive_status::complete;
}

void connection::close() {
    if (socket_ >= 0) {
        ::close(socket_);
        socket_ = -1;
    }
}

}  // namespace request_path
