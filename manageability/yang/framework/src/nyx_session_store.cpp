// Client sessions, under random ids in a balanced tree.
#include "nyx_session_store.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>

#include "nyx_log.h"
#include "safestr/safestr.h"
#include "umbra/named_alloc.h"

namespace {

constexpr int candidate_max = 15;

struct session_tree_node {
    umbra_wavl_node node;
    nyx_session_ctx *session;
};

session_tree_node *tree_node(umbra_wavl_node *node) {
    return reinterpret_cast<session_tree_node *>(node);
}

const nyx_session_ctx *session_of(umbra_wavl_link *link) {
    const session_tree_node *const node = tree_node(umbra_wavl_normalize(link, 0));
    return node == nullptr ? nullptr : node->session;
}

int session_node_compare(umbra_wavl_link *a, umbra_wavl_link *b) {
    enum { greater, less, equal };
    const nyx_session_ctx *const first = session_of(a);
    const nyx_session_ctx *const second = session_of(b);
    if (first == nullptr || second == nullptr || first->session_id == second->session_id) {
        return equal;
    }
    return first->session_id > second->session_id ? greater : less;
}

session_tree_node *session_node_lookup(nyx_api_ctx *nyx_ctx, std::uint32_t session_id) {
    if (session_id == 0) {
        return nullptr;
    }
    nyx_session_ctx wanted;
    wanted.session_id = session_id;
    session_tree_node key;
    umbra_wavl_init(&key.node, 1);
    key.session = &wanted;
    return tree_node(umbra_wavl_search(&nyx_ctx->session_tree, &key.node, 0));
}

// Marsaglia's xorshift128.
std::uint32_t session_id_next(std::uint32_t (&state)[4]) {
    auto &[x, y, z, w] = state;
    const std::uint32_t t = x ^ (x << 11);
    x = y;
    y = z;
    z = w;
    w = w ^ (w >> 19) ^ t ^ (t >> 8);
    return w;
}

std::uint32_t draw32() {
    return static_cast<std::uint32_t>(lrand48());
}

// Gives the session an id that no live session has. False: none of the candidates was free.
bool assign_id(nyx_api_ctx *nyx_ctx, nyx_session_ctx *session) {
    for (int drawn = 0; drawn < candidate_max; ++drawn) {
        session->session_id = draw32() ^ session_id_next(nyx_ctx->session_id_state);
        if (session->session_id != 0 && session_node_lookup(nyx_ctx, session->session_id) == nullptr) {
            return true;
        }
        NYX_LOG(TRC, "nyx_session_create", nyx_ctx, "generated sesssion-id=%d is invalid, generating new",
                static_cast<std::int32_t>(session->session_id));
    }
    return false;
}

void remove_node(nyx_api_ctx *nyx_ctx, session_tree_node *node, std::uint32_t session_id) {
    if (umbra_wavl_delete(&nyx_ctx->session_tree, &node->node) != nullptr) {
        umbra_named_free(node);
        return;
    }
    // A node that the tree still holds must stay.
    NYX_LOG(TRC, "nyx_session_destroy", nyx_ctx, "session-id=%d cannot be released from the session tree",
            static_cast<std::int32_t>(session_id));
}

void release_if_any(void *block) {
    if (block != nullptr) {
        umbra_named_free(block);
    }
}

}  // namespace

rcode nyx_session_store_init(nyx_api_ctx *nyx_ctx) {
    NYX_ASSERT_NOT_NULL(nyx_ctx);
    srand48(std::time(nullptr));
    for (std::uint32_t &word : nyx_ctx->session_id_state) {
        word = draw32();
    }
    constexpr rsize_t tree_size = sizeof nyx_ctx->session_tree;
    const errno_t rc = memset_s(&nyx_ctx->session_tree, tree_size, 0, tree_size);
    if (rc != 0) {
        NYX_LOG(ERR, "nyx_session_store_init", nyx_ctx, "mem init failure: %s", rcode_strerror(rc));
        return rc;
    }
    return umbra_wavl_tree_init(&nyx_ctx->session_tree, 1, 0, session_node_compare);
}

rcode nyx_session_store_cleanup(nyx_api_ctx *nyx_ctx) {
    NYX_ASSERT_NOT_NULL(nyx_ctx);
    const session_tree_node *refused = nullptr;
    while (session_tree_node *const node = tree_node(umbra_wavl_get_first(&nyx_ctx->session_tree, 0))) {
        release_if_any(node->session);
        if (umbra_wavl_delete(&nyx_ctx->session_tree, &node->node) != nullptr) {
            umbra_named_free(node);
            continue;
        }
        if (refused == node) {
            break;  // a tree that never gives up its first node would keep us here forever
        }
        node->session = nullptr;  // released, once
        refused = node;
    }
    return umbra_wavl_tree_finish(&nyx_ctx->session_tree);
}

nyx_session_ctx *nyx_session_create(nyx_api_ctx *nyx_ctx) {
    NYX_ASSERT_NOT_NULL(nyx_ctx);
    auto *const session = static_cast<nyx_session_ctx *>(
        umbra_named_calloc_(1, sizeof(nyx_session_ctx), "NYX session context (nyx_session_create)"));
    if (session == nullptr) {
        NYX_LOG(ERR, "nyx_session_create", nyx_ctx, "NYX session context allocation failed");
        return nullptr;
    }
    if (!assign_id(nyx_ctx, session)) {
        umbra_named_free(session);
        NYX_LOG(ERR, "nyx_session_create", nyx_ctx, "failed to generate unused session-id");
        return nullptr;
    }
    NYX_LOG(DBG, "nyx_session_create", nyx_ctx, "assigned session-id=%u", session->session_id);
    auto *const node = static_cast<session_tree_node *>(
        umbra_named_malloc_(sizeof(session_tree_node), "WAVL tree node (nyx_session_create)"));
    if (node == nullptr) {
        umbra_named_free(session);
        NYX_LOG(ERR, "nyx_session_create", nyx_ctx, "NYX session tree node allocation failed");
        return nullptr;
    }
    umbra_wavl_init(&node->node, 1);
    node->session = session;
    if (umbra_wavl_insert(&nyx_ctx->session_tree, &node->node) == nullptr) {
        umbra_named_free(session);
        umbra_named_free(node);
        NYX_LOG(ERR, "nyx_session_create", nyx_ctx, "NYX session tree node insertion failed");
        return nullptr;
    }
    return session;
}

nyx_session_ctx *nyx_session_find(nyx_api_ctx *nyx_ctx, std::uint32_t session_id) {
    NYX_ASSERT_NOT_NULL(nyx_ctx);
    const session_tree_node *const node = session_node_lookup(nyx_ctx, session_id);
    return node == nullptr ? nullptr : node->session;
}

void nyx_session_destroy(nyx_api_ctx *nyx_ctx, nyx_session_ctx *session) {
    if (session == nullptr) {
        return;
    }
    NYX_ASSERT_NOT_NULL(nyx_ctx);
    session_tree_node *const node = session_node_lookup(nyx_ctx, session->session_id);
    if (node == nullptr) {
        NYX_LOG(DBG, "nyx_session_destroy", nyx_ctx, "session-id=%d not found, cannot be destroyed",
                static_cast<std::int32_t>(session->session_id));
    } else {
        remove_node(nyx_ctx, node, session->session_id);
        release_if_any(session->session_owned_a);
        release_if_any(session->session_owned_b);
    }
    umbra_named_free(session);
}
