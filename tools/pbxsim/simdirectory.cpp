#include "simdirectory.h"

#include "jsonconvert.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QUuid>

#include <algorithm>

namespace {

void registerTypes()
{
    qRegisterMetaType<SimExtension>("SimExtension");
}
Q_CONSTRUCTOR_FUNCTION(registerTypes)

const QString HistoryDateFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss");

// Callers from outside the PBX that the seeded history and voicemail show.
struct Outsider
{
    const char* number;
    const char* name;
};
const Outsider Outsiders[] = {{"0612345678", "Laura Bianchi"},
                              {"0287654321", "Marco Verdi"},
                              {"00493012345678", "Nora Fischer"},
                              {"3391122334", "Oscar Delgado"}};

CdrEntry historyEntry(const QString& caller, const QString& callerName, const QString& callee,
                      const QString& calleeName, int direction, int status, const QDateTime& start,
                      int duration)
{
    CdrEntry e;
    e.caller = caller;
    e.callerName = callerName;
    e.callee = callee;
    e.calleeName = calleeName;
    e.direction = direction;
    e.status = status;
    e.directionText = CDR::directionText(direction);
    e.statusText = CDR::statusText(status);
    e.startTime = start.toString(HistoryDateFormat);
    e.duration = duration;
    return e;
}

} // namespace

SimDirectory SimDirectory::builtIn()
{
    SimDirectory directory;
    QString error;
    if (!load(QStringLiteral(":/pbxsim/directory.json"), &directory, &error))
        qFatal("built-in directory: %s", qPrintable(error));
    return directory;
}

bool SimDirectory::load(const QString& path, SimDirectory* directory, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    QJsonParseError parsed;
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &parsed);
    if (!doc.isObject()) {
        *error = QStringLiteral("%1: not a JSON object (%2)").arg(path, parsed.errorString());
        return false;
    }
    SimDirectory d;
    QSet<QString> extens;
    const QJsonArray extensions = doc.object().value(QLatin1String("extensions")).toArray();
    for (int i = 0; i < extensions.size(); ++i) {
        QString why;
        const QVariant v = JsonConvert::fromJson(extensions.at(i), qMetaTypeId<SimExtension>(), &why);
        const SimExtension ext = v.value<SimExtension>();
        if (!v.isValid() || ext.exten.isEmpty() || extens.contains(ext.exten)) {
            *error = QStringLiteral("%1: extension %2: %3")
                         .arg(path)
                         .arg(i + 1)
                         .arg(why.isEmpty() ? QStringLiteral("missing or repeated \"exten\"") : why);
            return false;
        }
        extens.insert(ext.exten);
        d.m_extensions.append(ext);
    }
    if (d.m_extensions.isEmpty()) {
        *error = QStringLiteral("%1: no extensions").arg(path);
        return false;
    }
    const QJsonArray book = doc.object().value(QLatin1String("phoneBook")).toArray();
    for (int i = 0; i < book.size(); ++i) {
        QString why;
        const QVariant v = JsonConvert::fromJson(book.at(i), qMetaTypeId<PhoneBookEntry>(), &why);
        if (!v.isValid()) {
            *error = QStringLiteral("%1: phone book entry %2: %3").arg(path).arg(i + 1).arg(why);
            return false;
        }
        PhoneBookEntry entry = v.value<PhoneBookEntry>();
        d.m_publicBook.append(d.savePrivateContact(QString(), entry));
    }
    d.m_privateBooks.clear();
    d.completeDefaults();
    d.seedMailboxesAndHistory();
    *directory = d;
    return true;
}

void SimDirectory::completeDefaults()
{
    for (SimExtension& e : m_extensions) {
        if (e.password.isEmpty())
            e.password = e.exten;
        if (e.accounts.isEmpty())
            e.accounts = QStringList {e.exten, e.exten + QLatin1String("_app")};
        if (e.chatId.isEmpty() && !e.firstName.isEmpty())
            e.chatId = (e.firstName + QLatin1Char('.') + e.lastName).toLower() + QLatin1String("@default");
        if (e.email.isEmpty() && !e.firstName.isEmpty())
            e.email
                = (e.firstName + QLatin1Char('.') + e.lastName).toLower() + QLatin1String("@telvix.example");
        if (e.company.isEmpty())
            e.company = QStringLiteral("Telvix Demo");
        m_services[e.exten]
            = {ServiceStatus {QStringLiteral("ufwd"), QStringLiteral("exten"), QString(), 0},
               ServiceStatus {QStringLiteral("forktomobile"), QStringLiteral("exten"), e.mobileNumber, 0}};
    }
}

