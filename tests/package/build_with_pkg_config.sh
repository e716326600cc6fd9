#!/usr/bin/env bash
# usage: build_with_pkg_config.sh <library folder> <compiler> <source> <program>
set -euo pipefail
libraries=$1 compiler=$2 source=$3 program=$4
export PKG_CONFIG_PATH=$libraries/pkgconfig
# shellcheck disable=SC2046
"$compiler" -std=c++20 "$source" -o "$program" $(pkg-config --cflags --libs insolate)
LD_LIBRARY_PATH=$libraries "$program"
