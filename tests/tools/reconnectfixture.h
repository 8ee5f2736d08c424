#pragma once

#include "fakectiserver.h"
#include "simdirectory.h"
#include "simulator.h"
#include "telvix.h"
#include "telvixreconnector.h"

#include <QDir>
#include <QElapsedTimer>
#include <QList>
#include <QTemporaryDir>

#include <memory>

/// The PBX simulator in the test's own process, and Telvix clients with a
/// TelvixReconnector each, logged in to it over real TLS.
class ReconnectFixture
{
public:
    struct Client
    {
        std::unique_ptr<Telvix> telvix;
        std::unique_ptr<TelvixReconnector> reconnector;
        /// Test clock (ms) of each reconnected().
        QList<qint64> reconnectedAt;
        QList<QString> gaveUp;
        int waits = 0;
    };

    ReconnectFixture() { m_clock.start(); }
    ~ReconnectFixture()
    {
        for (auto& client : m_clients) {
            client->reconnector->stop();
            client->telvix->shutdown();
        }
    }

    /// Listens on a free port; false when it cannot.
    bool start(SimSettings settings = {})
    {
        settings.port = 0;
        settings.probeIntervalMs = 0;
        settings.certificate = FakeCtiServer::certificatePath();
        settings.key = FakeCtiServer::keyPath();
        SimDirectory directory;
        QString error;
        if (!SimDirectory::load(QStringLiteral(TELVIX_PBXSIM_DIRECTORY), &directory, &error))
            return false;
        m_sim.reset(new PbxSimulator(settings, directory));
        QObject::connect(m_sim.get(), &PbxSimulator::requestReceived,
                         [this](const QString& element) { m_logins += element == QLatin1String("Login"); });
        return m_sim->listen(&error);
    }
    PbxSimulator& sim() { return *m_sim; }
    /// Logins the simulator has seen, refused ones included.
    int loginRequests() const { return m_logins; }
    qint64 now() const { return m_clock.elapsed(); }

    /// A client connecting as `user` with a reconnector seeded by `seed`.
    Client& addClient(const QString& user, const QString& password, quint32 seed,
                      const TelvixReconnector::Settings& settings = {})
    {
        m_clients.push_back(std::make_unique<Client>());
        Client* c = m_clients.back().get();
        const QString dataDir = m_dir.path() + QStringLiteral("/%1-%2").arg(user).arg(m_clients.size());
        QDir().mkpath(dataDir);
        c->telvix.reset(new Telvix("Linux", "6.1", "tst", "1.0", "device-" + dataDir.right(8), dataDir));
        c->reconnector.reset(new TelvixReconnector(c->telvix.get()));
        c->reconnector->setSeed(seed);
        c->reconnector->setSettings(settings);
        QObject::connect(c->reconnector.get(), &TelvixReconnector::reconnected,
                         [this, c](qint64) { c->reconnectedAt.append(now()); });
        QObject::connect(c->reconnector.get(), &TelvixReconnector::gaveUp,
                         [c](const QString& reason) { c->gaveUp.append(reason); });
        QObject::connect(c->reconnector.get(), &TelvixReconnector::waiting, [c] { ++c->waits; });
        c->telvix->init();
        c->telvix->connectToServer(user, password, QString(), TELVIX::AppModeSrntPro,
                                   QStringLiteral("127.0.0.1"), m_sim->port());
        return *c;
    }

private:
    QTemporaryDir m_dir;
    std::unique_ptr<PbxSimulator> m_sim;
    std::vector<std::unique_ptr<Client>> m_clients;
    QElapsedTimer m_clock;
    int m_logins = 0;
};
