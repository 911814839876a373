#!/usr/bin/env bash
# Installs what the build needs when it is missing. A fresh machine already has the compilers,
# CMake, GoogleTest and Google Benchmark; the optional comparison libraries of the benchmarks
# (boost::property_tree, muparser) are installed only when asked for with --bench.
set -euo pipefail
need=()
command -v cmake >/dev/null || need+=(cmake)
command -v g++ >/dev/null || need+=(g++)
[ -d /usr/include/gtest ] || need+=(libgtest-dev libgmock-dev)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
if [ "${1:-}" = "--bench" ]; then
    [ -d /usr/include/boost/property_tree ] || need+=(libboost-dev)
    [ -f /usr/include/muParser.h ] || [ -f /usr/include/muparser/muParser.h ] || need+=(libmuparser-dev)
fi
if [ "${1:-}" = "--fuzz" ]; then
    command -v clang++ >/dev/null || need+=(clang)
    ls /usr/lib/llvm-14/lib/clang/14*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1 || need+=(libclang-rt-14-dev)
fi
if [ ${#need[@]} -gt 0 ]; then
    echo "installing: ${need[*]}"
    SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
    $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi
