#pragma once

#include <QString>

class SimDirectory;
class SXmlMessage;

/// \brief What the simulator's parts (call engine, request answers,
/// scenarios) need from the whole: the directory, the sessions to write to,
/// and the log.
class SimHub
{
public:
    virtual ~SimHub() = default;

    virtual SimDirectory& directory() = 0;
    /// Writes `message` to every session logged in as `exten`.
    virtual void sendToExten(const QString& exten, SXmlMessage& message) = 0;
    /// Writes `message` to every logged-in session.
    virtual void sendToAll(SXmlMessage& message) = 0;
    /// Tells every logged-in session the new status of `exten`.
    virtual void extenStatusChanged(const QString& exten) = 0;
    virtual void log(const QString& line) = 0;
    /// Port of the chat server that logins are told about; 0: no chat.
    virtual int chatPort() const = 0;
};
