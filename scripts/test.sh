#!/usr/bin/env bash
# Installs what is missing, builds with the sanitizers and runs every test.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

install_packages "${build_packages[@]}" "${test_packages[@]}" "${mingw_packages[@]}"
build test
cd "$root"
ctest --preset test "$@"
