#include "directorymessages.h"

#include "jsonconvert.h"
#include "messagereader.h"
#include "xmlbodywriter.h"

using namespace SARNET_XML;
using namespace MessageReader;

namespace {

void registerDirectoryTypes()
{
    qRegisterMetaType<IdentityEntry>("IdentityEntry");
    qRegisterMetaType<BuddyIdentityEntry>("BuddyIdentityEntry");
    qRegisterMetaType<BuddyEntry>("BuddyEntry");
    qRegisterMetaType<BuddyStatus>("BuddyStatus");
    qRegisterMetaType<BuddyBook>("BuddyBook");
    qRegisterMetaType<IdentityList>("IdentityList");
    qRegisterMetaType<IdentityList>("QList<IdentityEntry>");
    qRegisterMetaType<BuddyIdentityList>("QList<BuddyIdentityEntry>");
    qRegisterMetaType<QList<BuddyEntry>>("QList<BuddyEntry>");
    qRegisterMetaType<BuddyStatusMap>("QMap<QString,BuddyStatus>");
    JsonConvert::registerMapType<BuddyStatusMap>();
}

// The wire's booleans are the numbers 1 and 0.
QString wireBool(bool value)
{
    return value ? QStringLiteral("1") : QStringLiteral("0");
}

// Codec lists keep their empty parts: "a,,b" is three codecs.
QStringList splitCodecs(const QString& text)
{
    return text.split(QLatin1Char(','), Qt::KeepEmptyParts);
}

// Servers before 5.2 expect the request element as an open/close pair.
QString peerRequestBody(const QString& api, const QString& command)
{
    if (ApiText::atLeast(api, "5.2"))
        return EMPTYTAG(command);
    return QStringLiteral("<%1></%1>").arg(command);
}

// Each reader fills its record from one entry's text and tells whether the
// entry is valid.
bool readIdentity(QStringView xml, IdentityEntry& entry)
{
    entry.name = text(xml, S_XMLTAG_IDENT_NAME);
    entry.type = text(xml, S_XMLTAG_IDENT_TYPE);
    entry.appAccount = isOne(xml, S_XMLTAG_IDENT_APP_ACCOUNT);
    entry.user = text(xml, S_XMLTAG_IDENT_USER);
    entry.password = text(xml, S_XMLTAG_IDENT_PASSWORD);
    entry.codecs = splitCodecs(text(xml, S_XMLTAG_IDENT_SIP_CODECS));
    if (entry.codecs.isEmpty())
        entry.codecs = splitCodecs(text(xml, S_XMLTAG_IDENT_REG_CODECS));
    entry.sipTos = static_cast<quint8>(toUShort(xml, S_XMLTAG_IDENT_SIP_SIPTOS));
    entry.audioTos = static_cast<quint8>(toUShort(xml, S_XMLTAG_IDENT_SIP_AUDIOTOS));
    entry.videoTos = static_cast<quint8>(toUShort(xml, S_XMLTAG_IDENT_SIP_VIDEOTOS));
    entry.dtmfMode = TELVIX::dtmfModeFromString(text(xml, S_XMLTAG_IDENT_SIP_DTMFMODE));
    entry.regStatus = text(xml, S_XMLTAG_IDENT_REG_STATUS);
    entry.regIp = text(xml, S_XMLTAG_IDENT_REG_IP);
    entry.regPort = toUShort(xml, S_XMLTAG_IDENT_REG_PORT);
    entry.regUa = text(xml, S_XMLTAG_IDENT_REG_UA);
    // The device fields sit inside "Device"; the flat lookup finds them there.
    entry.deviceBrand = text(xml, S_XMLTAG_IDENT_DEVICE_BRAND);
    entry.deviceModel = text(xml, S_XMLTAG_IDENT_DEVICE_MODEL);
    entry.deviceMac = text(xml, S_XMLTAG_IDENT_DEVICE_MAC);
    entry.deviceNote = text(xml, S_XMLTAG_IDENT_DEVICE_NOTE);
    return !entry.name.isEmpty();
}

void writeIdentity(XmlBodyWriter& body, const IdentityEntry& entry)
{
    body.start(S_XMLTAG_IDENT_ENTRY)
        .text(S_XMLTAG_IDENT_NAME, entry.name)
        .text(S_XMLTAG_IDENT_TYPE, entry.type)
        .text(S_XMLTAG_IDENT_APP_ACCOUNT, wireBool(entry.appAccount))
        .text(S_XMLTAG_IDENT_USER, entry.user)
        .text(S_XMLTAG_IDENT_PASSWORD, entry.password)
        .text(S_XMLTAG_IDENT_SIP_CODECS, entry.codecs.join(QLatin1Char(',')))
        .text(S_XMLTAG_IDENT_SIP_SIPTOS, entry.sipTos)
        .text(S_XMLTAG_IDENT_SIP_AUDIOTOS, entry.audioTos)
        .text(S_XMLTAG_IDENT_SIP_VIDEOTOS, entry.videoTos)
        .text(S_XMLTAG_IDENT_SIP_DTMFMODE, TELVIX::dtmfModeToString(entry.dtmfMode))
        .text(S_XMLTAG_IDENT_REG_STATUS, entry.regStatus)
        .text(S_XMLTAG_IDENT_REG_IP, entry.regIp)
        .text(S_XMLTAG_IDENT_REG_PORT, entry.regPort)
        .text(S_XMLTAG_IDENT_REG_UA, entry.regUa)
        .start(S_XMLTAG_IDENT_DEVICE_ENTRY)
        .text(S_XMLTAG_IDENT_DEVICE_BRAND, entry.deviceBrand)
        .text(S_XMLTAG_IDENT_DEVICE_MODEL, entry.deviceModel)
        .text(S_XMLTAG_IDENT_DEVICE_MAC, entry.deviceMac)
        .text(S_XMLTAG_IDENT_DEVICE_NOTE, entry.deviceNote)
        .end()
        .end();
}

bool readBuddyIdentity(QStringView xml, BuddyIdentityEntry& entry)
{
    entry.name = text(xml, S_XMLTAG_BUDDY_IDENT_NAME);
    entry.type = text(xml, S_XMLTAG_BUDDY_IDENT_TYPE);
    entry.exten = text(xml, S_XMLTAG_BUDDY_IDENT_EXTEN);
    return !entry.name.isEmpty();
}

// The extension is the value of the person's first contact of type "exten".
QString extenOfBuddy(QStringView xml)
{
    const QVector<QStringView> contacts = entries(xml, S_XMLTAG_BUD_CONTACT);
    for (const QStringView contact : contacts) {
        if (text(contact, S_XMLTAG_BUD_CONTACTTYPE) == PHONEBOOK::CTYPE_LABEL_EXTEN)
            return text(contact, S_XMLTAG_BUD_CONTACTVALUE);
    }
    return QString();
}

bool readBuddy(QStringView xml, BuddyEntry& entry)
{
    entry.firstName = text(xml, S_XMLTAG_BUD_FIRST);
    entry.lastName = text(xml, S_XMLTAG_BUD_LAST);
    entry.fullName = PhoneBookEntry::joinNames(entry.firstName, entry.lastName);
    entry.exten = extenOfBuddy(xml);
    entry.company = text(xml, S_XMLTAG_BUD_COMPANY);
    entry.unit = text(xml, S_XMLTAG_BUD_UNIT);
    entry.chatId = text(xml, S_XMLTAG_CHAT_ID).toLower();
    entry.contactUuid = text(xml, S_XMLTAG_BUD_CONTACTUUID);
    return !entry.exten.isEmpty();
}

bool readBuddyStatus(QStringView xml, BuddyStatus& status)
{
    status.exten = text(xml, S_XMLTAG_BUD_EXTEN);
    status.ctiLogged = isOne(xml, S_XMLTAG_BUD_LOGGED);
    status.queuePaused = isOne(xml, S_XMLTAG_BUD_QPAUSED);
    status.blfContext = text(xml, S_XMLTAG_BUD_BLFCTX);
    bool readable = false;
    const int blf = text(xml, S_XMLTAG_BUD_BLFSTATUS).toInt(&readable, 10);
    status.blfStatus = readable ? static_cast<TELVIX::BlfStatus>(blf) : TELVIX::BlfUnknown;
    return !status.exten.isEmpty();
}

} // namespace

