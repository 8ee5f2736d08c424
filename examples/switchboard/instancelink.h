#pragma once

#include <QLocalServer>
#include <QObject>

/// One switchboard per desktop user: a later start that was handed a link
/// (tel:, callto:, sip:) passes it to the running instance over a local
/// socket and exits.
class InstanceLink : public QObject
{
    Q_OBJECT
public:
    explicit InstanceLink(const QString& name, QObject* parent = nullptr);

    /// The name of this user's instance.
    static QString defaultName();
    /// True when an instance listening as `name` took `uri` (empty: none,
    /// the instance only comes to the front).
    static bool handOver(const QString& name, const QString& uri);
    /// Takes the links of later starts. Call it after handOver() failed: a
    /// socket left by an instance that crashed is removed.
    bool listen();
    QString errorString() const { return m_server.errorString(); }

Q_SIGNALS:
    void uriReceived(const QString& uri);

private:
    void onConnection();

    QString m_name;
    QLocalServer m_server;
};
