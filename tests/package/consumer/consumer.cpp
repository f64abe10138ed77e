#include <nyx_session_store.h>
#include <orca_msg_rec.h>
#include <quill_nyx.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace {

bool session_is_found() {
    static nyx_api_ctx api;
    if (nyx_session_store_init(&api) != 0) {
        return false;
    }
    nyx_session_ctx *const session = nyx_session_create(&api);
    const bool found = session != nullptr && nyx_session_find(&api, session->session_id) == session;
    return nyx_session_store_cleanup(&api) == 0 && found;
}

}  // namespace

int main() {
    std::string name = "candidate";
    quill_nyx_lock lock{};
    lock.target.name = name.data();
    lock.target.has_name = 1;
    std::vector<uint8_t> bytes(quill_nyx_lock_encode_ext(&lock, nullptr, 0, nullptr, nullptr));
    quill_nyx_lock_encode_ext(&lock, bytes.data(), bytes.size(), nullptr, nullptr);

    quill_nyx_lock received;
    const auto take = [](uint64_t size, void *) { return std::malloc(size); };
    const auto give = [](void *block, void *) { std::free(block); };
    if (quill_nyx_lock_decode_ext(&received, bytes.data(), bytes.size(), take, nullptr) != 0) {
        return 1;
    }
    std::cout << bytes.size() << " bytes lock " << received.target.name << "; catalogue "
              << orca_msg_rec_yang_info.component << "; session " << (session_is_found() ? "found" : "lost") << '\n';
    quill_nyx_lock_free_ext(&received, give, nullptr);
}