Q_CONSTRUCTOR_FUNCTION(registerDirectoryTypes)

bool IdentityEntry::operator==(const IdentityEntry& other) const
{
    return name == other.name && type == other.type && appAccount == other.appAccount && user == other.user
        && password == other.password && codecs == other.codecs && sipTos == other.sipTos
        && audioTos == other.audioTos && videoTos == other.videoTos && dtmfMode == other.dtmfMode
        && regStatus == other.regStatus && regIp == other.regIp && regPort == other.regPort
        && regUa == other.regUa && deviceBrand == other.deviceBrand && deviceModel == other.deviceModel
        && deviceMac == other.deviceMac && deviceNote == other.deviceNote;
}

bool BuddyIdentityEntry::operator==(const BuddyIdentityEntry& other) const
{
    return name == other.name && type == other.type && exten == other.exten;
}

bool BuddyEntry::operator==(const BuddyEntry& other) const
{
    return firstName == other.firstName && lastName == other.lastName && fullName == other.fullName
        && exten == other.exten && company == other.company && unit == other.unit && chatId == other.chatId
        && contactUuid == other.contactUuid;
}

bool BuddyStatus::operator==(const BuddyStatus& other) const
{
    return exten == other.exten && presence == other.presence && presenceText == other.presenceText
        && ctiLogged == other.ctiLogged && queuePaused == other.queuePaused && blfContext == other.blfContext
        && blfStatus == other.blfStatus && contacts == other.contacts;
}

