// Blocks of data trees, and the codec's callbacks on the named-allocation service.
#include <cstdint>
#include <cstring>

#include "nyx_api_common.h"
#include "nyx_log.h"
#include "umbra/named_alloc.h"

quill_nyx_datatree *nyx_gpb_datatree_create(nyx_api_ctx *ctx, std::uint32_t count) {
    const std::uint64_t size = count * std::uint64_t{sizeof(quill_nyx_datatree)};
    void *const records = umbra_named_malloc_(size, "GPB datatree (nyx_req_datatree_create)");
    if (records == nullptr) {
        NYX_LOG(ERR, "nyx_gpb_datatree_create", ctx, "NYX datatree allocation failed");
        return nullptr;
    }
    std::memset(records, 0, size);
    return static_cast<quill_nyx_datatree *>(records);
}

void *nyx_gpb_alloc(std::uint64_t size, void * /*alloc_ctx*/) {
    return umbra_named_calloc_(1, size, "NYX GPB");
}

void nyx_gpb_free(void *block, void * /*free_ctx*/) {
    if (block != nullptr) {
        umbra_named_free(block);
    }
}
