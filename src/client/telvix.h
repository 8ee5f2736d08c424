#pragma once

#include "calleventmessages.h"
#include "cdrmessages.h"
#include "chatmessage.h"
#include "directorymessages.h"
#include "favoriteentry.h"
#include "loginmessages.h"
#include "phonebook.h"
#include "queuemessages.h"
#include "servicemessages.h"
#include "telvix_const.h"
#include "telvix_export.h"
#include "voicemailmessages.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QScopedPointer>
#include <QString>
#include <QStringList>
#include <QThread>

class TelvixPrivate;

/// Queues to the operators (SIP accounts) whose statistics are asked for.
using QueueOperMap = QMap<QString, QStringList>;

/// \brief The client of a PBX's CTI server.
///
/// One object is at once the library's thread, the worker living on it and
/// the facade the application calls. Build it, call init(), then
/// connectToServer(); call shutdown() before destroying it.
///
/// Public methods that touch the session hop onto the library's thread. A
/// queued method returns true as soon as the call is accepted for that
/// thread, never "the server got it"; a blocking method returns the real
/// result. Signals are raised on the library's thread.
class TELVIX_EXPORT Telvix : public QThread
{
    Q_OBJECT
public:
    /// Connection states of getConnectionState().
    enum ConnectionState {
        StateConnecting = 0,
        StateConnected = 1,
        StateDisconnecting = 2,
        StateDisconnected = 3
    };
    Q_ENUM(ConnectionState)

    /// \param dataDir directory of logs and files; "." when empty.
    Telvix(const QString& osType, const QString& osVersion, const QString& swType, const QString& swVersion,
           const QString& deviceId, const QString& dataDir);
    /// Call shutdown() first: the destructor does not stop the thread.
    ~Telvix() override;

    // ---- life cycle ------------------------------------------------------
    /// Starts the thread and moves the object onto it; blocks until it is up.
    Q_INVOKABLE bool init();
    /// Tears everything down in a fixed order and ends the thread.
    Q_INVOKABLE bool shutdown();
    /// "4.5.6-r<revision>"; any thread, also before init().
    Q_INVOKABLE QString getVersion() const;
    /// Build switch: chat support is compiled in.
    Q_INVOKABLE bool hasChatSupportBuilt() const;
    /// Build switch: the outlook contact source is not compiled in.
    Q_INVOKABLE bool hasOutlookSupportBuilt() const;
    /// Turns the scrambled wire dump "msgDump/telvixMsg.log" on or off.
    Q_INVOKABLE bool enableMessagesDump(bool on);
    /// True in the mobile application modes (6, 7).
    Q_INVOKABLE bool isInMobileAppMode() const;
    Q_INVOKABLE static bool appModeIsMobile(TELVIX::AppMode mode);
    /// One of ConnectionState, read without locking.
    Q_INVOKABLE int getConnectionState() const;

    // ---- session ---------------------------------------------------------
    /// Opens (or reuses) the TLS connection and logs in. An empty `ip` or a
    /// zero `port` takes the stored value.
    Q_INVOKABLE bool connectToServer(const QString& user, const QString& password, const QString& domain,
                                     TELVIX::AppMode mode, const QString& ip, quint16 port);
    /// connectToServer() with the stored credentials and address.
    Q_INVOKABLE bool reconnectToServer();
    /// "host:port"; a missing, zero or bad port gives 5039.
    Q_INVOKABLE bool setServerAddress(const QString& address);
    /// true (default): accept any certificate; false: refuse one that does not verify.
    Q_INVOKABLE void ignoreSslErrors(bool ignore);
    Q_INVOKABLE bool logout();
    /// Drops the socket without any signal.
    Q_INVOKABLE bool abortConnection();
    /// Blocking: logged in and the socket is connected.
    Q_INVOKABLE bool isConnected();
    Q_INVOKABLE bool isSocketConnected() const;
    Q_INVOKABLE bool sendKeepAlive();
    Q_INVOKABLE bool stopKeepAliveTimer();
    /// Starts the heartbeat sigGuiKeepAlive every 30 s, whatever `on` says.
    Q_INVOKABLE bool enableGuiKeepAlive(bool on);
    Q_INVOKABLE bool requestGuiKeepAlive();
    Q_INVOKABLE bool ackGuiKeepAlive();
    /// The extension of the login.
    Q_INVOKABLE QString getDisplayedNum() const;

