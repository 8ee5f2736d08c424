#pragma once

#include "calltable_p.h"
#include "directorymessages.h"
#include "servicemessages.h"
#include "telvix.h"
#include "telvixdispatch_p.h"
#include "telvixhop_p.h"
#include "telvixlog_p.h"
#include "telvixtimers_p.h"
#include "xmppengine.h"

#include <QDateTime>
#include <QMap>
#include <QPointer>
#include <QSemaphore>
#include <QString>
#include <QTextCodec>

#include <atomic>
#include <memory>

class QCoreApplication;
class QSslError;
class QSslSocket;
class QTimer;
class SimpleXmlParser;
class SXmlMessage;
class LoginRespMsg;
class RedirectConnectionRespMsg;
class SarnetDownloader;
class ClientSocketManager;
class Persistence;

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

    // ---- local server (telvixlocalserver.cpp) ----------------------------
    int initTcpServer();
    int getTcpServerPort() const;
    bool closeTcpServer();
    int restartTcpServer();
    void sendChatMessageEvent(const QString& who, const QString& event);
    void shutdownLocalServer();

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
    /// A chat account from the login or from "CtiConfiguration".
    void onChatConfigReceived(const ChatConfiguration& config);
    /// Asks the chat client, when connected, for the presence of every contact.
    void refreshChatPresence();
    /// With a local store: logs "persisting cdr", stores `entries`, replaces
    /// them by the whole stored history and returns true. Without one: false.
    bool persistCdr(Cdr& entries);
    /// Starts a queued download with a fresh token.
    void startDownloader(SarnetDownloader* downloader, const QString& token);
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
    bool getIdentities();
    bool getPeerList();
    bool getExtenList();
    bool getExtenStatus();
    bool getServiceStatus();
    bool getVoicemail(TELVIX::VmMsgTypeFlag type);
    bool getMailboxStatus();
    bool getTenantList();
    bool subscribeTenantEvents(const QString& tenant);
    bool setUFWD(const QString& number);
    bool unsetUFWD();
    bool setForkToMobile();
    bool unsetForkToMobile();
    bool deleteVoicemailMessage(const QString& id);
    bool markVoicemailMessage(const QString& id, TELVIX::VmMsgType type);
    bool requestAccessToken();
    bool requestAccessToken_internal();
    QString getOutboundLinePrefix();
    bool setDeviceToken(const QString& token, TELVIX::NotificationService service);
    bool sendServerCommand(const ServerCommand& command);
    bool changePassword(const QString& oldPassword, const QString& newPassword);
    bool injectMessage(const QString& text);
    /// Sends `msg`; a request's true means that its body ran, whatever
    /// the socket did.
    bool sendAndForget(SXmlMessage& msg);
    /// Logs `line` and sends a request of type `Msg` that has no fields.
    template <typename Msg> bool ask(const char* function, int priority, const char* line);

    /// Token requests in the order of their asking: a download's own
    /// downloader, or null for the application's requestAccessToken().
    QList<SarnetDownloader*> downloaders;

    // ---- downloads (telvixdownloads.cpp) --------------------------------
    bool downloadVoicemailMessage(const QString& id, const QString& uuid, const QString& folder);
    bool downloadRebrandingPackage(const QString& lastMd5, const QString& folder);
    /// Wires a new downloader's end signals and queues it for a token.
    void queueDownloader(SarnetDownloader* downloader);
    void onVoicemailDownloadCompleted(SarnetDownloader* downloader);
    void onRebrandingDownloadCompleted(SarnetDownloader* downloader);
    /// Disconnects, closes and releases a downloader whose download ended.
    void destroyDownloader(SarnetDownloader* downloader);
    /// Downloaders that got their token and are still running.
    QList<SarnetDownloader*> runningDownloaders;

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
    std::atomic<int> connectionState {Telvix::StateDisconnected};
    QDateTime lastLoginAttempt;
    QSslSocket* socket = nullptr;
    /// UTF-8 decoder of the socket's text; it keeps a character split
    /// between two reads.
    std::unique_ptr<QTextDecoder> socketDecoder;
    TELVIX::CallCenterRole ccRole = TELVIX::CallCenterRole(0);
    int features = 0;

    // Logging and files
    Logger* logger = nullptr;
    Logger* msgLogger = nullptr;
    TELVIX::AppMode appMode = TELVIX::AppMode(-1);
    QString dataDir;

    TelvixTimerIntervals timerIntervals;
    /// The last chat account told by the server.
    ChatConfiguration chatConfig;

    // Timers, made in run() with the Telvix object as parent
    QTimer* keepAliveTimer = nullptr;
    QTimer* keepAliveAckTimer = nullptr;
    QTimer* guiKeepAliveTimer = nullptr;
    QTimer* periodicDataTimer = nullptr;
    QTimer* phoneBookTimer = nullptr;

    // Owned objects
    SimpleXmlParser* parser = nullptr;
    /// The local server of the last initTcpServer(); it lives on the
    /// library's thread and has no parent.
    ClientSocketManager* localServer = nullptr;
    /// Servers that a later initTcpServer() replaced: they keep running as
    /// the application left them and are freed at shutdown.
    QList<QPointer<ClientSocketManager>> replacedLocalServers;
    /// The user's local store, made at login in desktop modes; null otherwise.
    Persistence* persistence = nullptr;

    // Thread bookkeeping and client identity
    std::atomic<bool> threadStarted {false};
    bool externalApplication = false;
    QCoreApplication* ownApplication = nullptr;
    QSemaphore movedToThread;
    QSemaphore setUpDone;
    QString osType, osVersion, swType, swVersion, deviceId;
    bool guiKeepAliveEnabled = false;
    int chatKeepAliveInterval = 0;

    // ---- chat (telvixchat.cpp) -------------------------------------------
    bool enableChatSupport(bool enable);
    bool isChatConnected() const;
    bool setClientPresence(TELVIX::ChatPresence presence, const QString& status);
    bool sendChatMessage(const QString& exten, const QString& body);
    /// Looks `exten` up and calls `operation` on the chat client with its chat id.
    bool sendToExten(const QString& exten, void (XmppClient::*operation)(const QString&));
    bool sendChatMessageDisplayed(const QString& exten);
    QString sendChatFile(const QString& exten, const QString& path);
    QString sendChatVCard(const QString& exten, const QByteArray& data, const QString& fileName);
    bool chatFtAccept(const QString& sid, const QString& path);
    bool chatFtDecline(const QString& sid);
    bool getChatHistory(const QDateTime& since);
    void onChatFtRequest(const QString& sid, const QString& chatId, const QString& fileName,
                         const QString& mimeType);
    void onChatHistory(const QList<ChatMessage>& messages);
    QString chatIdFromExten(const QString& exten) const;
    QString extenFromchatId(const QString& chatId) const;
    bool setChatKeepAliveSendIntervalSec(int seconds);
    /// Connects the chat client with the session's account.
    void connectChat();
    void onChatConnected();
    void onChatDisconnected(const QString& reason);
    void onChatMessage(const ChatMessage& message);
    void onChatContactComposing(const QString& chatId, const QString& threadId, bool composing);
    /// Raises `signal` with the extension of `chatId`, if it has one.
    void relayWithExten(const QString& chatId, void (Telvix::*signal)(QString));
    void onChatClientPresenceChanged(TELVIX::ChatPresence presence, const QString& status);
    void onChatContactPresenceChanged(const QString& chatId, TELVIX::ChatPresence presence,
                                      const QString& status);
    void onChatContactPresenceMapUpdate(const PresenceMap& presences);
    void updateExtenStatusPresence(const QString& exten, TELVIX::ChatPresence presence,
                                   const QString& status);
    /// Disconnects and releases the chat client (shutdown).
    void closeChat();
    /// Disconnects and releases the chat client; the connection state is cleared.
    void dropChat();
    /// The chat client, on its own thread; null while chat is off.
    XmppClient* chat = nullptr;
    /// The chat client's link as its signals told it; the client itself is
    /// not read across threads.
    bool chatConnected = false;
    bool chatConnecting = false;
    QString chatDisconnectionReason = QStringLiteral("NoDisconnectionYet");

    // ---- peer data (telvixpeers.cpp) ------------------------------------
    void rowIdentities(const QString& xml, DispatchContext& ctx);
    void rowBuddyIdentities(const QString& xml, DispatchContext& ctx);
    void rowIdentityUpdate(const QString& xml, DispatchContext& ctx);
    void rowExtenStatusList(const QString& xml, DispatchContext& ctx);
    void rowExtenStatus(const QString& xml, DispatchContext& ctx);
    /// Empties the peer maps that belong to one connection.
    void clearPeerIndexes();
    /// The user's own SIP identities.
    IdentityList identities;
    /// SIP account of any peer to its extension, and the reverse. Both
    /// belong to one connection.
    QMap<QString, QString> accountToExten;
    QMap<QString, QStringList> extenToAccounts;
    /// Last known status of each extension; it outlives the connection.
    QMap<QString, BuddyStatus> extenStatus;
    /// Chat identities of the extensions, rebuilt from each extension list.
    QMap<QString, QString> chatIdToExten;
    QMap<QString, QString> extenToChatId;

    // ---- server data (telvixserverdata.cpp) -----------------------------
    void rowCdr(const QString& xml, DispatchContext& ctx);
    void rowCommandResponse(const QString& xml, DispatchContext& ctx);
    void rowDiagnostic(const QString& xml, DispatchContext& ctx);
    void rowTenantList(const QString& xml, DispatchContext& ctx);
    void rowChannelStatus(const QString& xml, DispatchContext& ctx);
    void rowCtiConfiguration(const QString& xml, DispatchContext& ctx);
    void rowServiceStatusList(const QString& xml, DispatchContext& ctx);
    void rowServiceStatus(const QString& xml, DispatchContext& ctx);
    void rowInCallServiceStatus(const QString& xml, DispatchContext& ctx);
    void rowVoicemailList(const QString& xml, DispatchContext& ctx);
    void rowRebrandingPackChanged(const QString& xml, DispatchContext& ctx);
    void rowAuthToken(const QString& xml, DispatchContext& ctx);
    void rowMailboxStatus(const QString& xml, DispatchContext& ctx);
    void rowServices(const QString& xml, DispatchContext& ctx);
    /// The rows that only hand a valid message's record to the application:
    /// parse, acknowledge, log an invalid message, else raise `signal` with
    /// the record in `member`.
    template <typename Msg, typename Record>
    void forwardRow(const QString& xml, DispatchContext& ctx, const char* function,
                    const InvalidWords& invalid, Record Msg::*member, void (Telvix::*signal)(Record));
    /// Hands a token to the oldest waiting request: a download starts, the
    /// application's own request gets sigAuthTokenReceived.
    void onAuthTokenReceived(const QString& token, const QDateTime& expiry);
    /// SIP settings of the last "CtiConfiguration".
    SipConfiguration sipSettings;

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

    // Asks for the caller details of a channel (answer: "ChannelStatus").
    bool getChannelStatus(const QString& channel);

    // Desk phone (telvixdeskphone.cpp)
    bool sendPlainRequest(const QString& body);
    void handlePhoneEvent(const QString& xml);

    CallTable calls;
    // Server data the number functions read: the last "ExtenList" and the
    // codes of the last "Services".
    QList<BuddyEntry> extensions;
    ServicesDialCodes servicesDialCodes;
    // Indexes into `calls`; they never own a leg. The first three belong to
    // one connection and are emptied with its socket.
    QMap<QString, CallInfo*> callsByLocalChannel;
    QMap<QString, CallInfo*> callsByRemoteChannel;
    QMap<QString, CallInfo*> transferringCalls;
    QMap<QString, CallInfo*> parkedCalls;

    // ---- contacts (telvixcontacts.cpp) ----------------------------------
    bool getContactsList(bool cached, TELVIX::PhonebookTypeFlags types);
    /// Rebuilds the merged book (extension book first) and publishes it.
    void updateContactsBook();
    /// At login: the merged book and its flags start empty again, published.
    void resetContactsBook();
    bool addPhoneBookContact(const PhoneBookEntry& entry);
    bool updatePhoneBookContact(const PhoneBookEntry& entry);
    bool deletePhoneBookContact(const PhoneBookEntry& entry);
    void onOutlookPhoneBookUpdated(const QList<PhoneBook>& books);
    /// Runs after every valid extension list: chat may start from then on.
    void startChatAfterExtenList();
    void rowPhoneBook(const QString& xml, DispatchContext& ctx);
    void rowExtenList(const QString& xml, DispatchContext& ctx);

    PhoneBook m_buddyPhoneBook;
    QList<PhoneBook> m_serverPhoneBooks;
    QList<PhoneBook> m_outlookPhoneBooks;
    QList<PhoneBook> m_contactsBook;
    TELVIX::PhonebookTypeFlags m_phonebookFlags;

    // ---- favourites (telvixfavourites.cpp) ------------------------------
    bool getFavoriteList();
    bool addFavourite(const FavoriteEntry& entry);
    bool deleteFavourite(const FavoriteEntry& entry);
    void loadFavoritesFromFile();
    void saveFavoritesToFile() const;

    QList<FavoriteEntry> m_favorites;

    // ---- queues (telvixqueues.cpp) --------------------------------------
    bool getQueueList();
    bool getAllQueuesStats();
    bool getAllQueuePeriodicStats(TELVIX::PeriodType period, const QDateTime& start, const QDateTime& end);
    bool getAllQueueOperatorPeriodicStats(TELVIX::PeriodType period, const QDateTime& start,
                                          const QDateTime& end);
    bool getQueuePeriodicStats(const QStringList& queues, TELVIX::PeriodType period, const QDateTime& start,
                               const QDateTime& end);
    bool getQueueOperatorPeriodicStats(const QueueOperMap& queueOperators, TELVIX::PeriodType period,
                                       const QDateTime& start, const QDateTime& end);
    bool pauseQueues(bool pause, const QString& operatorExten, const QString& reason, const QString& queue);
    bool pauseOperators(bool pause, const QStringList& operators, const QString& reason,
                        const QString& queue);
    bool addQueueDynamicMember(const QString& queueId, const QString& operatorId, int penalty);
    bool removeQueueDynamicMember(const QString& queueId, const QString& operatorId);
    bool requestCCReport(TELVIX::PeriodType period, const QList<int>& attendedThresholds,
                         const QList<int>& lostThresholds, const QString& locale, const QDateTime& start,
                         const QDateTime& end);
    /// Servers from API "5.2" (by text) take the newer queue requests.
    bool queueApiIsNew() const;
    bool hasCumulativeStats() const;
    void rowCCReport(const QString& xml, DispatchContext& ctx);
    void rowQueueEvent(const QString& xml, DispatchContext& ctx);
    void rowQueuesStats(const QString& xml, DispatchContext& ctx);
    void rowQueuePeriodicStatsList(const QString& xml, DispatchContext& ctx);
    void rowQueuePeriodicStats(const QString& xml, DispatchContext& ctx);
    void rowOperatorPeriodicStatsList(const QString& xml, DispatchContext& ctx);
    void rowOperatorPeriodicStats(const QString& xml, DispatchContext& ctx);
    void rowQueueMemberAdded(const QString& xml, DispatchContext& ctx);
    void rowQueueMemberRemoved(const QString& xml, DispatchContext& ctx);
    void rowQueueMemberPause(const QString& xml, DispatchContext& ctx);
};
