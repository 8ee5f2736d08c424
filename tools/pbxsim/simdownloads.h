#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QString>

class SimHub;
class SimSession;

/// \brief Access tokens and the downloads they open. A logged-in client asks
/// for a token; a download then comes on a fresh connection that never logs
/// in, carrying the token, and is answered once.
class SimDownloads
{
public:
    /// Without `rebranding` the simulator holds no package and says so.
    SimDownloads(SimHub& hub, bool rebranding, int tokenValiditySecs);

    /// A new token for `exten`, valid until `*validUntil`.
    QString issueToken(const QString& exten, QDateTime* validUntil);

    /// Answers a download request of a connection that is not logged in;
    /// false when `element` is not a download request.
    bool serve(SimSession& session, const QString& element, const QString& xml);

    /// Longer messages are served cut to this length.
    static constexpr int MaxAudioSecs = 30;

private:
    struct Token
    {
        QString exten;
        QDateTime validUntil;
    };

    void voicemail(SimSession& s, const QString& exten, const QString& xml);
    void rebrandingPack(SimSession& s, const QString& exten, const QString& xml);

    SimHub& m_hub;
    int m_validitySecs;
    QHash<QString, Token> m_tokens;
    QByteArray m_package;
};
