#include "persistence.h"

#include "telvix_const.h"

namespace {
void registerPersistenceTypes()
{
    qRegisterMetaType<SmsEntry>("SmsEntry");
    qRegisterMetaType<QList<SmsEntry>>("QList<SmsEntry>");
}

// A valid present time only moves forward; an invalid one takes anything.
void advanceTime(QDateTime& present, const QDateTime& candidate)
{
    if (!present.isValid() || (candidate.isValid() && candidate > present))
        present = candidate;
}
} // namespace

Q_CONSTRUCTOR_FUNCTION(registerPersistenceTypes)

Persistence::~Persistence() = default;

bool Persistence::open()
{
    updateLastCdrEntryUid();
    updateLastPbTime();
    return true;
}

void Persistence::close() { }

bool Persistence::readCdr()
{
    return true;
}

bool Persistence::writeCdr(const Cdr& entries)
{
    if (entries.isEmpty())
        return true;
    m_cdr.append(entries);
    updateLastCdrEntryUid();
    return true;
}

bool Persistence::readPhoneBook()
{
    return true;
}

bool Persistence::writePhoneBook(const QList<PhoneBook>& books)
{
    if (books.isEmpty())
        return true;
    m_phoneBook = books;
    updateLastPbTime();
    return true;
}

bool Persistence::readSmsList()
{
    return true;
}

bool Persistence::writeSmsList(const QList<SmsEntry>& list)
{
    if (list.isEmpty())
        return true;
    m_smsList.append(list);
    updateLastSmsTime();
    return true;
}

void Persistence::updateLastCdrEntryUid()
{
    if (!m_cdr.isEmpty())
        setLastCdrEntryUid(m_cdr.last().entryUid);
}

void Persistence::updateLastPbTime() { }

void Persistence::updateLastSmsTime()
{
    if (!m_smsList.isEmpty())
        setLastSmsTime(QDateTime::fromString(m_smsList.last().sendTime, TELVIX::IsoDateNoTz));
}

Cdr& Persistence::cdr()
{
    readCdr();
    return m_cdr;
}

bool Persistence::appendCdr(const Cdr& entries)
{
    return writeCdr(entries);
}

void Persistence::setLastCdrEntryUid(const QString& uid)
{
    // Uids compare as text, as the server orders them: "99" follows "100".
    if (m_lastCdrEntryUid < uid)
        m_lastCdrEntryUid = uid;
}

QList<PhoneBook>& Persistence::phoneBook()
{
    readPhoneBook();
    return m_phoneBook;
}

bool Persistence::setPhoneBook(const QList<PhoneBook>& books)
{
    return writePhoneBook(books);
}

void Persistence::setLastPhoneBookTime(const QDateTime& time)
{
    advanceTime(m_lastPhoneBookTime, time);
}

QList<SmsEntry>& Persistence::smsList()
{
    readSmsList();
    return m_smsList;
}

bool Persistence::appendSmsList(const QList<SmsEntry>& list)
{
    return writeSmsList(list);
}

void Persistence::setLastSmsTime(const QDateTime& time)
{
    advanceTime(m_lastSmsTime, time);
}
