// The benchmark suite's entry point: the workload is read before anything is measured, and the
// suite refuses to run without it (measuring an empty tree would report numbers for nothing).

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "bench_support.h"

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    std::string message;
    if (!bench_load_workload(message)) {
        std::fprintf(stderr, "kappar_bench: %s\n", message.c_str());
        return 2;
    }
    std::fprintf(stderr, "kappar_bench: workload %s (%zu parameters)\n",
                 bench_workload_path().c_str(), bench_params().size());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
