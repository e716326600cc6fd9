#!/usr/bin/env bash
# usage: build_with_pkg_config.sh <library folder> <compiler> <source> <program>
set -euo pipefail
libraries=$1 compiler=$2 source=$3 program=$4
export PKG_CONFIG_PATH=$libraries/pkgconfig
read -ra flags <<<"$(pkg-config --cflags insolate)"
read -ra links <<<"$(pkg-config --libs insolate)"
"$compiler" "-std=c++$(pkg-config --variable=cxx_standard insolate)" "${flags[@]}" "$source" -o "$program" "${links[@]}"
LD_LIBRARY_PATH=$libraries "$program"

# The host classes are C++17; the rest says in one error what it needs.
include17() {
  "$compiler" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -x c++ "${flags[@]}" - <<<"#include <insolate/$1>"
}
include17 host_classes.h
if errors=$(include17 insolate.h 2>&1); then
  echo "insolate.h was taken as C++17"
  exit 1
fi
if [ "$(grep -c 'error:' <<<"$errors")" != 1 ] || ! grep -q 'needs C++20.*host_classes.h' <<<"$errors"; then
  printf 'insolate.h as C++17 does not say in one error what it needs:\n%s\n' "$errors"
  exit 1
fi
