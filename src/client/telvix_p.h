#pragma once

#include "calltable_p.h"
#include "telvix.h"
#include "telvixhop_p.h"
#include "telvixdispatch_p.h"
#include "telvixlog_p.h"

#include <QDateTime>
#include <QMap>
#include <QSemaphore>
#include <QString>

#include <atomic>

class QCoreApplication;
class QSslError;
class QSslSocket;
class QTimer;
class SimpleXmlParser;
class SXmlMessage;
class LoginRespMsg;
class RedirectConnectionRespMsg;

/// Everything the Telvix object holds. It lives on the library's thread
/// after init(); nothing here is locked, confinement to that thread is the
/// design. Behaviour is split by family over several source files.
class TelvixPrivate
{
    Q_DECLARE_PUBLIC(Telvix)
public:
    explicit TelvixPrivate(Telvix* q);
    ~TelvixPrivate();

    // ---- life cycle (telvix.cpp) ----------------------------------------
    void runSetUp();
    bool shutdownOnThread();
    bool enableMessagesDump(bool on);
    Logger* makeLogger(const QString& path, bool withConsole);
    void initLogger(const QString& path);
    void initMsgLogger(const QString& path);

    void shutdownDownloads();
    void shutdownCollaborators();

    // ---- session (telvixsession.cpp) ------------------------------------
    bool connectToServer(const QString& user, const QString& password, const QString& domain,
                         TELVIX::AppMode mode, const QString& ip, quint16 port);
    bool setServerAddress(const QString& address);
    bool logout();
    bool abortConnection();
    bool isConnected() const;
    bool isSocketConnected() const;
    bool sendKeepAlive();
    bool stopKeepAliveTimer();
    bool enableGuiKeepAlive(bool on);
    bool requestGuiKeepAlive();
    bool ackGuiKeepAlive();
    void connectionTimedout();
    void sendGuiKeepAlive();
    void initSslSocket();
    void handleSslError(QSslSocket* sender, const QList<QSslError>& errors);
    void handleConnection(QSslSocket* sender);
    void handleServerDisconnection(QSslSocket* sender);
    void handleTcpError(QSslSocket* sender, int error);
    void sendAuth();
    /// Serialises `msg` at the client API version and writes it.
    bool send(SXmlMessage& msg, bool flush = false);
    bool sendRequest(const QString& xml, bool flush);
    bool ackServerMessage(const QString& id);
    bool readData();
    bool onLoginResponse(const QString& xml);
    void computeFeatureBits(const QStringList& featureList);
    void disconnectFromServer(const QString& reason);
    void destroySocket();
    void handleRedirect(const RedirectConnectionRespMsg& redirect, bool& leaveLoop);
    /// Opens the local store of the logged-in user and raises what it holds
    /// (desktop modes only).
    void openLocalStore();
    void closeLocalStore();
    /// Chat settings from the login itself, for servers before 5.3.
    void startChatFromLogin(const LoginRespMsg& resp);
    /// Empties the per-connection call indexes and peer maps.
    void clearSessionIndexes();
    /// Client API version for a server version: the server's below "6.1"
    /// by text, else "6.1".
    static QString clientApiFor(const QString& serverApi);

    // ---- dispatch (telvixdispatch.cpp) ----------------------------------
    void handleServerMessages();
    void getPeriodicData();
    // Rows of the dispatch table (see telvixdispatch.cpp for their order).
    void rowLogin(const QString& xml, DispatchContext& ctx);
    void rowLoggedOff(const QString& xml, DispatchContext& ctx);
    void rowRedirect(const QString& xml, DispatchContext& ctx);
    void rowBanner(const QString& xml, DispatchContext& ctx);
    void rowProbe(const QString& xml, DispatchContext& ctx);
    void rowKeepAliveAck(const QString& xml, DispatchContext& ctx);
    void rowServerError(const QString& xml, DispatchContext& ctx);

    // ---- requests (telvixrequests.cpp) ----------------------------------
    bool getPhoneBook();
    bool getCtiConfiguration();
    bool getServiceCodeList();
    bool getCDR(bool cached, const QString& lastEntry);
    /// The desktop branch of getCDR: history from and into the local store.
    bool getStoredCdr(bool cached, const QString& lastEntry);

    Telvix* const q_ptr;

