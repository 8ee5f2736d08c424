// The switchboard's extension search over 10,000 colleagues: one keystroke
// refilters the model behind a view, the way the panel does at every key.
// The figure to watch is the time per keystroke: well under the 50 ms or so
// at which typing feels held up.
//   QT_QPA_PLATFORM=offscreen ./bench/bench_switchboard_filter

#include "extensionfilter.h"
#include "extensionmodel.h"

#include <QApplication>
#include <QTreeView>

#include <benchmark/benchmark.h>

namespace {

const int Colleagues = 10000;

QList<PhoneBook> extensionBook()
{
    static const char* const first[]
        = {"Anna", "Bruno", "Chiara", "David", "Elena", "Farid", "Greta", "Hiro", "Ines", "Jonas"};
    static const char* const last[] = {"Rossi",  "Keller",    "Lambert", "Okafor", "Novak",
                                       "Haddad", "Lindqvist", "Tanaka",  "Moreau", "Berg"};
    PhoneBook book;
    book.type = PHONEBOOK::PB_EXTEN;
    for (int i = 0; i < Colleagues; ++i) {
        PhoneBookEntry e;
        e.displayName = QStringLiteral("%1 %2 %3")
                            .arg(QLatin1String(first[i % 10]), QLatin1String(last[(i / 10) % 10]))
                            .arg(i / 100);
        e.extenNumber = QString::number(1000 + i);
        book.entries.append(e);
    }
    return {book};
}

struct Panel
{
    Panel()
        : filter(&model)
    {
        model.setBooks(extensionBook());
        model.setLive(true);
        view.setUniformRowHeights(true);
        view.setModel(&filter);
        view.setSortingEnabled(true);
        view.resize(400, 600);
    }
    ExtensionModel model;
    ExtensionFilter filter;
    QTreeView view;
};

// Typing "kel" one key after the other, then clearing the field.
void BM_TypeAndClear(benchmark::State& state)
{
    Panel panel;
    const QStringList keys {QStringLiteral("k"), QStringLiteral("ke"), QStringLiteral("kel"), QString()};
    for (auto _ : state) {
        for (const QString& text : keys) {
            panel.filter.setFilterFixedString(text);
            QCoreApplication::processEvents();
        }
    }
    // Seconds per keystroke, printed with its unit (e.g. "5ms").
    state.counters["per_keystroke"] = benchmark::Counter(
        double(state.iterations() * keys.size()), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    panel.filter.setFilterFixedString(QStringLiteral("kel"));
    state.counters["rows_after_kel"] = panel.filter.rowCount();
}
BENCHMARK(BM_TypeAndClear)->Unit(benchmark::kMillisecond);

// A lamp changes while a search is on: one row is filtered again.
void BM_StatusUpdateWhileFiltered(benchmark::State& state)
{
    Panel panel;
    panel.filter.setFilterFixedString(QStringLiteral("kel"));
    BuddyStatus status;
    status.exten = QStringLiteral("1010");
    int n = 0;
    for (auto _ : state) {
        status.blfStatus = (++n % 2) ? TELVIX::BlfInUse : TELVIX::BlfIdle;
        panel.model.setStatus(status);
        QCoreApplication::processEvents();
    }
}
BENCHMARK(BM_StatusUpdateWhileFiltered)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
