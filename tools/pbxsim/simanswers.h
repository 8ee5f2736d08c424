#pragma once

#include <QHash>
#include <QString>

class CallEngine;
class SimDownloads;
class SimHub;
class SimSession;

/// \brief The simulator's answers to what a logged-in client asks, one row
/// per request element: directory and status, phone book, history,
/// voicemail, services, configuration, tokens, server commands, and the call
/// commands, which go to the call engine.
class SimAnswers
{
public:
    SimAnswers(SimHub& hub, CallEngine& calls, SimDownloads& downloads);

    /// False when the request is not one the simulator knows.
    bool answer(SimSession& session, const QString& element, const QString& xml);

private:
    using Row = void (SimAnswers::*)(SimSession&, const QString&);

    void identities(SimSession& s, const QString& xml);
    void peerList(SimSession& s, const QString& xml);
    void extenList(SimSession& s, const QString& xml);
    void extenStatus(SimSession& s, const QString& xml);
    void phoneBook(SimSession& s, const QString& xml);
    void saveContact(SimSession& s, const QString& xml);
    void deleteContact(SimSession& s, const QString& xml);
    void callHistory(SimSession& s, const QString& xml);
    void serviceStatus(SimSession& s, const QString& xml);
    void setForward(SimSession& s, const QString& xml);
    void unsetForward(SimSession& s, const QString& xml);
    void setForkToMobile(SimSession& s, const QString& xml);
    void unsetForkToMobile(SimSession& s, const QString& xml);
    void serviceCodes(SimSession& s, const QString& xml);
    void ctiConfiguration(SimSession& s, const QString& xml);
    void mailboxStatus(SimSession& s, const QString& xml);
    void voicemailList(SimSession& s, const QString& xml);
    void deleteVoicemail(SimSession& s, const QString& xml);
    void markVoicemail(SimSession& s, const QString& xml);
    void accessToken(SimSession& s, const QString& xml);
    void channelStatus(SimSession& s, const QString& xml);
    void tenantList(SimSession& s, const QString& xml);
    void subscribeTenant(SimSession& s, const QString& xml);
    void serverCommand(SimSession& s, const QString& xml);
    void makeCall(SimSession& s, const QString& xml);
    void hangup(SimSession& s, const QString& xml);
    void redirectCall(SimSession& s, const QString& xml);
    void redirectToMobile(SimSession& s, const QString& xml);
    void bridge(SimSession& s, const QString& xml);
    void park(SimSession& s, const QString& xml);
    void phoneCommand(SimSession& s, const QString& xml);

    void sendServiceChange(SimSession& s, const QString& id, bool on, const QString& value);
    void sendMailbox(SimSession& s);

    SimHub& m_hub;
    CallEngine& m_calls;
    SimDownloads& m_downloads;
    QHash<QString, Row> m_rows;
};