void SimDirectory::seedMailboxesAndHistory()
{
    const QDateTime now = QDateTime::currentDateTime();
    const int n = m_extensions.size();
    QList<CdrEntry> seeded;
    for (int i = 0; i < n; ++i) {
        const SimExtension& me = m_extensions.at(i);
        const SimExtension& next = m_extensions.at((i + 1) % n);
        const SimExtension& other = m_extensions.at((i + 2) % n);
        const Outsider& out = Outsiders[i % 4];
        const QString outNumber = QString::fromLatin1(out.number);
        const QString outName = QString::fromLatin1(out.name);
        const QDateTime base = now.addSecs(-3600 * 26 + 600 * i);
        if (n > 1) {
            seeded << historyEntry(me.exten, me.fullName(), next.exten, next.fullName(), 4, 8, base, 95);
            if (n > 2)
                seeded << historyEntry(other.exten, other.fullName(), me.exten, me.fullName(), 4, 4,
                                       base.addSecs(5400), 0);
        }
        seeded << historyEntry(outNumber, outName, me.exten, me.fullName(), 1, 8, base.addSecs(9000), 241);
        seeded << historyEntry(me.exten, me.fullName(), outNumber, outName, 2, 4, base.addSecs(20000), 0);

        VoicemailMessage fresh;
        fresh.id = QStringLiteral("%1-1").arg(me.exten);
        fresh.messageUuid = QUuid::createUuid().toString(QUuid::WithoutBraces);
        fresh.callerNumber = outNumber;
        fresh.callerName = outName;
        fresh.date = now.addSecs(-1800 - 60 * i);
        fresh.originMailbox = me.exten;
        fresh.duration = 23;
        fresh.isNew = true;
        VoicemailMessage heard = fresh;
        heard.id = QStringLiteral("%1-2").arg(me.exten);
        heard.messageUuid = QUuid::createUuid().toString(QUuid::WithoutBraces);
        heard.callerNumber = next.exten;
        heard.callerName = next.fullName();
        heard.date = now.addDays(-2);
        heard.duration = 9;
        heard.isNew = false;
        m_voicemail[me.exten] = {fresh, heard};
    }
    std::sort(seeded.begin(), seeded.end(),
              [](const CdrEntry& a, const CdrEntry& b) { return a.startTime < b.startTime; });
    for (const CdrEntry& e : qAsConst(seeded))
        addHistory(e);
}

const SimExtension* SimDirectory::extension(const QString& exten) const
{
    for (const SimExtension& e : m_extensions) {
        if (e.exten == exten)
            return &e;
    }
    return nullptr;
}

QString SimDirectory::extenOfAccount(const QString& account) const
{
    for (const SimExtension& e : m_extensions) {
        if (e.accounts.contains(account))
            return e.exten;
    }
    return QString();
}

IdentityList SimDirectory::identities(const QString& exten) const
{
    IdentityList list;
    const SimExtension* e = extension(exten);
    if (!e)
        return list;
    for (const QString& account : e->accounts) {
        IdentityEntry id;
        id.name = account;
        id.type = QStringLiteral("SIP");
        id.appAccount = account.endsWith(QLatin1String("_app"));
        id.user = account;
        id.password = QStringLiteral("sip-") + account;
        id.codecs = QStringList {QStringLiteral("opus"), QStringLiteral("alaw"), QStringLiteral("ulaw")};
        id.sipTos = 104;
        id.audioTos = 184;
        id.dtmfMode = TELVIX::DtmfRfc2833;
        id.regStatus = QStringLiteral("OK");
        id.regIp = QStringLiteral("127.0.0.1");
        id.regPort = 5060;
        id.regUa = id.appAccount ? QStringLiteral("Telvix softphone") : QStringLiteral("Telvix desk phone");
        list.append(id);
    }
    return list;
}

BuddyIdentityList SimDirectory::peers() const
{
    BuddyIdentityList list;
    for (const SimExtension& e : m_extensions) {
        for (const QString& account : e.accounts)
            list.append(BuddyIdentityEntry {account, QStringLiteral("SIP"), e.exten});
    }
    return list;
}

BuddyBook SimDirectory::buddies() const
{
    BuddyBook book;
    for (const SimExtension& e : m_extensions) {
        BuddyEntry b;
        b.firstName = e.firstName;
        b.lastName = e.lastName;
        b.fullName = e.fullName();
        b.exten = e.exten;
        b.company = e.company;
        b.unit = e.unit;
        b.chatId = e.chatId;
        b.contactUuid = QStringLiteral("exten-") + e.exten;
        book.append(b);
    }
    return book;
}

BuddyStatus SimDirectory::status(const QString& exten) const
{
    BuddyStatus s;
    s.exten = exten;
    s.ctiLogged = m_sessions.value(exten) > 0;
    s.blfContext = QStringLiteral("default");
    s.blfStatus = m_blf.value(exten, TELVIX::BlfIdle);
    return s;
}

BuddyStatusMap SimDirectory::statusMap() const
{
    BuddyStatusMap map;
    for (const SimExtension& e : m_extensions)
        map.insert(e.exten, status(e.exten));
    return map;
}