    // ---- server data -----------------------------------------------------
    // Requests: true means that the body ran, not that the server answered.
    // The answer arrives later as the signal named. Queued unless told; the
    // direct ones write from the caller's thread, meant for the library's.

    /// The user's own SIP identities (sigIdentitiesChanged()). Always true.
    Q_INVOKABLE bool getIdentities();
    /// The SIP peers of every user (sigExtenStatusMapChanged()). Always true.
    Q_INVOKABLE bool getPeerList();
    /// The server's phone books. Direct.
    Q_INVOKABLE bool getPhoneBook();
    /// The extension list. Direct.
    Q_INVOKABLE bool getExtenList();
    /// The status of every extension (sigExtenStatusMapChanged()).
    Q_INVOKABLE bool getExtenStatus();
    /// The user's service states (sigServiceStatusChanged()).
    Q_INVOKABLE bool getServiceStatus();
    /// The PBX's service dial codes (sigServicesCodesReceived()). Direct.
    Q_INVOKABLE bool getServiceCodeList();
    /// SIP and chat settings (sigSipSettingsReceived()); sent to any server,
    /// with a warning below API "5.3". Direct.
    Q_INVOKABLE bool getCtiConfiguration();
    /// The voicemail messages of one state (sigVoicemailMsgList()).
    Q_INVOKABLE bool getVoicemail(TELVIX::VmMsgTypeFlag type);
    /// The voicemail counters (sigMailboxStatusChanged()).
    Q_INVOKABLE bool getMailboxStatus();
    /// Who is on the other side of `channel` (sigChannelStatusReceived()). Direct.
    Q_INVOKABLE bool getChannelStatus(const QString& channel);
    /// The tenants the user may watch (sigTenantListReceived()).
    Q_INVOKABLE bool getTenantList();
    /// Asks for the events of one tenant.
    Q_INVOKABLE bool subscribeTenantEvents(const QString& tenant);
    /// Forwards every call to `number` (sigServiceStatusChanged()).
    Q_INVOKABLE bool setUFWD(const QString& number);
    /// Ends the unconditional forward.
    Q_INVOKABLE bool unsetUFWD();
    /// Rings the user's mobile phone together with the desk.
    Q_INVOKABLE bool setForkToMobile();
    /// Stops ringing the mobile phone with the desk.
    Q_INVOKABLE bool unsetForkToMobile();
    /// Deletes one voicemail message (sigMailboxStatusChanged() follows).
    Q_INVOKABLE bool deleteVoicemailMessage(const QString& id);
    /// Marks a voicemail message; an unknown type marks it old.
    Q_INVOKABLE bool markVoicemailMessage(const QString& id, TELVIX::VmMsgType type);
    /// An access token for side connections (sigAuthTokenReceived() or
    /// sigAuthTokenError()). Tokens are handed out in the order asked.
    Q_INVOKABLE bool requestAccessToken();
    /// Call history. With a local store: `cached` publishes what it holds,
    /// otherwise asks for what is newer than `lastEntry` (default: the last
    /// stored entry). Mobile modes always ask, from `lastEntry`. Always true.
    Q_INVOKABLE bool getCDR(bool cached, const QString& lastEntry = QString());
    /// The PBX's prefix for outside lines; empty until the dial codes came.
    /// Blocking.
    Q_INVOKABLE QString getOutboundLinePrefix();
    /// Registers the device's push token; an unknown service is sent as "AUTO".
    Q_INVOKABLE bool setDeviceToken(const QString& token, TELVIX::NotificationService service);
    /// Runs a command on the server (sigServerCommandResponse()).
    Q_INVOKABLE bool sendServerCommand(const ServerCommand& command);
    /// Sends the password change as plain text, unescaped; no answer is
    /// handled and the stored password stays. Direct.
    Q_INVOKABLE bool changePassword(const QString& oldPassword, const QString& newPassword);
    /// Handles `text`, a whole frame, as if the server had sent it.
    Q_INVOKABLE bool injectMessage(const QString& text);

    // ---- calls -----------------------------------------------------------
    // Operations that send run on the library's thread (queued): true means
    // accepted, and the outcome arrives as call events. A refusal is only
    // logged.

