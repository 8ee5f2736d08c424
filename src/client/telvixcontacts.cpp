// The contact book: the extensions and the server's phone books merged into
// the one list that applications show, and the contact edits on the server.
#include "telvix_p.h"

#include "directorymessages.h"
#include "phonebookmessages.h"
#include "servicemessages.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace {
// The outlook source has no enumerator of its own: it is not part of this
// build, but its flag is still reported when an application feeds its books.
constexpr TELVIX::PhonebookTypeFlag PhonebookTypeOutlook = TELVIX::PhonebookTypeFlag(0x4);

bool hasNoName(const PhoneBookEntry& entry)
{
    return entry.firstName.isEmpty() && entry.lastName.isEmpty() && entry.displayName.isEmpty();
}

// The JSON forms parse on the caller's thread and log from there.
bool parsedFromJson(Logger* logger, const char* function, const QString& json, const char* verb,
                    PhoneBookEntry& entry)
{
    entry = PhoneBookEntry::fromJson(json);
    if (!hasNoName(entry))
        return true;
    TelvixLogLine(logger, 100, function)
        << QStringLiteral("Could not parse the contact to be %1 from json string: ").arg(QLatin1String(verb))
        << json;
    return false;
}
} // namespace

// ---- public facade ------------------------------------------------------

bool Telvix::getContactsList(bool cached, QFlags<TELVIX::PhonebookTypeFlag> types)
{
    TELVIX_QUEUED_UNCHECKED(d->getContactsList(cached, types));
}

bool Telvix::addPhoneBookContact(const PhoneBookEntry& entry)
{
    TELVIX_QUEUED(d->addPhoneBookContact(entry));
}

bool Telvix::updatePhoneBookContact(const PhoneBookEntry& entry)
{
    TELVIX_QUEUED(d->updatePhoneBookContact(entry));
}

bool Telvix::deletePhoneBookContact(const PhoneBookEntry& entry)
{
    TELVIX_QUEUED(d->deletePhoneBookContact(entry));
}

bool Telvix::addPhoneBookContactFromJson(const QString& json)
{
    PhoneBookEntry entry;
    if (!parsedFromJson(d_func()->logger, Q_FUNC_INFO, json, "added", entry))
        return false;
    return addPhoneBookContact(entry);
}

bool Telvix::updatePhoneBookContactFromJson(const QString& json)
{
    PhoneBookEntry entry;
    if (!parsedFromJson(d_func()->logger, Q_FUNC_INFO, json, "updated", entry))
        return false;
    return updatePhoneBookContact(entry);
}

bool Telvix::deletePhoneBookContactFromJson(const QString& json)
{
    PhoneBookEntry entry;
    if (!parsedFromJson(d_func()->logger, Q_FUNC_INFO, json, "deleted", entry))
        return false;
    return deletePhoneBookContact(entry);
}

QString Telvix::getServicesCodes() const
{
    const ServicesDialCodes& dialCodes = d_func()->servicesDialCodes;
    // Every id that has a description or a code, in ascending order.
    QList<TELVIX::ServiceDialCodeType> ids = dialCodes.descriptions.keys();
    for (TELVIX::ServiceDialCodeType id : dialCodes.codes.keys()) {
        if (!dialCodes.descriptions.contains(id))
            ids.append(id);
    }
    std::sort(ids.begin(), ids.end());

    QJsonArray services;
    for (TELVIX::ServiceDialCodeType id : ids) {
        const QString unknown = QStringLiteral("Unknown service with id: %1").arg(int(id));
        QJsonObject service;
        service.insert(QStringLiteral("ServiceId"), int(id));
        service.insert(QStringLiteral("Description"), dialCodes.descriptions.value(id, unknown));
        service.insert(QStringLiteral("Code"), dialCodes.codes.value(id, unknown));
        services.append(service);
    }
    QJsonObject root;
    root.insert(QStringLiteral("DialServicesCodes"), services);
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Compact));
}

bool Telvix::enableOutlookSupport(bool enable, const QStringList& folders)
{
    Q_UNUSED(enable)
    Q_UNUSED(folders)
    Logger* logger = d_func()->logger;
    TLOG(100) << "Outlook support is not built!";
    return false;
}

void Telvix::onOutlookPhoneBookUpdated(const QList<PhoneBook>& books)
{
    Q_D(Telvix);
    TelvixHop::queued(this, [d, books] {
        d->onOutlookPhoneBookUpdated(books);
        return true;
    });
}

// ---- the merged book ----------------------------------------------------

bool TelvixPrivate::getContactsList(bool cached, TELVIX::PhonebookTypeFlags types)
{
    Q_Q(Telvix);
    if (cached) {
        Q_EMIT q->sigPhonebookChanged(m_contactsBook, m_phonebookFlags);
        return true;
    }
    if (types.testFlag(TELVIX::PhonebookTypePhonebooks))
        getPhoneBook();
    if (types.testFlag(TELVIX::PhonebookTypeExtensions))
        getExtenList();
    return true;
}

