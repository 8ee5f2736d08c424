// A restart of the PBX with twenty clients logged in: the reconnectors bring
// every one back, spread out rather than in a storm.
#include "reconnectfixture.h"

#include <QTest>

#include <algorithm>

class tst_ReconnectSimLong : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void restartWithTwentyClientsComesBackSpreadOut();
};

void tst_ReconnectSimLong::restartWithTwentyClientsComesBackSpreadOut()
{
    constexpr int Clients = 20;
    constexpr int DowntimeMs = 25000;
    // Slack for the TLS handshake and login of the last attempt.
    constexpr int AttemptMs = 3000;
    TelvixReconnector::Settings settings;
    settings.maxDelayMs = 30000;

    ReconnectFixture f;
    QVERIFY(f.start());
    QList<ReconnectFixture::Client*> clients;
    for (int i = 0; i < Clients; ++i) {
        const QString exten = QString::number(1000 + i % 10);
        clients.append(&f.addClient(exten, exten, quint32(i + 1), settings));
    }
    QTRY_COMPARE_WITH_TIMEOUT(f.sim().sessionsOf("*").size(), Clients, 30000);

    const qint64 restartAt = f.now();
    f.sim().restart(DowntimeMs);
    const auto allBack = [&] {
        return std::all_of(clients.begin(), clients.end(),
                           [](const ReconnectFixture::Client* c) { return c->reconnectedAt.size() == 1; });
    };
    QTRY_VERIFY_WITH_TIMEOUT(allBack(), DowntimeMs + settings.maxDelayMs + 2 * AttemptMs);

    QList<qint64> times;
    for (const ReconnectFixture::Client* c : clients) {
        QVERIFY(c->gaveUp.isEmpty());
        times.append(c->reconnectedAt.first() - restartAt);
    }
    std::sort(times.begin(), times.end());
    qInfo() << "back after (ms from the restart):" << times;
    // Once the server is back, every client's wait ends within the cap.
    QVERIFY2(times.last() <= DowntimeMs + settings.maxDelayMs + AttemptMs,
             qPrintable(QString::number(times.last())));
    // No second holds more than a third of them.
    for (int i = 0; i < times.size(); ++i) {
        const int inWindow = int(
            std::count_if(times.begin() + i, times.end(), [&](qint64 t) { return t < times.at(i) + 1000; }));
        QVERIFY2(
            inWindow * 3 <= Clients,
            qPrintable(QStringLiteral("%1 back within a second from %2 ms").arg(inWindow).arg(times.at(i))));
    }
    QCOMPARE(f.sim().sessionsOf("*").size(), Clients);
}

QTEST_GUILESS_MAIN(tst_ReconnectSimLong)
#include "tst_reconnectsim_long.moc"
