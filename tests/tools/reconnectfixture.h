#pragma once

#include "simdirectory.h"
#include "simulator.h"
#include "telvix.h"
#include "telvixreconnector.h"

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

    ReconnectFixture();
    ~ReconnectFixture();

    /// Listens on a free port; false when it cannot.
    bool start();
    PbxSimulator& sim() { return *m_sim; }
    /// Logins the simulator has seen, refused ones included.
    int loginRequests() const { return m_logins; }
    qint64 now() const { return m_clock.elapsed(); }

    /// A client connecting as `user` with a reconnector seeded by `seed`.
    Client& addClient(const QString& user, const QString& password, quint32 seed,
                      const TelvixReconnector::Settings& settings = {});

private:
    QTemporaryDir m_dir;
    std::unique_ptr<PbxSimulator> m_sim;
    std::vector<std::unique_ptr<Client>> m_clients;
    QElapsedTimer m_clock;
    int m_logins = 0;
};
