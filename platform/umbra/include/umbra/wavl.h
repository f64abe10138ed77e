/**
 * @file wavl.h
 * An intrusive, rank-balanced search tree (a weak AVL tree: Haeupler, Sen and Tarjan, "Rank-balanced trees", 2015).
 *
 * The caller embeds a node in whatever is to be found again, and owns it: the tree allocates nothing and cannot run out
 * of memory. Searching, inserting and deleting take O(log n) comparisons, and no operation rotates more than twice.
 * A tree that nothing was deleted from is an AVL tree; deletions never make it higher than 2 log2 n.
 *
 * @code
 * struct session { umbra_wavl_node node; uint32_t id; };
 *
 * static int by_id(umbra_wavl_link *a, umbra_wavl_link *b) {   // the node is the first member: so is its address
 *     uint32_t x = ((struct session *)umbra_wavl_normalize(a, 0))->id;
 *     uint32_t y = ((struct session *)umbra_wavl_normalize(b, 0))->id;
 *     return x > y ? UMBRA_WAVL_GREATER : x < y ? UMBRA_WAVL_LESS : UMBRA_WAVL_EQUAL;
 * }
 *
 * umbra_wavl_tree tree;
 * umbra_wavl_tree_init(&tree, 1, 0, by_id);
 *
 * struct session *session = malloc(sizeof *session);
 * session->id = 7;
 * umbra_wavl_init(&session->node, 1);
 * if (umbra_wavl_insert(&tree, &session->node) == NULL) { free(session); }    // there is one with this id
 *
 * struct session key = {.id = 7};
 * umbra_wavl_init(&key.node, 1);
 * struct session *found = (struct session *)umbra_wavl_search(&tree, &key.node, 0);
 *
 * for (umbra_wavl_node *at = umbra_wavl_get_first(&tree, 0); at != NULL; at = umbra_wavl_next(at, 0)) { ... }
 *
 * umbra_wavl_node *first;
 * while ((first = umbra_wavl_get_first(&tree, 0)) != NULL) { free(umbra_wavl_delete(&tree, first)); }
 * umbra_wavl_tree_finish(&tree);
 * @endcode
 *
 * @section umbra_wavl_indexes Several orders
 *
 * A tree keeps its nodes in up to four orders at once, its indexes. A node has one link for each of them: the first is
 * in umbra_wavl_node, the others follow it directly:
 *
 * @code
 * struct user { umbra_wavl_node node; umbra_wavl_link more[1]; uint32_t id; const char *name; };   // two indexes
 *
 * static int compare(umbra_wavl_link *a, umbra_wavl_link *b) {
 *     struct user *x = (struct user *)umbra_wavl_link_node(a), *y = (struct user *)umbra_wavl_link_node(b);
 *     return umbra_wavl_link_index(a) == 0 ? compare_ids(x, y) : compare_names(x, y);
 * }
 * @endcode
 *
 * All of a node's links are in their orders, or none is. No two nodes are equal in any order: an order that is to hold
 * several equal nodes must tell them apart, if need be by their addresses.
 *
 * @section umbra_wavl_misuse What is noticed, and what cannot be
 *
 * Every tree draws a number when it is initialised, and a node remembers the number of the tree that it is in. So these
 * are refused: a node inserted twice, also into two trees; a node deleted that is in no tree or in another; a node
 * with another number of links than the tree has indexes; a tree that is zero-filled or was finished. What a caller has
 * to get right: a node is initialised before its first use and never while it is in a tree, its memory is not released
 * while it is there, what it is compared by does not change, and a tree is not initialised again while nodes are in it
 * that are still needed. A tree may be moved in memory, but not be used in two copies.
 *
 * @section umbra_wavl_threads Threads
 *
 * Nothing is locked. Trees are independent of each other. One tree can be searched and walked by several threads at
 * once while none changes it.
 */
#ifndef UMBRA_WAVL_H
#define UMBRA_WAVL_H

#include <stddef.h>
#include <stdint.h>

