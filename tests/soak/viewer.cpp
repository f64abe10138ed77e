#include "viewer.h"

#include <poll.h>
#include <skein/reader.h>
#include <sys/socket.h>

#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>

#include "children.h"

namespace soak {

namespace {

struct trace_file {
    const char *name;
    uint64_t first_seen = 0;  ///< ticket behind the newest entry of the first reading
    uint64_t last_seen = 0;
    uint64_t readings = 0;
    uint64_t entries = 0;
};

uint64_t read_entries(skein_reader *reader, trace_file &file) {
    skein_entry entry;
    uint64_t count = 0;
    for (; skein_reader_next(reader, &entry) == 0; ++count) {
        file.last_seen = entry.ticket + 1;
    }
    return count;
}

void read_now(trace_file &file) {
    const std::string name = file.name;
    skein_reader *reader = nullptr;
    const int32_t error = skein_reader_open(nullptr, file.name, &reader);
    require(error == 0, "the trace file " + name + " cannot be read: error " + std::to_string(error));
    const uint64_t count = read_entries(reader, file);
    skein_file_info info{};
    const bool is_told = skein_reader_info(reader, &info) == 0;
    skein_reader_close(reader);
    require(is_told && info.damaged == 0, name + " has " + std::to_string(info.damaged) + " damaged entries");
    require(info.entries == count,
            name + " has " + std::to_string(info.entries) + " entries, and gives " + std::to_string(count));
    if (file.readings == 0) {
        file.first_seen = file.last_seen;
    }
    ++file.readings;
    file.entries += count;
}

using trace_files = std::array<trace_file, 3>;

void read_all_now(trace_files &files) {
    for (trace_file &file : files) {
        read_now(file);
    }
}

bool is_closed_after_a_pause(int socket) {
    pollfd end{socket, POLLIN, 0};
    return poll(&end, 1, 20) > 0;
}

}  // namespace

int view_traces(int socket) {
    trace_files files{{{"agentx-nyx/processor.trace"}, {"processor-nyx/processor.trace"}, {"processor-nyx/me.trace"}}};
    read_all_now(files);
    require(send(socket, "!", 1, MSG_NOSIGNAL) == 1, "nobody waits for the viewer");
    while (!is_closed_after_a_pause(socket)) {
        read_all_now(files);
    }
    read_all_now(files);
    for (const trace_file &file : files) {
        std::printf("viewer: %s: %" PRIu64 " readings of %" PRIu64 " entries; %" PRIu64 " slots were written\n",
                    file.name, file.readings, file.entries, file.last_seen - file.first_seen);
        require(file.last_seen > file.first_seen, std::string("nothing new to be seen in ") + file.name);
    }
    std::fflush(stdout);
    return 0;
}

}  // namespace soak
