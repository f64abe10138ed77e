// The codecs that are compared. Each adds its operations on a message and, while doing so, checks that its own encoding
// of the message has the very bytes of the sample.
#ifndef NYX_BENCH_CODECS_H
#define NYX_BENCH_CODECS_H

#include <vector>

#include "operation.h"
#include "samples.h"

void add_libnyx(const sample &message, std::vector<operation> &operations);
void add_protobuf(const sample &message, std::vector<operation> &operations);
void add_protobuf_c(const sample &message, std::vector<operation> &operations);
void add_nanopb(const sample &message, std::vector<operation> &operations);

#endif
