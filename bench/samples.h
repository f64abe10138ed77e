// The messages that the codecs are compared on.
#ifndef NYX_BENCH_SAMPLES_H
#define NYX_BENCH_SAMPLES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum class message_kind { request, response, request_result, datatree };

// A message is kept in its encoded form, from which every codec makes its own: so all of them hold the same.
struct sample {
    std::string name;
    message_kind kind;
    std::vector<uint8_t> bytes;

    // Operations per reading of the clock: enough to make the clock's cost vanish.
    std::size_t batch() const;
    // The same for operations whose results live until the batch ends: few, so that small messages stay in the caches.
    std::size_t live_batch() const;
};

const std::vector<std::string> &sample_names();
sample make_sample(const std::string &name);

#endif