#include "rcode/rcode.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** What a comparison returns: how its first link stands to its second. Anything else counts as equal. */
enum {
    UMBRA_WAVL_GREATER = 0,
    UMBRA_WAVL_LESS = 1,
    UMBRA_WAVL_EQUAL = 2,
};

/** The most indexes that a tree can have. */
enum { UMBRA_WAVL_MAX_INDEXES = 4 };

typedef struct umbra_wavl_link umbra_wavl_link;
typedef struct umbra_wavl_node umbra_wavl_node;
typedef struct umbra_wavl_tree umbra_wavl_tree;

/**
 * Compares two links of the same index. In a search the first link is that of the key, in an insertion that of the new
 * node; a node is never compared with itself, except when it is searched for with itself. It must be a strict order of
 * the nodes and leave the tree alone.
 */
typedef int (*umbra_wavl_compare_fn)(umbra_wavl_link *a, umbra_wavl_link *b);

/** A node's place in one order. Its members belong to the tree; the functions below read them. */
struct umbra_wavl_link {
    uintptr_t child[2]; /**< [UMBRA_WAVL_GREATER] and [UMBRA_WAVL_LESS]; bit 0: the child's rank is two below */
    uintptr_t parent;   /**< null for the root; bits 0 and 1: the link's index */
};

/** A node with its first link. The links of further indexes follow directly. */
struct umbra_wavl_node {
    uint64_t owner;           /**< the number of the node's tree, 0 for none, and how many links the node has */
    umbra_wavl_link links[1]; /**< the first of them */
};

/** A tree, 64 bytes. Its members belong to the tree. */
struct umbra_wavl_tree {
    umbra_wavl_compare_fn compare;           /**< orders the nodes, in every index */
    uint64_t node_count;                     /**< nodes in the tree */
    uint64_t number;                         /**< what its nodes hold as their owner; 0: not initialised */
    uint32_t index_count;                    /**< links of each node */
    uint32_t reserved;                       /**< not used */
    uintptr_t roots[UMBRA_WAVL_MAX_INDEXES]; /**< one for each index */
};

/**
 * Makes @p tree an empty tree. What the memory held before is forgotten.
 *
 * @param index_count 1 to UMBRA_WAVL_MAX_INDEXES
 * @param flags 0
 * @return 0, or EINVAL: @p tree or @p compare is null, or a number is not as above; @p tree is left as it was then
 */
rcode umbra_wavl_tree_init(umbra_wavl_tree *tree, uint32_t index_count, uint32_t flags, umbra_wavl_compare_fn compare);

/**
 * Ends @p tree: until it is initialised again every operation on it gives null or EINVAL. Nodes that are still in it
 * are forgotten, without being touched; they need umbra_wavl_init before they are used again.
 *
 * @return 0; EBUSY: it has ended, but there were nodes in it; EINVAL: null, or not a tree, nothing is done
 */
rcode umbra_wavl_tree_finish(umbra_wavl_tree *tree);

/**
 * Readies a node with @p index_count links for insertion or as the key of a search. A number of links that no tree can
 * have, 0 or more than UMBRA_WAVL_MAX_INDEXES, gives a node that every tree refuses. Null does nothing.
 */
void umbra_wavl_init(umbra_wavl_node *node, uint32_t index_count);

/**
 * Puts @p node into all orders of @p tree. From then on, until it is deleted, it must stay where it is.
 *
 * @return @p node; null, and the tree and the node are as before: a node of the tree is equal to it in one of the
 * orders, it is in a tree already, it was not initialised with as many links as the tree has indexes, the tree was
 * not initialised, or an argument is null
 */
umbra_wavl_node *umbra_wavl_insert(umbra_wavl_tree *tree, umbra_wavl_node *node);

/**
 * Takes @p node out of all orders of @p tree, without comparing anything. It can be inserted again at once.
 *
 * @return @p node; null, and nothing has changed: it is not in this tree, or an argument is null
 */
umbra_wavl_node *umbra_wavl_delete(umbra_wavl_tree *tree, umbra_wavl_node *node);

/**
 * Finds the node that is equal to @p key in the order @p index. The key is a node that was initialised with more than
 * @p index links; it need not be in a tree.
 *
 * @return the node of the tree; null: there is none, the tree has no such index, or an argument is unusable
 */