PhoneBook BuddyBook::toPhoneBook(const QStringList& excluded) const
{
    PhoneBook book;
    book.type = PHONEBOOK::PB_EXTEN;
    for (const BuddyEntry& buddy : *this) {
        if (excluded.contains(buddy.exten))
            continue;
        PhoneBookEntry entry;
        entry.firstName = buddy.firstName;
        entry.lastName = buddy.lastName;
        if (!buddy.fullName.isEmpty())
            entry.displayName = buddy.fullName;
        entry.company = buddy.company;
        entry.unit = buddy.unit;
        entry.contactUuid = buddy.contactUuid;
        ContactEntry exten;
        exten.kind = PHONEBOOK::CTYPE_KIND_PHONE;
        exten.label = PHONEBOOK::CTYPE_LABEL_EXTEN;
        exten.value = buddy.exten;
        entry.addContact(exten);
        book.entries.append(entry);
    }
    return book;
}

QString GetIdentitiesReqMsg::generateXmlMessageBody() const
{
    return peerRequestBody(api, S_COMMAND_GET_IDENTITY_LIST);
}

QString GetBuddyIdentitiesReqMsg::generateXmlMessageBody() const
{
    return peerRequestBody(api, S_COMMAND_GET_BUDDY_IDENTITY_LIST);
}

QString GetBuddiesReqMsg::generateXmlMessageBody() const
{
    return EMPTYTAG(S_COMMAND_GET_BUDDY_LIST);
}

QString GetExtenStatusReqMsg::generateXmlMessageBody() const
{
    return EMPTYTAG(S_COMMAND_GET_BUDDY_STATUS_LIST);
}

IdentitiesRespMsg IdentitiesRespMsg::parseMessage(const QString& xml)
{
    const ListWords words {QStringLiteral("IdentityList request failed: "), S_XMLTAG_IDENT_ENTRY,
                           QStringLiteral("parsed an invalid IdentityEntry msg"),
                           QStringLiteral("parsed an empty IdentityList msg, i.e. exten has no identities"),
                           QStringLiteral("IdentityList msg parsed ok")};
    return readList<IdentitiesRespMsg>(xml, words, [](IdentitiesRespMsg& msg, QStringView entryXml) {
        return appendEntry(msg.identities, entryXml, readIdentity);
    });
}

QString IdentitiesRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_IDENT_LIST);
    for (const IdentityEntry& entry : identities)
        writeIdentity(body, entry);
    return body.result();
}

