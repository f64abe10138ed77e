/**
 * @file wire.h
 * Messages on the socket between the two processes. The codec's encoding does not tell where a message ends nor which
 * record it holds, so that each one travels behind a header of five bytes: the kind of record (one byte) and the
 * length of its encoding (four bytes, the most significant first).
 */
#ifndef REQUEST_PATH_WIRE_H
#define REQUEST_PATH_WIRE_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

namespace request_path {

enum class message_kind : uint8_t { request = 1, response = 2, request_result = 3 };

struct message {
    message_kind kind = message_kind::request;
    std::vector<uint8_t> bytes;
};

inline constexpr size_t header_size = 5;

/** The conversation cannot go on: the other side is gone or does not keep to the framing. */
struct conversation_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** The other side neither sent nor took anything for as long as the timeout allows; it may be gone, stopped or busy. */
struct silence_error : conversation_error {
    using conversation_error::conversation_error;
};

enum class receive_status {
    complete,
    closed,    ///< the other side closed the connection between two messages
    too_long,  ///< the message was longer than the limit; it was read and dropped
};

/**
 * One end of the connection; closes it when it goes away. Nothing here raises a signal when the other side is gone.
 * All functions throw conversation_error.
 */
class connection {
  public:
    explicit connection(int socket) : socket_(socket) {}
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;
    ~connection() { close(); }

    /** Gives up when the other side neither sends nor takes anything for so long. Without it, waits forever. */
    void set_timeout(uint32_t seconds);

    /** @param cut_after  for trying out failures: sends so many bytes of the message and closes the sending side */
    void send(const message &outgoing, std::optional<uint64_t> cut_after = std::nullopt);

    /** @param limit  the longest encoding that is taken into memory */
    receive_status receive(message &incoming, uint64_t limit);

    void close();

  private:
    size_t read_some(uint8_t *bytes, size_t length);
    void read_exactly(uint8_t *bytes, uint64_t length);
    void write_all(const uint8_t *bytes, size_t length);
    void drop(uint64_t length);

    [[noreturn]] void fail_with_errno(const char *what) const;

    int socket_;
    uint32_t timeout_ = 0;  ///< seconds; 0: none
};

}  // namespace request_path

#endif