QList<PhoneBook> SimDirectory::phoneBooks(const QString& exten) const
{
    // The wire keeps no owner for written entries: the user's own contacts
    // travel in the same book.
    PhoneBook book;
    book.entries = m_publicBook + m_privateBooks.value(exten);
    book.type = PHONEBOOK::PB_VANTOR;
    book.name = QStringLiteral("Company directory");
    book.folder = PHONEBOOK::PB_FOLDER_PUBLIC;
    return {book};
}

PhoneBookEntry SimDirectory::savePrivateContact(const QString& exten, PhoneBookEntry entry)
{
    // Cached numbers follow the contacts, whatever the JSON said.
    const QList<ContactEntry> contacts = entry.contacts;
    const QString display = entry.displayName;
    PhoneBookEntry clean = entry;
    clean.contacts.clear();
    clean.email.clear();
    clean.extenNumber.clear();
    clean.workNumber.clear();
    clean.mobileNumber.clear();
    clean.homeNumber.clear();
    for (const ContactEntry& c : contacts)
        clean.addContact(c);
    clean.displayName
        = display.isEmpty() ? PhoneBookEntry::joinNames(clean.firstName, clean.lastName) : display;
    if (clean.contactUuid.isEmpty())
        clean.contactUuid = QStringLiteral("contact-%1").arg(m_nextContact++);
    if (exten.isEmpty())
        return clean;
    QList<PhoneBookEntry>& book = m_privateBooks[exten];
    for (PhoneBookEntry& old : book) {
        if (old.contactUuid == clean.contactUuid) {
            old = clean;
            return clean;
        }
    }
    book.append(clean);
    return clean;
}

bool SimDirectory::deletePrivateContact(const QString& exten, const QString& contactUuid)
{
    QList<PhoneBookEntry>& book = m_privateBooks[exten];
    const int before = book.size();
    book.erase(
        std::remove_if(book.begin(), book.end(),
                       [&contactUuid](const PhoneBookEntry& e) { return e.contactUuid == contactUuid; }),
        book.end());
    return book.size() != before;
}

Cdr SimDirectory::history(const QString& exten, const QString& lastEntryUid) const
{
    Cdr cdr;
    const qint64 after = lastEntryUid.toLongLong();
    for (const CdrEntry& e : m_history) {
        if ((e.caller == exten || e.callee == exten) && e.entryUid.toLongLong() > after)
            cdr.append(e);
    }
    return cdr;
}

CdrEntry SimDirectory::addHistory(CdrEntry entry)
{
    entry.entryUid = QString::number(m_nextEntryUid++);
    m_history.append(entry);
    return entry;
}

QList<VoicemailMessage> SimDirectory::voicemail(const QString& exten, TELVIX::VmMsgTypeFlag types) const
{
    QList<VoicemailMessage> list;
    for (const VoicemailMessage& m : m_voicemail.value(exten)) {
        const bool wanted = (m.isNew && (types & TELVIX::VmMsgFlagNew))
            || (!m.isNew && (types & TELVIX::VmMsgFlagOld))
            || (m.isUrgent && (types & TELVIX::VmMsgFlagUrgent));
        if (wanted)
            list.append(m);
    }
    return list;
}

MailboxStatus SimDirectory::mailbox(const QString& exten) const
{
    MailboxStatus s;
    s.mailbox = exten + QLatin1String("@default");
    for (const VoicemailMessage& m : m_voicemail.value(exten)) {
        if (m.isUrgent)
            ++s.urgentCount;
        if (m.isNew)
            ++s.newCount;
        else
            ++s.oldCount;
    }
    s.waiting = s.newCount > 0;
    return s;
}

bool SimDirectory::deleteVoicemail(const QString& exten, const QString& id)
{
    QList<VoicemailMessage>& box = m_voicemail[exten];
    const int before = box.size();
    box.erase(std::remove_if(box.begin(), box.end(), [&id](const VoicemailMessage& m) { return m.id == id; }),
              box.end());
    return box.size() != before;
}

bool SimDirectory::markVoicemail(const QString& exten, const QString& id, TELVIX::VmMsgType type)
{
    for (VoicemailMessage& m : m_voicemail[exten]) {
        if (m.id != id)
            continue;
        m.isNew = type == TELVIX::VmMsgNew;
        m.isUrgent = type == TELVIX::VmMsgUrgent;
        return true;
    }
    return false;
}

QList<ServiceStatus> SimDirectory::services(const QString& exten) const
{
    return m_services.value(exten);
}

ServiceStatus SimDirectory::setService(const QString& exten, const QString& id, bool on, const QString& value)
{
    for (ServiceStatus& s : m_services[exten]) {
        if (s.id != id)
            continue;
        s.status = on ? 1 : 0;
        if (id == QLatin1String("ufwd"))
            s.value = on ? value : QString();
        return s;
    }
    return ServiceStatus {};
}

void SimDirectory::setLoggedIn(const QString& exten, bool in)
{
    m_sessions[exten] = qMax(0, m_sessions.value(exten) + (in ? 1 : -1));
}

void SimDirectory::setBlfStatus(const QString& exten, TELVIX::BlfStatus status)
{
    m_blf[exten] = status;
}