    // Session
    QString serverApiVersion;
    QString minApiVersion;
    QString clientApiVersion = QStringLiteral("4.0");
    bool ignoreSslErrorsFlag = true;
    QString user, password, domain;
    QString exten;
    QString firstName, lastName;
    QString serverAddress;
    quint16 serverPort = 0;
    // Read without locking from any thread by getConnectionState().
    std::atomic<int> connectionState{Telvix::StateDisconnected};
    QDateTime lastLoginAttempt;
    QSslSocket* socket = nullptr;
    TELVIX::CallCenterRole ccRole = TELVIX::CallCenterRole(0);
    int features = 0;

    // Logging and files
    Logger* logger = nullptr;
    Logger* msgLogger = nullptr;
    TELVIX::AppMode appMode = TELVIX::AppMode(-1);
    QString dataDir;

    // Timers, made in run() with the Telvix object as parent
    QTimer* keepAliveTimer = nullptr;
    QTimer* keepAliveAckTimer = nullptr;
    QTimer* guiKeepAliveTimer = nullptr;
    QTimer* periodicDataTimer = nullptr;
    QTimer* phoneBookTimer = nullptr;

    // Owned objects
    SimpleXmlParser* parser = nullptr;

    // Thread bookkeeping and client identity
    std::atomic<bool> threadStarted{false};
    bool externalApplication = false;
    QCoreApplication* ownApplication = nullptr;
    QSemaphore movedToThread;
    QSemaphore setUpDone;
    QString osType, osVersion, swType, swVersion, deviceId;
    bool guiKeepAliveEnabled = false;
    int chatKeepAliveInterval = 0;

    // ---- calls ----------------------------------------------------------
    static TelvixPrivate* get(Telvix* q) { return q->d_func(); }
    bool inMobileMode() const { return Telvix::appModeIsMobile(appMode); }

    // Call table and call events (telvixcalls.cpp)
    void onOriginateCall(const OriginateCallEvent& event);
    void onIncomingCall(const IncomingCallEvent& event);
    void onAnsweredCall(const AnsweredCallEvent& event);
    void onFinishedCall(const FinishedCallEvent& event);
    void onMissedCall(const MissedCallEvent& event);
    void onColpUpdate(const ColpUpdateEvent& event);
    void onCallLocalInfoUpdate(const CallLocalInfoUpdateEvent& event);
    void onCallTransferCanceled(const TransferCanceledCallEvent& event);
    void onC2cOriginateCall(const C2COriginateEventMsg& event);
    void onC2cFinishedCall(const C2CFinishedEventMsg& event);
    void clearCallIndexes();
    void rowIncomingCall(const QString& xml, DispatchContext& ctx);
    void rowAnsweredCall(const QString& xml, DispatchContext& ctx);
    void rowFinishedCall(const QString& xml, DispatchContext& ctx);
    void rowOriginateCall(const QString& xml, DispatchContext& ctx);
    void rowMissedCall(const QString& xml, DispatchContext& ctx);
    void rowColpUpdate(const QString& xml, DispatchContext& ctx);
    void rowCallLocalInfoUpdate(const QString& xml, DispatchContext& ctx);
    void rowTransferCanceled(const QString& xml, DispatchContext& ctx);
    void rowTransferStarted(const QString& xml, DispatchContext& ctx);
    void rowTransferCompleted(const QString& xml, DispatchContext& ctx);
    void rowC2cOriginate(const QString& xml, DispatchContext& ctx);
    void rowC2cFinished(const QString& xml, DispatchContext& ctx);
    void rowPhoneEvent(const QString& xml, DispatchContext& ctx);

    // Call control and number functions (telvixcallcontrol.cpp)
    bool newCall(const QString& number, TELVIX::NumberOutgoingPrefix prefix, bool toMobile);
    bool hangupCall(const QString& uid, const QString& reason);
    bool hangupChannel(const QString& channel, const QString& reason, const QString& token);
    bool redirectCall(const QString& uid, const QString& number);
    bool redirectCallToMobile(const QString& uid);
    bool parkCall(const QString& uid);
    bool bridgeCalls(const QString& first, const QString& second);
    QString purifyIncomingNumber(const QString& number) const;
    bool isExtenNum(const QString& number) const;

    // Desk phone (telvixdeskphone.cpp)
    bool sendPlainRequest(const QString& body);
    void handlePhoneEvent(const QString& xml);

    CallTable calls;
    // Indexes into `calls`; they never own a leg. The first three belong to
    // one connection and are emptied with its socket.
    QMap<QString, CallInfo*> callsByLocalChannel;
    QMap<QString, CallInfo*> callsByRemoteChannel;
    QMap<QString, CallInfo*> transferringCalls;
    QMap<QString, CallInfo*> parkedCalls;
};