umbra_wavl_node *umbra_wavl_search(umbra_wavl_tree *tree, umbra_wavl_node *key, uint32_t index);

/** @return the lowest node in the order @p index; null: the tree is empty or unusable or has no such index */
umbra_wavl_node *umbra_wavl_get_first(umbra_wavl_tree *tree, uint32_t index);

/** @return the highest node in the order @p index; null: the tree is empty or unusable or has no such index */
umbra_wavl_node *umbra_wavl_get_last(umbra_wavl_tree *tree, uint32_t index);

/** @return the node behind @p node in the order @p index; null: it is the last, in no tree, null, or no such index */
umbra_wavl_node *umbra_wavl_next(umbra_wavl_node *node, uint32_t index);

/** @return the node before @p node in the order @p index; null: it is the first, in no tree, null, or no such index */
umbra_wavl_node *umbra_wavl_prev(umbra_wavl_node *node, uint32_t index);

/** @return how many nodes are in @p tree; 0 for null and for a tree that is not initialised */
uint64_t umbra_wavl_count(const umbra_wavl_tree *tree);

/** @return the node that @p link is the link of index @p index of; null: the link is null or of another index */
umbra_wavl_node *umbra_wavl_normalize(umbra_wavl_link *link, uint32_t index);

/**
 * Looks over the whole tree: are the nodes in order, are they connected properly, do the ranks keep their rule, is the
 * count right? It compares each pair of neighbours: nodes that were changed while they were in the tree show here.
 *
 * @return 0; EUCLEAN: something is wrong; EINVAL: null, or not a tree
 */
rcode umbra_wavl_check(const umbra_wavl_tree *tree);

#pragma GCC visibility pop

#ifdef __cplusplus
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"  // C has no other
#endif

/** @return the index that @p link, not null, belongs to */
static inline uint32_t umbra_wavl_link_index(const umbra_wavl_link *link) {
    return (uint32_t)(link->parent & (UMBRA_WAVL_MAX_INDEXES - 1));
}

/** @return the node of @p link, which is not null and may be of any index */
static inline umbra_wavl_node *umbra_wavl_link_node(umbra_wavl_link *link) {
    return (umbra_wavl_node *)((uintptr_t)link - offsetof(umbra_wavl_node, links) -
                               umbra_wavl_link_index(link) * sizeof(umbra_wavl_link));
}

/** @return the link of @p node, not null and with more than @p index links, for that index */
static inline umbra_wavl_link *umbra_wavl_node_link(umbra_wavl_node *node, uint32_t index) {
    return (umbra_wavl_link *)((uintptr_t)node + offsetof(umbra_wavl_node, links) + index * sizeof(umbra_wavl_link));
}

/** @return the top of the order @p index of @p tree, or null; together with the next three it shows the tree's shape */
static inline umbra_wavl_link *umbra_wavl_tree_root(const umbra_wavl_tree *tree, uint32_t index) {
    return (umbra_wavl_link *)tree->roots[index];
}

/** @return what is above @p link, or null */
static inline umbra_wavl_link *umbra_wavl_link_parent(const umbra_wavl_link *link) {
    return (umbra_wavl_link *)(link->parent & ~(uintptr_t)(UMBRA_WAVL_MAX_INDEXES - 1));
}

/** @return the child of @p link on the side UMBRA_WAVL_LESS or UMBRA_WAVL_GREATER, or null */
static inline umbra_wavl_link *umbra_wavl_link_child(const umbra_wavl_link *link, uint32_t side) {
    return (umbra_wavl_link *)(link->child[side] & ~(uintptr_t)1);
}

/** @return how far the child's rank is below that of @p link, 1 or 2; the rank of a null child is -1 */
static inline uint32_t umbra_wavl_link_rank_difference(const umbra_wavl_link *link, uint32_t side) {
    return 1 + (uint32_t)(link->child[side] & 1);
}

#ifdef __cplusplus
#pragma GCC diagnostic pop
}
#endif

#endif
