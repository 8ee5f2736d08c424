// Decoding of values full of numeric character references: the linear decoder
// and, in the same run, the former whole-text replacement algorithm, which
// takes seconds here and so runs once.
//   ./bench/bench_entities

#include "entitydecoder_p.h"
#include "simplexmlparser.h"

#include <benchmark/benchmark.h>

namespace {

constexpr int kReferences = 200000;

// 1 MB: "&#65;" 200,000 times. "A" is a hexadecimal digit, which is what sent
// the former algorithm into one whole-text replacement per reference.
const QString& repeatedReference()
{
    static const QString value = QStringLiteral("&#65;").repeated(kReferences);
    return value;
}

// 200,000 references over every code unit from 1 to 65,535, decimal and
// hexadecimal in turn.
const QString& everyCodeUnit()
{
    static const QString value = [] {
        QString s;
        s.reserve(kReferences * 9);
        for (int i = 0; i < kReferences; ++i) {
            const int unit = 1 + i % 65535;
            s += i % 2 ? QStringLiteral("&#x%1;").arg(unit, 0, 16) : QStringLiteral("&#%1;").arg(unit);
        }
        return s;
    }();
    return value;
}

void decodeLinear(benchmark::State& state, const QString& (*input)())
{
    const QString& value = input();
    for (auto _ : state) {
        const QString decoded = SimpleXmlParser::decodeEntities(value);
        benchmark::DoNotOptimize(decoded.constData());
    }
    state.SetItemsProcessed(state.iterations() * kReferences);
}

void decodeFormer(benchmark::State& state, const QString& (*input)())
{
    const QString& value = input();
    for (auto _ : state) {
        const QString decoded = EntityDecoder::reference::decode(value, &value);
        benchmark::DoNotOptimize(decoded.constData());
    }
    state.SetItemsProcessed(state.iterations() * kReferences);
}

} // namespace

BENCHMARK_CAPTURE(decodeLinear, repeated_65, repeatedReference)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decodeFormer, repeated_65, repeatedReference)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(decodeLinear, every_code_unit, everyCodeUnit)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(decodeFormer, every_code_unit, everyCodeUnit)->Unit(benchmark::kMillisecond)->Iterations(1);

BENCHMARK_MAIN();