    /// Places a call from the user's extension to `number`, purified first.
    /// `prefix` NumberPrefixAuto types it "internal" for an extension and
    /// "external" otherwise, NumberPrefixExternal forces "external", any other
    /// value sends no type. `reserved` is not used.
    Q_INVOKABLE bool newCall(const QString& number, TELVIX::NumberOutgoingPrefix prefix,
                             const QString& reserved = QString());
    /// newCall() that first rings the user's mobile phone.
    Q_INVOKABLE bool newCallToMobile(const QString& number, TELVIX::NumberOutgoingPrefix prefix,
                                     const QString& reserved = QString());
    /// Hangs up every leg of the call; an unknown uid is refused.
    Q_INVOKABLE bool hangupCall(const QString& uid, const QString& reason);
    /// Hangs up one server channel, known to the table or not; `token` goes
    /// into the request's header.
    Q_INVOKABLE bool hangupChannel(const QString& channel, const QString& reason, const QString& token);
    /// hangupCall() with the reason "busy"; the second argument is not used.
    Q_INVOKABLE bool refuseCall(const QString& uid, const QString& reserved = QString());
    /// hangupCall() without a reason.
    Q_INVOKABLE bool cancelCall(const QString& uid);
    /// Ends the call, in spite of its name: hangupCall() without a reason.
    Q_INVOKABLE bool muteCall(const QString& uid);
    /// Does nothing: hold is a desk-phone command (phoneCommandPutOnHold()).
    Q_INVOKABLE bool holdonCall(const QString& uid);
    /// Does nothing: see phoneCommandResumeFromHold().
    Q_INVOKABLE bool retrieveCall(const QString& uid);
    /// Deflects the call to `number` as typed.
    Q_INVOKABLE bool redirectCall(const QString& uid, const QString& number);
    /// Deflects the call to the user's mobile phone.
    Q_INVOKABLE bool redirectCallToMobile(const QString& uid);
    /// Does nothing: see phoneCommandAttendedTransfer().
    Q_INVOKABLE bool transferCallWithOffer(const QString& uid, const QString& number);
    /// Does nothing: see phoneCommandUnattendedTransfer().
    Q_INVOKABLE bool transferCallNoOffer(const QString& uid, const QString& number);
    /// Parks the call.
    Q_INVOKABLE bool parkCall(const QString& uid);
    /// Joins the other parties of two calls.
    Q_INVOKABLE bool bridgeCalls(const QString& first, const QString& second);
    /// Does nothing: the server offers no conference calls.
    Q_INVOKABLE void startConferenceCall();
    /// Does nothing, as startConferenceCall().
    Q_INVOKABLE void hangupConferenceCall();
    /// Does nothing, as startConferenceCall().
    Q_INVOKABLE void holdonConferenceCall();
    /// Does nothing, as startConferenceCall().
    Q_INVOKABLE void retrieveConferenceCall();

    // ---- number functions (any thread) ----------------------------------
    /// Typed punctuation removed; "+39..." in national form, another "+" as
    /// "00"; a four-character service number "01.." as it is.
    Q_INVOKABLE static QString purifyOutgoingNumber(const QString& number);
    /// purifyOutgoingNumber(), with "0" in front unless it is an extension.
    Q_INVOKABLE QString getPurifiedOutgoingNumber(const QString& number) const;
    /// A caller's number without the PBX's outbound prefix, once known.
    Q_INVOKABLE QString purifyIncomingNumber(const QString& number) const;
    /// Digits with an optional leading "+", once typed punctuation is removed.
    Q_INVOKABLE static bool isPhoneNum(const QString& number);
    /// A national mobile number (beginning with 3), bare or after the country code.
    Q_INVOKABLE static bool isMobileNum(const QString& number);
    /// One of the PBX's extensions; false before the extension list arrives.
    Q_INVOKABLE bool isExtenNum(const QString& number) const;
    /// The number with its last three characters hidden as "XXX".
    Q_INVOKABLE static QString numAnonymizer(const QString& number);
    /// Hardware address of the interface that holds `ip`, else of the last
    /// interface with a usable one; empty when none has.
    Q_INVOKABLE static QString getInterfaceMacAddress(const QString& ip);

