#include "reconnectfixture.h"

#include "fakectiserver.h"

#include <QDir>

ReconnectFixture::ReconnectFixture()
{
    m_clock.start();
}

ReconnectFixture::~ReconnectFixture()
{
    for (auto& client : m_clients) {
        client->reconnector->stop();
        client->telvix->shutdown();
    }
}

bool ReconnectFixture::start()
{
    SimSettings settings;
    settings.port = 0;
    settings.probeIntervalMs = 0;
    settings.certificate = FakeCtiServer::certificatePath();
    settings.key = FakeCtiServer::keyPath();
    SimDirectory directory;
    QString error;
    if (!SimDirectory::load(QStringLiteral(TELVIX_PBXSIM_DIRECTORY), &directory, &error))
        return false;
    m_sim.reset(new PbxSimulator(settings, directory));
    QObject::connect(m_sim.get(), &PbxSimulator::requestReceived, [this](const QString& element) {
        if (element == QLatin1String("Login"))
            ++m_logins;
    });
    return m_sim->listen(&error);
}

ReconnectFixture::Client& ReconnectFixture::addClient(const QString& user, const QString& password,
                                                      quint32 seed,
                                                      const TelvixReconnector::Settings& settings)
{
    auto client = std::make_unique<Client>();
    const QString dataDir = m_dir.path() + QStringLiteral("/%1-%2").arg(user).arg(m_clients.size());
    QDir().mkpath(dataDir);
    client->telvix.reset(new Telvix("Linux", "6.1", "tst", "1.0", "device-" + dataDir.right(8), dataDir));
    client->reconnector.reset(new TelvixReconnector(client->telvix.get()));
    client->reconnector->setSeed(seed);
    client->reconnector->setSettings(settings);
    Client* c = client.get();
    QObject::connect(c->reconnector.get(), &TelvixReconnector::reconnected,
                     [this, c](qint64) { c->reconnectedAt.append(now()); });
    QObject::connect(c->reconnector.get(), &TelvixReconnector::gaveUp,
                     [c](const QString& reason) { c->gaveUp.append(reason); });
    QObject::connect(c->reconnector.get(), &TelvixReconnector::waiting, [c] { ++c->waits; });
    c->telvix->init();
    c->telvix->connectToServer(user, password, QString(), TELVIX::AppModeSrntPro, QStringLiteral("127.0.0.1"),
                               m_sim->port());
    m_clients.push_back(std::move(client));
    return *c;
}
