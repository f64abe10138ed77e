// The two files that are generated from a message file.
#ifndef PROTOC_GEN_QUILL_WRITERS_H
#define PROTOC_GEN_QUILL_WRITERS_H

#include <google/protobuf/io/printer.h>

#include "model.h"

namespace quillgen {

// The records, enumerations and codec prototypes, for C and C++.
void write_header(const message_file &model, google::protobuf::io::Printer &out);

// The codec of every record, as short lists over the rules in src/quill/, and the exported functions.
void write_source(const message_file &model, google::protobuf::io::Printer &out);

// The first comment of both files.
void write_notice(const message_file &model, google::protobuf::io::Printer &out);

}  // namespace quillgen

#endif