    // ---- desk phone --------------------------------------------------------
    // The commands write from the caller's thread without a hop: call them on
    // the library's thread. A refused command is only logged.

    /// Dials `number` on the desk phone registered as `peer`.
    Q_INVOKABLE void phoneCommandMakeCall(const QString& number, const QString& peer);
    /// Puts the phone's line `lineId` on hold.
    Q_INVOKABLE void phoneCommandPutOnHold(const QString& lineId);
    /// Takes the line back from hold.
    Q_INVOKABLE void phoneCommandResumeFromHold(const QString& lineId);
    /// Sets the phone's unconditional forward to `number`.
    Q_INVOKABLE void phoneCommandUfwdSet(const QString& number, const QString& peer);
    /// Clears the phone's unconditional forward.
    Q_INVOKABLE void phoneCommandUfwdUnset(const QString& peer);
    /// Answers the call ringing on the line.
    Q_INVOKABLE void phoneCommandAnswerIncomingCall(const QString& lineId);
    /// Ends the call on the line.
    Q_INVOKABLE void phoneCommandHangupCall(const QString& lineId);
    /// Hands the call on the line over to `number` at once.
    Q_INVOKABLE void phoneCommandUnattendedTransfer(const QString& lineId, const QString& number);
    /// Hands the call on the line over to `number` after a word with them.
    Q_INVOKABLE void phoneCommandAttendedTransfer(const QString& lineId, const QString& number);
    /// The answer comes as phoneEventDnd().
    Q_INVOKABLE void phoneCommandGetDndStatus();
    /// Sends the valid one-character digits ("0"-"9", "*", "#") of `digits`.
    Q_INVOKABLE void phoneCommandSendDtmfs(const QString& lineId, const QStringList& digits);
    /// Presses the keys of `keys` that TELVIX::isValidPhoneKey() accepts.
    Q_INVOKABLE void phoneCommandPressKeys(const QStringList& keys);
    /// Sends ready-made XML as the body of a request.
    Q_INVOKABLE bool sendPlainRequest(const QString& body);

    // ---- contacts ----------------------------------------------------------
    // The merged contact book is the extension book first, then the server's
    // phone books; it is published by sigPhonebookChanged().

    /// `cached`: publish the book as it is, `types` unused. Otherwise ask the
    /// server for the general phone books (PhonebookTypePhonebooks) and the
    /// extension list (PhonebookTypeExtensions); the book follows when they
    /// arrive. Queued; always true.
    Q_INVOKABLE bool getContactsList(bool cached, QFlags<TELVIX::PhonebookTypeFlag> types);
    /// Stores a new contact on the server, as it is. Queued.
    Q_INVOKABLE bool addPhoneBookContact(const PhoneBookEntry& entry);
    /// Changes a server contact; refused (logged only) without a contact
    /// uuid. Queued.
    Q_INVOKABLE bool updatePhoneBookContact(const PhoneBookEntry& entry);
    /// Deletes a server contact by its uuid; refused (logged only) without
    /// one. Queued.
    Q_INVOKABLE bool deletePhoneBookContact(const PhoneBookEntry& entry);
    /// addPhoneBookContact() of the JSON form of PhoneBookEntry; false at once
    /// when the text gives no first, last or display name. The JSON form
    /// carries no contact uuid.
    Q_INVOKABLE bool addPhoneBookContactFromJson(const QString& json);
    /// updatePhoneBookContact() of the JSON form, parsed on the caller's thread.
    Q_INVOKABLE bool updatePhoneBookContactFromJson(const QString& json);
    /// deletePhoneBookContact() of the JSON form, parsed on the caller's thread.
    Q_INVOKABLE bool deletePhoneBookContactFromJson(const QString& json);
    /// The service dial codes as compact JSON: {"DialServicesCodes": [{"ServiceId",
    /// "Description", "Code"}, ...]} in ascending id order. Any thread.
    Q_INVOKABLE QString getServicesCodes() const;
    /// Always false: the outlook source is not part of this build.
    Q_INVOKABLE bool enableOutlookSupport(bool enable, const QStringList& folders);

    // ---- favourites --------------------------------------------------------
    // Kept in "srnt.ini" in the data directory, never on the server.

