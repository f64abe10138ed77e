#!/bin/sh
# Generating the records and their codec anew changes nothing.
# Usage: regen_test.sh SOURCE_DIR PROTOC PLUGIN SCRATCH_DIR
set -eu
framework=$1/manageability/yang/framework
rm -rf "$4"
mkdir -p "$4"
"$2" -I"$framework/gen" --plugin=protoc-gen-quill="$3" --quill_out="$4" nyx.proto
diff "$framework/include/quill_nyx.h" "$4/quill_nyx.h"
diff "$framework/gen/quill_nyx.cpp" "$4/quill_nyx.cpp"
