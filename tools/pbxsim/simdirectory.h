#pragma once

#include "cdrmessages.h"
#include "directorymessages.h"
#include "phonebook.h"
#include "servicemessages.h"
#include "voicemailmessages.h"

#include <QHash>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringList>

/// \brief One extension of the simulated PBX, as written in a directory file.
/// Fields left out get defaults: the password is the extension, the SIP
/// accounts are the extension and "<exten>_app", the chat id is
/// "<first>.<last>@default".
class SimExtension
{
    Q_GADGET
    Q_PROPERTY(QString exten MEMBER exten)
    Q_PROPERTY(QString firstName MEMBER firstName)
    Q_PROPERTY(QString lastName MEMBER lastName)
    Q_PROPERTY(QString password MEMBER password)
    Q_PROPERTY(QStringList accounts MEMBER accounts)
    Q_PROPERTY(QString chatId MEMBER chatId)
    Q_PROPERTY(QString mobileNumber MEMBER mobileNumber)
    Q_PROPERTY(QString email MEMBER email)
    Q_PROPERTY(QString company MEMBER company)
    Q_PROPERTY(QString unit MEMBER unit)

public:
    QString exten;
    QString firstName;
    QString lastName;
    QString password;
    QStringList accounts;
    QString chatId;
    QString mobileNumber;
    QString email;
    QString company;
    QString unit;

    QString fullName() const { return PhoneBookEntry::joinNames(firstName, lastName); }
};
Q_DECLARE_METATYPE(SimExtension)

/// \brief Everything the simulated PBX knows: its people, their phone books,
/// call history, voicemail and service states, and who is logged in.
class SimDirectory
{
public:
    /// The built-in directory: extensions 1000 to 1009 and a public phone book.
    static SimDirectory builtIn();
    /// Reads a directory file: {"extensions": [...], "phoneBook": [...]}, the
    /// phone book entries in the JSON form of PhoneBookEntry.
    static bool load(const QString& path, SimDirectory* directory, QString* error);

    const QList<SimExtension>& extensions() const { return m_extensions; }
    const SimExtension* extension(const QString& exten) const;
    /// The extension that owns a SIP account, empty if none does.
    QString extenOfAccount(const QString& account) const;

    IdentityList identities(const QString& exten) const;
    BuddyIdentityList peers() const;
    BuddyBook buddies() const;
    BuddyStatus status(const QString& exten) const;
    BuddyStatusMap statusMap() const;

    /// The public book, and the private book of `exten` when it has entries.
    QList<PhoneBook> phoneBooks(const QString& exten) const;
    /// Adds or replaces (by contact uuid) an entry of `exten`'s private book.
    PhoneBookEntry savePrivateContact(const QString& exten, PhoneBookEntry entry);
    bool deletePrivateContact(const QString& exten, const QString& contactUuid);

    /// History entries of `exten` newer than `lastEntryUid` (all when empty).
    Cdr history(const QString& exten, const QString& lastEntryUid) const;
    /// Stores a finished call for both parties; gives it its entry uid.
    CdrEntry addHistory(CdrEntry entry);

    QList<VoicemailMessage> voicemail(const QString& exten, TELVIX::VmMsgTypeFlag types) const;
    MailboxStatus mailbox(const QString& exten) const;
    bool deleteVoicemail(const QString& exten, const QString& id);
    bool markVoicemail(const QString& exten, const QString& id, TELVIX::VmMsgType type);

    QList<ServiceStatus> services(const QString& exten) const;
    /// Turns the forward ("ufwd", with its target) or "forktomobile" on or off.
    ServiceStatus setService(const QString& exten, const QString& id, bool on,
                             const QString& value = QString());

    /// Sessions logged in as `exten`; the status shows CtiLogged while any is.
    void setLoggedIn(const QString& exten, bool in);
    void setBlfStatus(const QString& exten, TELVIX::BlfStatus status);

private:
    void completeDefaults();
    void seedMailboxesAndHistory();

    QList<SimExtension> m_extensions;
    QList<PhoneBookEntry> m_publicBook;
    QHash<QString, QList<PhoneBookEntry>> m_privateBooks;
    QList<CdrEntry> m_history;
    QHash<QString, QList<VoicemailMessage>> m_voicemail;
    QHash<QString, QList<ServiceStatus>> m_services;
    QHash<QString, int> m_sessions;
    QHash<QString, TELVIX::BlfStatus> m_blf;
    int m_nextEntryUid = 1000;
    int m_nextContact = 1;
};