    /// Publishes the favourites by sigFavouritesChanged(), reading the file
    /// first when the list in memory is empty. Queued.
    Q_INVOKABLE bool getFavoriteList();
    /// Appends the entry (duplicates too) and saves. Call getFavoriteList()
    /// first: adding to a list never loaded overwrites the file. Queued.
    Q_INVOKABLE bool addFavourite(const FavoriteEntry& entry);
    /// Removes every equal entry and saves. Queued.
    Q_INVOKABLE bool deleteFavourite(const FavoriteEntry& entry);

    // ---- queues ------------------------------------------------------------
    // Requests for call-centre queues; all are queued and the answers arrive
    // as the queue signals.

    /// The queues of the PBX.
    Q_INVOKABLE bool getQueueList();
    /// Live statistics of every queue (sigAllQueuesStatsReceived()).
    Q_INVOKABLE bool getAllQueuesStats();
    /// Cumulative statistics of every queue; false, and nothing sent, when
    /// the server has no cumulative statistics. A custom period
    /// (TELVIX::PeriodCustom) is given by the valid ones of the two dates.
    Q_INVOKABLE bool getAllQueuePeriodicStats(TELVIX::PeriodType period, const QDateTime& start,
                                              const QDateTime& end);
    /// Cumulative statistics of every operator; as getAllQueuePeriodicStats().
    Q_INVOKABLE bool getAllQueueOperatorPeriodicStats(TELVIX::PeriodType period, const QDateTime& start,
                                                      const QDateTime& end);
    /// One request per queue.
    Q_INVOKABLE bool getQueuePeriodicStats(const QStringList& queues, TELVIX::PeriodType period,
                                           const QDateTime& start, const QDateTime& end);
    /// One request per queue and operator account.
    Q_INVOKABLE bool getQueueOperatorPeriodicStats(const QueueOperMap& queueOperators,
                                                   TELVIX::PeriodType period, const QDateTime& start,
                                                   const QDateTime& end);
    /// Pauses (or resumes) every SIP account of `exten` (the user's own when
    /// empty) in `queue` (every queue when empty).
    Q_INVOKABLE bool pauseQueues(bool pause, const QString& exten, const QString& reason,
                                 const QString& queue);
    /// Pauses (or resumes) the given operator accounts; an empty list means
    /// the user on servers of API "5.2" and later.
    Q_INVOKABLE bool pauseOperators(bool pause, const QStringList& operators, const QString& reason,
                                    const QString& queue);
    /// A negative `penalty` is not sent.
    Q_INVOKABLE bool addQueueDynamicMember(const QString& queueId, const QString& operatorId, int penalty);
    /// Takes a dynamic operator out of a queue.
    Q_INVOKABLE bool removeQueueDynamicMember(const QString& queueId, const QString& operatorId);
    /// Asks the server to build a call-centre report (sigCCReportSucceded()
    /// or sigCCReportFailure()).
    Q_INVOKABLE bool requestCCReport(TELVIX::PeriodType period, const QList<int>& attendedThresholds,
                                     const QList<int>& lostThresholds, const QString& locale,
                                     const QDateTime& start, const QDateTime& end);

    // ---- local server ------------------------------------------------------
    // A loopback TCP port on which one local application receives the
    // library's events as XML messages.

    /// Blocking. Creates and wires a new local server and starts it; the
    /// port, 0 when listening failed, -1 when the library's thread could not
    /// be reached. Call it once: a second call makes a second server.
    Q_INVOKABLE int initTcpServer();
    /// Blocking. The local server's port, 0 when there is none.
    Q_INVOKABLE int getTcpServerPort();
    /// Queued. Stops listening and drops the local client; the server keeps
    /// its wiring for restartTcpServer().
    Q_INVOKABLE bool closeTcpServer();
    /// Blocking. Closes and restarts the local server (creating it if
    /// needed); the port is new as a rule.
    Q_INVOKABLE int restartTcpServer();

    // ---- downloads ---------------------------------------------------------
    // Each download asks for an access token and fetches its file over a
    // connection of its own. Failures are not reported: the completion
    // signal just does not come.

