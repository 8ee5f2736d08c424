#pragma once

#include "telvix_export.h"

#include <QObject>
#include <QScopedPointer>
#include <QString>
#include <QStringList>

class Telvix;
class TelvixWebBridgePrivate;

/// \brief A WebSocket feed of a Telvix for web pages (CRMs, ticket desks):
/// screen pop on ringing calls and click-to-dial.
///
/// The bridge attaches to a Telvix from outside, through its public methods
/// and signals only: it holds no copy of the session's state and adds no
/// behaviour to Telvix. It listens on 127.0.0.1 only.
///
/// **Events.** A paired page receives what the local server publishes, the
/// same events in the same order, one JSON text message each:
/// `{"event": <signal name>, "seq": <1, 2, ... per connection>, "record": ...}`.
/// The record is the signal's argument in the JSON form of JsonConvert (the
/// form telvix-cli prints); a signal with several arguments gives an object
/// keyed by the argument names, one without arguments gives null.
///
/// **Commands.** A page sends `{"id": <any>, "command": <name>, ...}` and gets
/// `{"id": <same>, "result": <value>}` or `{"id": <same>, "error": <reason>}`:
/// - `pair` {token}: must be the first message (see below); result true.
/// - `dial` {number}: Telvix::newCall(); `number` may be a `tel:`, `callto:`,
///   `sip:` or `sips:` URI (TelephoneUri) or a number as typed.
/// - `answer` {line}, `hold` {line}, `unhold` {line}, `transfer` {line,
///   number, attended = false}: the desk-phone commands; result true once
///   handed to the library's thread.
/// - `hangup` {uid}: Telvix::hangupCall().
/// - `extensions`: the entries of the PBX's extension book.
/// - `lookup` {number}: `{"contact": <PhoneBookEntry>, "book": {type, name,
///   folder}}` for the first contact with that number; `{}` when none has it.
///   Numbers are compared as the library hands out a caller's number:
///   Telvix::purifyOutgoingNumber(), then without the PBX's line prefix
///   (Telvix::getOutboundLinePrefix(), a blocking call).
///   `extensions` and `lookup` ask Telvix::getContactsList() for its cached
///   books, so every feed also sees a sigPhonebookChanged.
///
/// Unknown commands, bad arguments and malformed JSON are answered with an
/// error and keep the connection.
///
/// **Security.** Any page in the user's browser may open a WebSocket to the
/// loopback, so:
/// - the handshake's `Origin` must be in allowedOrigins(), exactly (empty by
///   default: no page is accepted until the application names one; `null`
///   and `file://` pages only when named so);
/// - the first message must be `pair` with pairingToken(), compared in
///   constant time, within pairingTimeout(); before that nothing is published
///   and no command runs;
/// - a message longer than maxMessageSize() or more than
///   maxCommandsPerSecond() messages in one second close the connection;
/// - at most maxConnections() pages at once; more are refused;
/// - a page whose unsent data passes maxPendingBytes() (it stopped reading)
///   is closed, so that it slows neither the others nor the library.
///
/// Each refusal closes with a WebSocket close code (1009 for a message too
/// big, 1008 policy violation for all others) and logs a warning in
/// the category "telvix.webbridge" naming the peer, its origin and the
/// reason; pageClosed() tells the application.
class TELVIX_EXPORT TelvixWebBridge : public QObject
{
    Q_OBJECT
public:
    static constexpr qint64 DefaultMaxMessageSize = 64 * 1024;
    static constexpr int DefaultMaxConnections = 16;
    static constexpr int DefaultMaxCommandsPerSecond = 20;
    static constexpr qint64 DefaultMaxPendingBytes = 16 * 1024 * 1024;
    static constexpr int DefaultPairingTimeoutMs = 10000;
    /// Random bytes of a token from generatePairingToken(): 256 bits.
    static constexpr int PairingTokenBytes = 32;
    /// The shortest token setPairingToken() takes: 128 bits as Base64.
    static constexpr int MinPairingTokenLength = 22;

    /// Attaches to `telvix`, which must outlive the bridge. A fresh pairing
    /// token is generated; nothing listens before listen().
    explicit TelvixWebBridge(Telvix* telvix, QObject* parent = nullptr);
    ~TelvixWebBridge() override;

    /// Listens on 127.0.0.1:`port` (0: a port chosen by the system).
    bool listen(quint16 port = 0);
    /// The listening port, 0 when not listening.
    quint16 serverPort() const;
    /// Closes the server and every page.
    void close();

    /// Origins accepted in the handshake, compared exactly with the
    /// browser's text ("http://crm.example:8080", "null", "file://").
    void setAllowedOrigins(const QStringList& origins);
    QStringList allowedOrigins() const;

    /// A new random token of PairingTokenBytes bytes, Base64url.
    static QString generatePairingToken();
    /// The token that pages must send first; false (and the token kept) when
    /// it is shorter than MinPairingTokenLength.
    bool setPairingToken(const QString& token);
    QString pairingToken() const;

    void setMaxMessageSize(qint64 bytes);
    qint64 maxMessageSize() const;
    void setMaxCommandsPerSecond(int count);
    int maxCommandsPerSecond() const;
    void setMaxConnections(int count);
    int maxConnections() const;
    void setMaxPendingBytes(qint64 bytes);
    qint64 maxPendingBytes() const;
    void setPairingTimeout(int ms);
    int pairingTimeout() const;

    /// Open connections, paired or not.
    int pageCount() const;

Q_SIGNALS:
    /// A page sent the right token; events flow to it from now on.
    void pagePaired(const QString& peer, const QString& origin);
    /// The bridge closed a page for `reason`; also logged.
    void pageClosed(const QString& peer, const QString& origin, const QString& reason);

private:
    Q_DECLARE_PRIVATE(TelvixWebBridge)
    QScopedPointer<TelvixWebBridgePrivate> d_ptr;
};