void TelvixPrivate::updateContactsBook()
{
    Q_Q(Telvix);
    TLOG(10000) << "STARTED to update contacts book...";
    m_contactsBook.clear();
    m_contactsBook.append(m_buddyPhoneBook);
    m_contactsBook.append(m_serverPhoneBooks);
    Q_EMIT q->sigPhonebookChanged(m_contactsBook, m_phonebookFlags);
    TLOG(10000) << "FINISHED to update contacts book...";
}

void TelvixPrivate::resetContactsBook()
{
    Q_Q(Telvix);
    m_contactsBook.clear();
    m_phonebookFlags = {};
    Q_EMIT q->sigPhonebookChanged(m_contactsBook, m_phonebookFlags);
}

void TelvixPrivate::onOutlookPhoneBookUpdated(const QList<PhoneBook>& books)
{
    if (!m_outlookPhoneBooks.isSharedWith(books))
        m_outlookPhoneBooks = books;
    m_phonebookFlags |= PhonebookTypeOutlook;
    updateContactsBook();
}

void TelvixPrivate::rowPhoneBook(const QString& xml, DispatchContext& ctx)
{
    auto msg
        = parseRow<PBookRespMsg>(xml, ctx, logger, Q_FUNC_INFO, {1000, "Invalid General PhoneBook received"});
    if (!msg.success)
        return;
    if (phoneBookTimer && phoneBookTimer->isActive())
        phoneBookTimer->stop();
    TLOG(1000) << "Received a valid phonebook, going to update contacts...";
    // Taken over rather than shared: the removal below would otherwise copy
    // every entry of a book that may hold tens of thousands.
    m_serverPhoneBooks = std::move(msg.phoneBooks);
    m_phonebookFlags |= TELVIX::PhonebookTypePhonebooks;
    // The user is not a contact of his own.
    for (PhoneBook& book : m_serverPhoneBooks) {
        const auto own = [this](const PhoneBookEntry& entry) {
            return entry.extenNumber.compare(exten, Qt::CaseInsensitive) == 0;
        };
        book.entries.erase(std::remove_if(book.entries.begin(), book.entries.end(), own), book.entries.end());
    }
    updateContactsBook();
}

void TelvixPrivate::rowExtenList(const QString& xml, DispatchContext& ctx)
{
    const auto msg
        = parseRow<BuddiesRespMsg>(xml, ctx, logger, Q_FUNC_INFO, {1000, "Invalid Exten PhoneBook received"});
    if (!msg.success)
        return;
    TLOG(1000) << "Received a valid exten pbook, going to update contacts...";
    extensions = msg.buddies;
    m_phonebookFlags |= TELVIX::PhonebookTypeExtensions;
    m_buddyPhoneBook = msg.buddies.toPhoneBook(QStringList {exten});
    updateContactsBook();

    // Chat ids of the colleagues; an extension without one cannot chat,
    // which presence -1 tells the application.
    chatIdToExten.clear();
    extenToChatId.clear();
    for (const BuddyEntry& buddy : msg.buddies) {
        if (buddy.chatId.isEmpty()) {
            BuddyStatus& status = extenStatus[buddy.exten];
            status.exten = buddy.exten;
            status.presence = TELVIX::ChatPresenceInvalid;
            status.presenceText.clear();
            continue;
        }
        chatIdToExten.insert(buddy.chatId, buddy.exten);
        extenToChatId.insert(buddy.exten, buddy.chatId);
        if (!extenStatus.contains(buddy.exten)) {
            BuddyStatus offline;
            offline.exten = buddy.exten;
            offline.presence = TELVIX::ChatPresenceOffline;
            extenStatus.insert(buddy.exten, offline);
        }
    }
    startChatAfterExtenList();
}

// ---- contact edits ------------------------------------------------------

bool TelvixPrivate::addPhoneBookContact(const PhoneBookEntry& entry)
{
    AddPBookContactReqMsg request(entry);
    return send(request);
}

bool TelvixPrivate::updatePhoneBookContact(const PhoneBookEntry& entry)
{
    if (entry.contactUuid.isEmpty()) {
        TLOG(10) << "The contact uuid of the contact to be updated is empty, cannot complete operation";
        TLOG(10) << "The offending contact is: " << entry.toString();
        return false;
    }
    UpdatePBookContactReqMsg request(entry);
    return send(request);
}

bool TelvixPrivate::deletePhoneBookContact(const PhoneBookEntry& entry)
{
    if (entry.contactUuid.isEmpty()) {
        TLOG(10) << "The contact uuid of the contact to be deleted is empty, cannot complete operation";
        TLOG(10) << "The offending contact is: " << entry.toString();
        return false;
    }
    DeletePBookContactReqMsg request(entry.contactUuid);
    return send(request);
}