    /// Saves the audio of voicemail message `id` as "<uuid>.wav" (PCM) in
    /// `folder`; blanks and slashes of `uuid` become "_". Answer:
    /// sigVoicemailDownloadCompleted().
    Q_INVOKABLE bool downloadVoicemailMessage(const QString& id, const QString& uuid, const QString& folder);
    /// Fetches the rebranding package into `folder` as "assets.zip", telling
    /// the server the MD5 of the copy at hand (empty: none). When the server
    /// holds no package, the file is removed. Answer:
    /// sigRebrandingDownloadCompleted().
    Q_INVOKABLE bool downloadRebrandingPackage(const QString& lastMd5, const QString& folder);

    // ---- chat ----------------------------------------------------------------
    // The application speaks of extensions; the chat server's JIDs stay inside.
    // An extension outside the last "ExtenList", or without a chat id there,
    // cannot be reached: the call logs "Failed to get chatID for exten" and
    // returns false.

    /// Creates (true) or drops (false) the chat client; no thread hop, call it
    /// on the library's thread. The server's chat settings do it by themselves.
    Q_INVOKABLE bool enableChatSupport(bool enable);
    /// Blocking. The chat client exists and is connected.
    Q_INVOKABLE bool isChatConnected();
    /// Queued. The user's own chat presence and status text.
    Q_INVOKABLE bool setClientPresence(TELVIX::ChatPresence presence, const QString& status);
    /// Queued. The sent message comes back as sigChatMessage() with its id.
    Q_INVOKABLE bool sendChatMessage(const QString& exten, const QString& body);
    /// Queued chat states towards `exten`.
    Q_INVOKABLE bool sendChatOpenConversation(const QString& exten);
    Q_INVOKABLE bool sendChatStartComposing(const QString& exten);
    Q_INVOKABLE bool sendChatStopComposing(const QString& exten);
    Q_INVOKABLE bool sendChatCloseConversation(const QString& exten);
    /// Queued. Tells `exten` that its messages were read.
    Q_INVOKABLE bool sendChatMessageDisplayed(const QString& exten);
    /// Blocking. Offers the file at `path` to `exten`, which must be online;
    /// returns the transfer's session id, empty when nothing was offered. The
    /// MIME type is guessed from the file name. Answers: sigChatFtSent() or
    /// sigChatFtError() with that id.
    Q_INVOKABLE QString sendChatFile(const QString& exten, const QString& path);
    /// Blocking. Offers `data` as the vCard "`fileName`.vcf"; as sendChatFile().
    Q_INVOKABLE QString sendChatVCard(const QString& exten, const QByteArray& data, const QString& fileName);
    /// Queued. Accepts the offer `sid` of sigChatFtRequest(); a file is
    /// stored in the directory `path` under a name that is free there, a vCard
    /// is kept in memory. Answers: sigChatFtStart(), sigChatFtProgress(),
    /// then sigChatFtComplete(), sigChatVcardComplete() or sigChatFtError().
    Q_INVOKABLE bool chatFtAccept(const QString& sid, const QString& path);
    /// Queued. Declines the offer `sid`.
    Q_INVOKABLE bool chatFtDecline(const QString& sid);
    /// Queued. Asks the server's archive for the messages after `since`, or
    /// for all of them when `since` is invalid; one query at a time, and a
    /// query without answer within 5 s gives none. Answer: sigChatHistory().
    Q_INVOKABLE bool getChatHistory(const QDateTime& since);
    /// The chat id of an extension, empty when unknown.
    Q_INVOKABLE QString chatIdFromExten(const QString& exten);
    /// The extension of a chat id, empty when unknown.
    Q_INVOKABLE QString extenFromchatId(const QString& chatId);
    /// Blocking. Ping interval of the chat link; the value is kept even when
    /// the chat client refuses it, and applies to any later chat client.
    Q_INVOKABLE bool setChatKeepAliveSendIntervalSec(int seconds);
    /// Blocking. The last value given to setChatKeepAliveSendIntervalSec().
    Q_INVOKABLE int getChatKeepAliveSendIntervalSec();

public Q_SLOTS:
    /// Keeps the outlook phone books and republishes the contact book with
    /// their flag; they do not enter the merged book.
    void onOutlookPhoneBookUpdated(const QList<PhoneBook>& books);

Q_SIGNALS:
    /// The session ended; `reason` is the word of the cause ("Unkown",
    /// "UserRequest", "ConnectionTimeout", the server's reason, ...).
    void disconnectedFromServer(QString reason);
    /// Login accepted, after all start-up requests are sent.
    void loggedToServer(LoginDetails details);
    /// Once, at the end of the thread's set-up.
    void sigThreadStarted();
    /// Heartbeat towards the application, see enableGuiKeepAlive().
    void sigGuiKeepAlive();

