// Trace files coming and going: how one appears whole under its name, and how a name is taken away from it.
#ifndef SKEIN_FILE_H
#define SKEIN_FILE_H

#include "directory.h"
#include "format.h"
#include "ring.h"

namespace skein {

// Maps the file of the name, making it with `sizes` if there is none. Returns 0 or an errno.
int attach_or_create(const char *root, const char *name, geometry sizes, ring &out);

// Maps the file that has taken the place of a removed one; ENOENT: there is none.
int attach_successor(const char *root, const char *name, ring &out);

int remove_file(const char *root, const char *name);

// For a forked child, where none but the calling thread exists.
void forget_locks();

}  // namespace skein

#endif
