#pragma once

// The JSON fixtures of one folder as QtTest rows: each file maps a name to
// rows, here of [arguments..., expected result] given to the function of
// that name.
#include <QtTest>

#include <functional>

using Args = QJsonArray;
using Function = std::function<QJsonValue(const Args&)>;

inline QString compact(const QJsonValue& v)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray {v}).toJson(QJsonDocument::Compact)).mid(1).chopped(1);
}

// Every name of every *.json file in the folder, with what it maps to.
inline QList<QPair<QString, QJsonValue>> fixtureEntries(const QString& folder)
{
    QList<QPair<QString, QJsonValue>> out;
    const QDir dir(QStringLiteral(TELVIX_TEST_FIXTURES "/") + folder);
    for (const QString& name : dir.entryList({"*.json"})) {
        QFile file(dir.filePath(name));
        const QJsonObject all = file.open(QIODevice::ReadOnly)
            ? QJsonDocument::fromJson(file.readAll()).object()
            : QJsonObject();
        if (all.isEmpty())
            qFatal("no fixtures in %s", qPrintable(file.fileName()));
        for (auto it = all.begin(); it != all.end(); ++it)
            out.append({it.key(), it.value()});
    }
    return out;
}

inline void addFunctionRows(const QString& folder)
{
    QTest::addColumn<QString>("function");
    QTest::addColumn<Args>("args");
    QTest::addColumn<QJsonValue>("expected");
    for (const auto& entry : fixtureEntries(folder)) {
        const QJsonArray rows = entry.second.toArray();
        for (int i = 0; i < rows.size(); ++i) {
            Args args = rows.at(i).toArray();
            const QJsonValue expected = args.takeAt(args.size() - 1);
            QTest::addRow("%s %d: %s", qPrintable(entry.first), i, qPrintable(compact(args).left(60)))
                << entry.first << args << expected;
        }
    }
}

inline void checkFunctionRow(const QHash<QString, Function>& all)
{
    QFETCH(QString, function);
    QFETCH(Args, args);
    QFETCH(QJsonValue, expected);
    QVERIFY2(all.contains(function), qPrintable(function));
    const QJsonValue actual = all.value(function)(args);
    QVERIFY2(actual == expected,
             qPrintable("\n   actual: " + compact(actual) + "\n expected: " + compact(expected)));
}

// A scenario is a list of steps [operation, arguments..., expected] played on
// one World. An operation that acts runs once; one that looks is retried
// until it gives what is expected or five seconds have passed.
template <typename World> struct Operations
{
    using Op = std::function<QJsonValue(World&, const Args&)>;
    QHash<QString, Op> acts, looks;

    // Why the step failed, or nothing.
    QString play(World& w, Args step) const
    {
        const QString op = step.takeAt(0).toString();
        const QJsonValue expected = step.takeAt(step.size() - 1);
        QJsonValue actual = "no operation " + op;
        if (acts.contains(op))
            actual = acts.value(op)(w, step);
        else if (looks.contains(op))
            QTest::qWaitFor([&] { return (actual = looks.value(op)(w, step)) == expected; }, 5000);
        if (actual == expected)
            return QString();
        return op + ' ' + compact(step) + "\n   actual: " + compact(actual)
            + "\n expected: " + compact(expected);
    }

    void playAll(World& w, const QJsonArray& steps) const
    {
        for (int i = 0; i < steps.size(); ++i) {
            const QString failure = play(w, steps.at(i).toArray());
            QVERIFY2(failure.isEmpty(), qPrintable(QStringLiteral("step %1: ").arg(i) + failure));
        }
    }
};

inline void addScenarioRows(const QString& folder)
{
    QTest::addColumn<QJsonArray>("steps");
    for (const auto& entry : fixtureEntries(folder))
        QTest::newRow(qPrintable(entry.first)) << entry.second.toArray();
}
