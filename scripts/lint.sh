#!/usr/bin/env bash
# Looks at the code without running it: formatting, shell scripts, a build with Clang and Clazy in
# which a warning is an error, and Clang-Tidy. Ends with 0 when nothing is found.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

tree=$root/build/lint
# Loops over what a function has just returned detach nothing, and properties that only style sheets
# read need not tell of changes.
export CLAZY_CHECKS=level1,no-range-loop-detach,no-qproperty-without-notify

install_packages "${build_packages[@]}" "${lint_packages[@]}"
cd "$root"
printf 'Formatting and scripts\n'
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run --Werror
git ls-files -z '*.sh' '.ci/run' | xargs -0 shellcheck
printf 'Clang and Clazy\n'
# File by file, so that each has to include what it needs.
cmake -S . -B "$tree" -DBREKKA_UNITY=OFF -DCMAKE_CXX_COMPILER=clazy -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 \
    -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DBREKKA_WERROR=ON -DBREKKA_BENCH=ON >/dev/null
cmake --build "$tree" -j "$(nproc)"
printf 'Clang-Tidy\n'
git ls-files -z '*.cpp' ':!*/windows/*' | xargs -0 -n 4 -P "$(nproc)" clang-tidy -p "$tree" --quiet 2>"$tree/tidy.log" ||
    fail 'Clang-Tidy found something'
printf 'Nothing found.\n'
