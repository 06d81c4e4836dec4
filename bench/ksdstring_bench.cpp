// Dynamic strings beside std::string.
#include <string>
#include <string_view>

#include "ksdstring.h"
#include "ratio.h"

namespace {
constexpr std::string_view piece = "0123456789abcdef";
constexpr int piecesOfMegabyte = 1 << 16;
constexpr int shortTexts = 1000;
constexpr std::string_view words[] = {"open(", "/usr/share/doc/tmqkci/README", "): ", "No such file or directory"};

void megabyteOurs(benchmark::State& state) {
    for (auto _ : state) {
        KsDString text;
        KsDStringInit(&text);
        for (int i = 0; i < piecesOfMegabyte; ++i)
            KsDStringAppend(&text, piece.data(), static_cast<long>(piece.size()));
        benchmark::DoNotOptimize(text.string);
        KsDStringFree(&text);
    }
}

void megabyteStandard(benchmark::State& state) {
    for (auto _ : state) {
        std::string text;
        for (int i = 0; i < piecesOfMegabyte; ++i)
            text.append(piece.data(), piece.size());
        benchmark::DoNotOptimize(text.data());
    }
}

void shortOurs(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < shortTexts; ++i) {
            KsDString text;
            KsDStringInit(&text);
            for (const std::string_view word : words)
                KsDStringAppend(&text, word.data(), static_cast<long>(word.size()));
            benchmark::DoNotOptimize(text.string);
            KsDStringFree(&text);
        }
    }
}

void shortStandard(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < shortTexts; ++i) {
            std::string text;
            for (const std::string_view word : words)
                text.append(word.data(), word.size());
            benchmark::DoNotOptimize(text.data());
        }
    }
}

BENCHMARK(megabyteOurs)->Name("string, 1 MB in 16-byte pieces/ours");
BENCHMARK(megabyteStandard)->Name("string, 1 MB in 16-byte pieces/std::string");
BENCHMARK(shortOurs)->Name("string, 1000 short texts/ours");
BENCHMARK(shortStandard)->Name("string, 1000 short texts/std::string");
} // namespace

RATIO_MAIN({"string, 1 MB in 16-byte pieces", "std::string", 1.0}, {"string, 1000 short texts", "std::string", 0.5})
