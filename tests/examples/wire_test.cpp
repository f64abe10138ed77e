#include "wire.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

using request_path::connection;
using request_path::conversation_error;
using request_path::message;
using request_path::message_kind;
using request_path::receive_status;
using request_path::silence_error;

namespace {

struct sockets {
    int ends[2];
    sockets() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0); }
};

struct Wire : testing::Test, sockets {
    connection left{ends[0]};
    connection right{ends[1]};
};

std::string what_receiving_throws(connection &receiver, uint64_t limit = 1000) {
    message incoming;
    try {
        receiver.receive(incoming, limit);
    } catch (const conversation_error &e) {
        return e.what();
    }
    return "nothing";
}

const message small{message_kind::response, {1, 2, 3}};

}  // namespace

TEST_F(Wire, CarriesKindAndBytes) {
    left.send(small);
    left.send({message_kind::request, {}});
    message incoming;
    ASSERT_EQ(right.receive(incoming, 1000), receive_status::complete);
    EXPECT_EQ(incoming.kind, message_kind::response);
    EXPECT_EQ(incoming.bytes, small.bytes);
    ASSERT_EQ(right.receive(incoming, 1000), receive_status::complete);
    EXPECT_EQ(incoming.kind, message_kind::request);
    EXPECT_TRUE(incoming.bytes.empty());
}

TEST_F(Wire, CarriesWhatNoSocketBufferHolds) {
    const message large{message_kind::request, std::vector<uint8_t>(4'000'000, 0x5A)};
    std::thread sender([&] { left.send(large); });
    message incoming;
    EXPECT_EQ(right.receive(incoming, 4'000'000), receive_status::complete);
    sender.join();
    EXPECT_EQ(incoming.bytes, large.bytes);
}

TEST_F(Wire, EndBetweenMessagesIsNoError) {
    left.send(small);
    left.close();
    message incoming;
    EXPECT_EQ(right.receive(incoming, 1000), receive_status::complete);
    EXPECT_EQ(right.receive(incoming, 1000), receive_status::closed);
}

TEST(WireCut, EveryCutIsTold) {
    for (uint64_t kept = 1; kept < 8; ++kept) {
        sockets pair;
        connection left(pair.ends[0]);
        connection right(pair.ends[1]);
        left.send(small, kept);
        EXPECT_EQ(what_receiving_throws(right),
                  kept < 5 ? "message cut short: " + std::to_string(kept) + " of 5 bytes of its header arrived"
                           : "message cut short: " + std::to_string(kept - 5) + " of 3 bytes of its content arrived");
    }
}

TEST_F(Wire, CutBehindTheEndLosesNothing) {
    left.send(small, 8);
    message incoming;
    EXPECT_EQ(right.receive(incoming, 1000), receive_status::complete);
    EXPECT_EQ(incoming.bytes, small.bytes);
    EXPECT_EQ(right.receive(incoming, 1000), receive_status::closed);
}

TEST_F(Wire, MessageAtTheLimitIsTaken) {
    left.send(small);
    message incoming;
    EXPECT_EQ(right.receive(incoming, 3), receive_status::complete);
}

TEST_F(Wire, MessageOverTheLimitIsDroppedAndTheNextOneArrives) {
    left.send({message_kind::request, std::vector<uint8_t>(10'000)});
    left.send(small);
    message incoming;
    EXPECT_EQ(right.receive(incoming, 9'999), receive_status::too_long);
    EXPECT_EQ(right.receive(incoming, 9'999), receive_status::complete);
    EXPECT_EQ(incoming.bytes, small.bytes);
}

TEST_F(Wire, AnnouncedLengthAloneTakesNoMemory) {
    const uint8_t header[] = {1, 0xFF, 0xFF, 0xFF, 0xFF};
    ASSERT_EQ(write(ends[0], header, sizeof header), static_cast<ssize_t>(sizeof header));
    left.close();
    EXPECT_EQ(what_receiving_throws(right), "message cut short: 0 of 4294967295 bytes of its content arrived");
}

TEST_F(Wire, UnknownKindIsRefused) {
    for (const uint8_t kind : {uint8_t{0}, uint8_t{4}, uint8_t{255}}) {
        const uint8_t header[] = {kind, 0, 0, 0, 0};
        ASSERT_EQ(write(ends[0], header, sizeof header), static_cast<ssize_t>(sizeof header));
        EXPECT_EQ(what_receiving_throws(right), "a message of unknown kind " + std::to_string(kind));
    }
}

TEST_F(Wire, SendingToNobodyIsAnErrorAndNoSignal) {
    right.close();
    EXPECT_THROW(left.send(small), conversation_error);
}

TEST_F(Wire, PeerThatDiedWithUnreadBytesIsGone) {
    left.send(small);
    right.close();
    message incoming;
    EXPECT_EQ(left.receive(incoming, 1000), receive_status::closed);
}

TEST_F(Wire, SilenceEndsTheWaiting) {
    left.set_timeout(1);
    message incoming;
    EXPECT_THROW(left.receive(incoming, 1000), silence_error);
    EXPECT_EQ(what_receiving_throws(left), "no answer within 1 s");
}
