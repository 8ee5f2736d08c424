#pragma once

#include "cdrmessages.h"
#include "phonebook.h"
#include "telvix_export.h"

#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QString>

/// One SMS of the user: text, the other party and when it was sent.
class TELVIX_EXPORT SmsEntry
{
    Q_GADGET
    Q_PROPERTY(QString body MEMBER body)
    Q_PROPERTY(QString number MEMBER number)
    Q_PROPERTY(QString sendTime MEMBER sendTime)

public:
    QString body;
    /// The other party's number.
    QString number;
    /// In TELVIX::IsoDateNoTz.
    QString sendTime;

    bool operator==(const SmsEntry& other) const
    {
        return body == other.body && number == other.number && sendTime == other.sendTime;
    }
    bool operator!=(const SmsEntry& other) const { return !(*this == other); }
};

Q_DECLARE_METATYPE(SmsEntry)

/// \brief The user's call history, phone books and SMS list kept between
/// sessions.
///
/// This class keeps everything in memory; PersistenceSqlite keeps it in a
/// scrambled file. The "last" markers tell what to ask the server for next
/// and never go back.
class TELVIX_EXPORT Persistence
{
public:
    Persistence() = default;
    virtual ~Persistence();
    Persistence(const Persistence&) = delete;
    Persistence& operator=(const Persistence&) = delete;

    virtual bool open();
    virtual void close();
    virtual bool readCdr();
    virtual bool writeCdr(const Cdr& entries);
    virtual bool readPhoneBook();
    virtual bool writePhoneBook(const QList<PhoneBook>& books);
    virtual bool readSmsList();
    virtual bool writeSmsList(const QList<SmsEntry>& list);
    virtual void updateLastCdrEntryUid();
    virtual void updateLastPbTime();
    virtual void updateLastSmsTime();

    /// The whole history, oldest entry uid first, read first if needed.
    Cdr& cdr();
    bool appendCdr(const Cdr& entries);
    QString lastCdrEntryUid() const { return m_lastCdrEntryUid; }
    /// Keeps `uid` only if it is greater, as text, than the present one.
    void setLastCdrEntryUid(const QString& uid);

    QList<PhoneBook>& phoneBook();
    bool setPhoneBook(const QList<PhoneBook>& books);
    QDateTime lastPhoneBookTime() const { return m_lastPhoneBookTime; }
    /// Keeps a valid, later time; anything replaces an invalid one.
    void setLastPhoneBookTime(const QDateTime& time);

    QList<SmsEntry>& smsList();
    bool appendSmsList(const QList<SmsEntry>& list);
    QDateTime lastSmsTime() const { return m_lastSmsTime; }
    /// Same rule as setLastPhoneBookTime().
    void setLastSmsTime(const QDateTime& time);

protected:
    Cdr m_cdr;
    QList<PhoneBook> m_phoneBook;
    QList<SmsEntry> m_smsList;
    QString m_lastCdrEntryUid;
    QDateTime m_lastPhoneBookTime;
    QDateTime m_lastSmsTime;
};