    // ---- server data -------------------------------------------------------
    /// The user's identities: a whole list or an update of some.
    void sigIdentitiesChanged(IdentityList identities);
    /// One extension's status changed.
    void sigExtenStatusChanged(BuddyStatus status);
    /// The status of every extension, by extension.
    void sigExtenStatusMapChanged(QMap<QString, BuddyStatus> statusMap);
    /// Call history: stored at login, asked for, or sent by the server.
    void sigCdrChanged(Cdr cdr);
    /// The answer to getVoicemail().
    void sigVoicemailMsgList(QList<VoicemailMessage> messages);
    /// A voicemail message's audio was saved to `file`.
    void sigVoicemailDownloadCompleted(QString messageId, QString messageUuid, QString file);
    /// A rebranding package was saved to `file`.
    void sigRebrandingDownloadCompleted(QString file);
    /// A new rebranding package waits on the server.
    void sigRebrandingPackageChanged();
    /// The voicemail counters changed or were asked for.
    void sigMailboxStatusChanged(MailboxStatus status);
    /// The user's service states: the whole list or one changed service.
    void sigServiceStatusChanged(QList<ServiceStatus> statusList);
    /// A token asked for by requestAccessToken(), valid until `expiry`.
    void sigAuthTokenReceived(QString token, QDateTime expiry);
    void sigAuthTokenError(QString error);
    void sigServerCommandResponse(ServerCommandResponse response);
    void sigDiagnosticMessageReceived(DiagnosticMessage message);
    /// Tenant UUID to domain.
    void sigTenantListReceived(QMap<QString, QString> tenants);
    void sigChannelStatusReceived(ChannelStatus status);
    /// The number of the fork-to-mobile service; empty when a whole service
    /// list holds none.
    void sigExtenMobileNumberRcvd(QString number);
    void sigSipSettingsReceived(SipConfiguration settings);
    void sigServicesCodesReceived(QMap<TELVIX::ServiceDialCodeType, QString> codes);
    void sigInCallServiceStatusReceived(InCallServiceStatus status);

    // ---- calls -------------------------------------------------------------
    // Desktop modes get the record forms, once per leg; the mobile modes (6,
    // 7) get the string forms, once per call.

    /// A call rings on one of the user's accounts.
    void sigIncomingCall(IncomingCallEvent event);
    /// Mobile modes: the first leg of a ringing call.
    void sigIncomingCall(QString uid, QString callerNum, QString calledNum, bool isC2c);
    /// The user placed a call.
    void sigOutgoingCall(OriginateCallEvent event);
    /// Mobile modes: the first leg of a placed call.
    void sigStartingCall(QString uid, QString callerNum, QString calledNum);
    /// `localAnswer` tells whether the user's side answered.
    void sigAnsweredCall(AnsweredCallEvent event);
    void sigAnsweredCall(QString uid, QString callerNum, QString calledNum);
    void sigFinishedCall(FinishedCallEvent event);
    /// Mobile modes: the call ended on its last leg; `isC2c` is always false.
    void sigFinishedCall(QString uid, QString callerNum, QString calledNum, bool isC2c);
    void sigMissedCall(MissedCallEvent event);
    /// Mobile modes: the call was missed on every leg.
    void sigMissedCall(QString uid, QString remoteNum);
    /// The server moved the user's side of a leg to another channel.
    void sigCallLocalInfoUpdate(CallLocalInfoUpdateEvent event);
    /// The other party of a leg changed.
    void sigColpUpdate(ColpUpdateEvent event);
    /// Mobile modes: an attended transfer was given up.
    void sigCallTransferCanceled(QString uid, QString reason);
    /// Mobile modes: an attended transfer began.
    void sigCallTransferStarted(TransferStartedCallEvent event);
    /// Mobile modes: an attended transfer went through.
    void sigCallTransferCompleted(TransferCompletedCallEvent event);
    /// For applications; the library never raises it.
    void sigCallInfoChanged(QString uid, QString num, QString name);
    /// Mobile modes: a click-to-call started (first leg).
    void sigC2cOriginate(QString uid, QString calledNum, QString callType);
    /// Mobile modes: a click-to-call ended (last leg).
    void sigC2cFinished(QString uid);
    /// For applications; the library never raises it.
    void sigNewParkCall(QString uid, QString num, QString name);

