// The main() of the benchmarks that run Taskrack's own code: its sources and store need a Qt
// event loop, which Google Benchmark's own main does not make.
#include <QCoreApplication>
#include <QLoggingCategory>
#include <benchmark/benchmark.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    // Fixed-text progress lines would interleave with the figures.
    QLoggingCategory::setFilterRules(QStringLiteral("com.quillon.Taskrack.*.info=false"));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
