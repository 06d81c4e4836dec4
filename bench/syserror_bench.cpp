// System-error records beside snprintf and std::error_code.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "ratio.h"
#include "syserror.h"

namespace {
const char* const name = "/usr/share/doc/tmqkci/README";

struct Record {
    int code;
    char text[SYSERROR_MAX_ERROR];
};

void setOurs(benchmark::State& state) {
    static SysErrorSType err;
    for (auto _ : state) {
        SysErrorSet(&err, ENOENT, "open(%s)", name);
        benchmark::DoNotOptimize(err.errMsg);
    }
}

void setStandard(benchmark::State& state) {
    static Record record;
    for (auto _ : state) {
        const std::error_code code(ENOENT, std::generic_category());
        record.code = code.value();
        snprintf(record.text, sizeof record.text, "open(%s): %s", name, code.message().c_str());
        benchmark::DoNotOptimize(record.text);
    }
}

BENCHMARK(setOurs)->Name("SysErrorSet/ours");
BENCHMARK(setStandard)->Name("SysErrorSet/snprintf+error_code");
} // namespace

RATIO_MAIN({"SysErrorSet", "snprintf+error_code", 0.9})
