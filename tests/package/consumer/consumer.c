#include <nyx_session_store.h>
#include <orca_msg_rec.h>
#include <quill_nyx.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void *take(uint64_t size, void *ctx) {
    (void)ctx;
    return malloc(size);
}

static void give(void *block, void *ctx) {
    (void)ctx;
    free(block);
}

static int session_is_found(void) {
    static nyx_api_ctx api;
    nyx_session_ctx *session;
    int found;

    if (nyx_session_store_init(&api) != 0) {
        return 0;
    }
    session = nyx_session_create(&api);
    found = session != NULL && nyx_session_find(&api, session->session_id) == session;
    nyx_session_destroy(&api, session);
    return nyx_session_store_cleanup(&api) == 0 && found;
}

int main(void) {
    static char name[] = "candidate";
    quill_nyx_lock lock;
    quill_nyx_lock received;
    uint8_t bytes[32];
    uint64_t size;

    memset(&lock, 0, sizeof lock);
    lock.target.name = name;
    lock.target.has_name = 1;
    size = quill_nyx_lock_encode_ext(&lock, bytes, sizeof bytes, NULL, NULL);
    if (quill_nyx_lock_decode_ext(&received, bytes, size, take, NULL) != 0) {
        return 1;
    }
    printf("%u bytes lock %s; catalogue %s; session %s\n", (unsigned)size, received.target.name,
           orca_msg_rec_yang_info_getfn()->component, session_is_found() ? "found" : "lost");
    quill_nyx_lock_free_ext(&received, give, NULL);
    return 0;
}