BuddyIdentitiesRespMsg BuddyIdentitiesRespMsg::parseMessage(const QString& xml)
{
    const ListWords words {QStringLiteral("BuddyIdentityList request failed: "), S_XMLTAG_BUDDY_IDENT_ENTRY,
                           QStringLiteral("parsed an invalid BuddyIdentityEntry msg"),
                           QStringLiteral("parsed an empty BuddyIdentityList msg"),
                           QStringLiteral("BuddyIdentityList msg parsed ok")};
    return readList<BuddyIdentitiesRespMsg>(
        xml, words, [](BuddyIdentitiesRespMsg& msg, QStringView entryXml) {
            return appendEntry(msg.buddyIdentities, entryXml, readBuddyIdentity);
        });
}

QString BuddyIdentitiesRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_BUDDY_IDENT_LIST);
    for (const BuddyIdentityEntry& entry : buddyIdentities) {
        body.start(S_XMLTAG_BUDDY_IDENT_ENTRY)
            .text(S_XMLTAG_BUDDY_IDENT_NAME, entry.name)
            .text(S_XMLTAG_BUDDY_IDENT_TYPE, entry.type)
            .text(S_XMLTAG_BUDDY_IDENT_EXTEN, entry.exten)
            .end();
    }
    return body.result();
}

BuddiesRespMsg BuddiesRespMsg::parseMessage(const QString& xml)
{
    const ListWords words {QStringLiteral("Buddies request failed: "), S_XMLTAG_BUD_ENTRY,
                           QStringLiteral("parsed an invalid BuddyEntry msg"), QString(),
                           QStringLiteral("BuddyList msg parsed ok")};
    return readList<BuddiesRespMsg>(xml, words, [](BuddiesRespMsg& msg, QStringView entryXml) {
        return appendEntry<BuddyEntry>(msg.buddies, entryXml, readBuddy);
    });
}

QString BuddiesRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_BUD_ROOT);
    for (const BuddyEntry& entry : buddies) {
        body.start(S_XMLTAG_BUD_ENTRY)
            .text(S_XMLTAG_BUD_CONTACTUUID, entry.contactUuid)
            .text(S_XMLTAG_BUD_FIRST, entry.firstName)
            .text(S_XMLTAG_BUD_LAST, entry.lastName)
            .text(S_XMLTAG_BUD_COMPANY, entry.company)
            .text(S_XMLTAG_BUD_UNIT, entry.unit)
            .text(S_XMLTAG_CHAT_ID, entry.chatId)
            .start(S_XMLTAG_BUD_CONTACT)
            .text(S_XMLTAG_BUD_CONTACTTYPE, PHONEBOOK::CTYPE_LABEL_EXTEN)
            .text(S_XMLTAG_BUD_CONTACTVALUE, entry.exten)
            .end()
            .end();
    }
    return body.result();
}

ExtenStatusRespMsg ExtenStatusRespMsg::parseMessage(const QString& xml)
{
    const ListWords words {QStringLiteral("Buddies status request failed: "), S_XMLTAG_BUD_STATUS,
                           QStringLiteral("parsed an invalid BuddyStatus msg"),
                           QStringLiteral("parsed an empty BuddyStatusMap msg"),
                           QStringLiteral("BuddyStatusMap msg parsed ok")};
    return readList<ExtenStatusRespMsg>(xml, words, [](ExtenStatusRespMsg& msg, QStringView entryXml) {
        BuddyStatus status;
        if (!readBuddyStatus(entryXml, status))
            return false;
        msg.statusMap.insert(status.exten, status);
        return true;
    });
}

QString ExtenStatusRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_EVENT_BUD_STATUS_LIST);
    for (const BuddyStatus& status : statusMap) {
        body.start(S_XMLTAG_BUD_STATUS)
            .text(S_XMLTAG_BUD_EXTEN, status.exten)
            .text(S_XMLTAG_BUD_LOGGED, wireBool(status.ctiLogged))
            .text(S_XMLTAG_BUD_QPAUSED, wireBool(status.queuePaused))
            .text(S_XMLTAG_BUD_BLFCTX, status.blfContext)
            .text(S_XMLTAG_BUD_BLFSTATUS, status.blfStatus)
            .end();
    }
    return body.result();
}