    // ---- chat --------------------------------------------------------------
    // Colleagues are named by extension; `sid` names a file transfer.
    void sigChatConnected();
    void sigChatDisconnected(QString reason);
    /// A message received, copied from another device of the user, or the
    /// echo of one sent (type "feedback", which carries its id).
    void sigChatMessage(ChatMessage message);
    void sigChatContactComposing(QString exten, QString threadId, bool composing);
    void sigChatMessageOffline(QString exten);
    void sigChatMessageDelivered(QString exten);
    void sigChatMessageDisplayed(QString exten);
    void sigChatFtRequest(QString sid, QString exten, QString fileName, QString mimeType);
    void sigChatFtStart(QString sid);
    void sigChatFtSent(QString sid);
    void sigChatFtComplete(QString sid, QString filePath);
    void sigChatVcardComplete(QString sid, QByteArray data);
    void sigChatFtError(QString sid);
    void sigChatFtProgress(QString sid, float progress);
    /// Archived messages asked for with getChatHistory().
    void sigChatHistory(QList<ChatMessage> messages);
    void sigChatHistoryEnabled(bool enabled);

    // ---- desk phone --------------------------------------------------------
    // Arguments are the other party's number and name, then the phone's call id.
    void phoneEventIncomingCall(QString num, QString name, QString callId);
    void phoneEventOutgoingCall(QString num, QString name, QString callId);
    void phoneEventEstablishedCall(QString num, QString name, QString callId);
    void phoneEventEndedCall(QString num, QString name, QString callId);
    void phoneEventMissedCall(QString num, QString name, QString callId);
    void phoneEventHoldCall(QString num, QString name, QString callId);
    void phoneEventUnholdCall(QString num, QString name, QString callId);
    /// Do-not-disturb on the phone is on (true) or off.
    void phoneEventDnd(bool on);
    /// The phone answered a command: raised before every phoneEventDnd().
    void sigPhoneApiAutorized(bool authorized);

    // ---- contacts and favourites ------------------------------------------
    /// The merged contact book and the sources that have reported; an empty
    /// book without flags at each login.
    void sigPhonebookChanged(QList<PhoneBook> books, QFlags<TELVIX::PhonebookTypeFlag> types);
    /// Answer to getFavoriteList().
    void sigFavouritesChanged(QList<FavoriteEntry> favourites);

    // ---- queues ------------------------------------------------------------
    // Operators are named by SIP account; `exten` fields hold the account's
    // extension, empty when it is not known.
    void sigQueueMemberAdded(QueueMember member);
    void sigQueueMemberRemoved(QueueMember member);
    void sigQueueMemberPauseChanged(QueueMember member, bool paused);
    void sigAllQueuesStatsReceived(QList<QueueStats> stats);
    void sigAllQueuesPeriodicStatsReceived(QueuePeriodicStatsList stats);
    void sigQueuePeriodicStatsReceived(QueuePeriodicStats stats);
    void sigAllQueueOperatorsPeriodicStatsReceived(QList<QueueOperatorPeriodicStats> stats);
    void sigQueueOperatorPeriodicStatsReceived(QueueOperatorPeriodicStats stats);
    /// For applications; the library never raises it.
    void sigQueueStatsReceived(QueueStats stats);
    /// A call entered or left a queue.
    void sigQueueEvent(QueueEvent event);
    /// For applications; the library never raises it.
    void sigUpdatedQueueListReceived(QMap<QString, QString> queues);
    /// The report asked for by requestCCReport().
    void sigCCReportSucceded(CallCenterReport report);
    void sigCCReportFailure(QString reason);

protected:
    void run() override;

private Q_SLOTS:
    void onThreadStarted();

private:
    void sendLineCommand(const QString& command, const QString& lineId);
    void sendTransferCommand(const QString& command, const QString& lineId, const QString& number);

private:
    Q_DECLARE_PRIVATE(Telvix)
    QScopedPointer<TelvixPrivate> d_ptr;
    friend class TelvixPrivate;
};
