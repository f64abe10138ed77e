#!/bin/sh
# Installs the build into a scratch prefix and uses it as a stranger would: a C11 and a C++20 program, once through
# pkg-config and once through find_package. Usage: install_test.sh BUILD_DIR SCRATCH_DIR
set -eu
build=$1
scratch=$2
here=$(cd "$(dirname "$0")" && pwd)
prefix=$scratch/prefix
flags='-Wall -Wextra -Wpedantic -Werror'
expected='13 bytes lock candidate; catalogue YANG; session found'

rm -rf "$scratch"
mkdir -p "$scratch"
cmake --install "$build" --prefix "$prefix" >"$scratch/install.log"
libdir=$(dirname "$(find "$prefix" -name libnyx.so.1)")

check() {
    got=$(LD_LIBRARY_PATH="$libdir" "$1")
    [ "$got" = "$expected" ] || { echo "$1 printed '$got' instead of '$expected'"; exit 1; }
    echo "ok: $1"
}

PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
# shellcheck disable=SC2046,SC2086
{
    cc -std=c11 $flags "$here/consumer/consumer.c" -o "$scratch/pc_c" $(pkg-config --cflags --libs nyx)
    c++ -std=c++20 $flags "$here/consumer/consumer.cpp" -o "$scratch/pc_cpp" $(pkg-config --cflags --libs nyx)
}
check "$scratch/pc_c"
check "$scratch/pc_cpp"

cmake -G Ninja -S "$here/consumer" -B "$scratch/cmake" -DCMAKE_PREFIX_PATH="$prefix" >"$scratch/configure.log"
cmake --build "$scratch/cmake" >"$scratch/build.log"
check "$scratch/cmake/consumer_c"
check "$scratch/cmake/consumer_cpp"

# Every installed header serves alone, in C11 and in C++20.
for header in "$prefix"/include/*/*.h; do
    cc -std=c11 $flags -I"$prefix/include" -x c -fsyntax-only "$header"
    c++ -std=c++20 $flags -I"$prefix/include" -x c++ -fsyntax-only "$header"
    echo "ok: ${header#"$prefix/include/"} alone"
done
