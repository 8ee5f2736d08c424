#pragma once

#include "phonebook.h"
#include "sarnetxml.h"
#include "sxmlmessage.h"
#include "telvix_const.h"
#include "telvix_export.h"

#include <QList>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QStringList>

namespace SARNET_XML {

// The user's own SIP identities
inline const QString S_COMMAND_GET_IDENTITY_LIST = QStringLiteral("GetPeerStatus");
inline const QString S_EVENT_IDENTITIES = QStringLiteral("PeerStatusList");
inline const QString S_XMLTAG_IDENT_LIST = QStringLiteral("PeerStatusList");
inline const QString S_XMLTAG_IDENT_ENTRY = QStringLiteral("Peer");
inline const QString S_XMLTAG_IDENT_NAME = QStringLiteral("Name");
inline const QString S_XMLTAG_IDENT_TYPE = QStringLiteral("Type");
inline const QString S_XMLTAG_IDENT_APP_ACCOUNT = QStringLiteral("AppAccount");
inline const QString S_XMLTAG_IDENT_USER = QStringLiteral("User");
inline const QString S_XMLTAG_IDENT_PASSWORD = QStringLiteral("PWD");
inline const QString S_XMLTAG_IDENT_SIP_CODECS = QStringLiteral("SipCodecs");
inline const QString S_XMLTAG_IDENT_SIP_SIPTOS = QStringLiteral("SipTos");
inline const QString S_XMLTAG_IDENT_SIP_AUDIOTOS = QStringLiteral("AudioTos");
inline const QString S_XMLTAG_IDENT_SIP_VIDEOTOS = QStringLiteral("VideoTos");
inline const QString S_XMLTAG_IDENT_SIP_DTMFMODE = QStringLiteral("DtmfMode");
inline const QString S_XMLTAG_IDENT_REG_STATUS = QStringLiteral("Status");
inline const QString S_XMLTAG_IDENT_REG_IP = QStringLiteral("IP");
inline const QString S_XMLTAG_IDENT_REG_PORT = QStringLiteral("Port");
inline const QString S_XMLTAG_IDENT_REG_UA = QStringLiteral("UA");
inline const QString S_XMLTAG_IDENT_REG_CODECS = QStringLiteral("Codecs");
inline const QString S_XMLTAG_IDENT_DEVICE_ENTRY = QStringLiteral("Device");
inline const QString S_XMLTAG_IDENT_DEVICE_BRAND = QStringLiteral("Brand");
inline const QString S_XMLTAG_IDENT_DEVICE_MODEL = QStringLiteral("Model");
inline const QString S_XMLTAG_IDENT_DEVICE_MAC = QStringLiteral("MacAddress");
inline const QString S_XMLTAG_IDENT_DEVICE_NOTE = QStringLiteral("Note");

// The peers of all users
inline const QString S_COMMAND_GET_BUDDY_IDENTITY_LIST = QStringLiteral("GetPeerList");
inline const QString S_EVENT_BUDDY_IDENTITIES = QStringLiteral("PeerList");
inline const QString S_XMLTAG_BUDDY_IDENT_LIST = QStringLiteral("PeerList");
inline const QString S_XMLTAG_BUDDY_IDENT_ENTRY = QStringLiteral("Peer");
inline const QString S_XMLTAG_BUDDY_IDENT_NAME = QStringLiteral("Name");
inline const QString S_XMLTAG_BUDDY_IDENT_TYPE = QStringLiteral("Type");
inline const QString S_XMLTAG_BUDDY_IDENT_EXTEN = QStringLiteral("Exten");

// The extensions with their persons
inline const QString S_COMMAND_GET_BUDDY_LIST = QStringLiteral("GetExtenList");
inline const QString S_EVENT_BUDDIES = QStringLiteral("ExtenList");
inline const QString S_XMLTAG_BUD_ROOT = QStringLiteral("ExtenList");
inline const QString S_XMLTAG_BUD_ENTRY = QStringLiteral("User");
inline const QString S_XMLTAG_BUD_FIRST = QStringLiteral("First");
inline const QString S_XMLTAG_BUD_LAST = QStringLiteral("Last");
inline const QString S_XMLTAG_BUD_CONTACT = QStringLiteral("Contact");
inline const QString S_XMLTAG_BUD_CONTACTTYPE = QStringLiteral("Type");
inline const QString S_XMLTAG_BUD_CONTACTVALUE = QStringLiteral("Value");
inline const QString S_XMLTAG_BUD_COMPANY = QStringLiteral("Company");
inline const QString S_XMLTAG_BUD_UNIT = QStringLiteral("Unit");
inline const QString S_XMLTAG_BUD_CONTACTUUID = QStringLiteral("ContactUuid");

// The live state of the extensions
inline const QString S_COMMAND_GET_BUDDY_STATUS_LIST = QStringLiteral("GetExtenStatus");
inline const QString S_EVENT_BUD_STATUS_LIST = QStringLiteral("ExtenStatusList");
inline const QString S_EVENT_BUD_STATUS = QStringLiteral("ExtenStatus");
inline const QString S_XMLTAG_BUD_STATUS = QStringLiteral("ExtenStatus");
inline const QString S_XMLTAG_BUD_EXTEN = QStringLiteral("Exten");
inline const QString S_XMLTAG_BUD_LOGGED = QStringLiteral("CtiLogged");
inline const QString S_XMLTAG_BUD_QPAUSED = QStringLiteral("QPaused");
inline const QString S_XMLTAG_BUD_BLFCTX = QStringLiteral("BlfContext");
inline const QString S_XMLTAG_BUD_BLFSTATUS = QStringLiteral("BlfStatus");

} // namespace SARNET_XML

/// One of the user's own SIP identities, with its registration and device.
class TELVIX_EXPORT IdentityEntry
{
    Q_GADGET
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(QString type MEMBER type)
    Q_PROPERTY(bool appAccount MEMBER appAccount)
    Q_PROPERTY(QString user MEMBER user)
    Q_PROPERTY(QString password MEMBER password)
    Q_PROPERTY(QStringList codecs MEMBER codecs)
    Q_PROPERTY(quint8 sipTos MEMBER sipTos)
    Q_PROPERTY(quint8 audioTos MEMBER audioTos)
    Q_PROPERTY(quint8 videoTos MEMBER videoTos)
    Q_PROPERTY(TELVIX::DtmfMode dtmfMode MEMBER dtmfMode)
    Q_PROPERTY(QString regStatus MEMBER regStatus)
    Q_PROPERTY(QString regIp MEMBER regIp)
    Q_PROPERTY(quint16 regPort MEMBER regPort)
    Q_PROPERTY(QString regUa MEMBER regUa)
    Q_PROPERTY(QString deviceBrand MEMBER deviceBrand)
    Q_PROPERTY(QString deviceModel MEMBER deviceModel)
    Q_PROPERTY(QString deviceMac MEMBER deviceMac)
    Q_PROPERTY(QString deviceNote MEMBER deviceNote)

public:
    /// The SIP account; mandatory.
    QString name;
    QString type;
    bool appAccount = false;
    QString user;
    QString password;
    QStringList codecs;
    quint8 sipTos = 0;
    quint8 audioTos = 0;
    quint8 videoTos = 0;
    TELVIX::DtmfMode dtmfMode = TELVIX::DtmfNone;
    QString regStatus;
    QString regIp;
    quint16 regPort = 0;
    QString regUa;
    QString deviceBrand;
    QString deviceModel;
    QString deviceMac;
    QString deviceNote;

    bool operator==(const IdentityEntry& other) const;
    bool operator!=(const IdentityEntry& other) const { return !(*this == other); }
};

/// One SIP peer of any user, with the extension it belongs to.
class TELVIX_EXPORT BuddyIdentityEntry
{
    Q_GADGET
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(QString type MEMBER type)
    Q_PROPERTY(QString exten MEMBER exten)

public:
    /// The SIP account; mandatory.
    QString name;
    QString type;
    QString exten;

    bool operator==(const BuddyIdentityEntry& other) const;
    bool operator!=(const BuddyIdentityEntry& other) const { return !(*this == other); }
};

/// One extension of the PBX with its person.
class TELVIX_EXPORT BuddyEntry
{
    Q_GADGET
    Q_PROPERTY(QString firstName MEMBER firstName)
    Q_PROPERTY(QString lastName MEMBER lastName)
    Q_PROPERTY(QString fullName MEMBER fullName)
    Q_PROPERTY(QString exten MEMBER exten)
    Q_PROPERTY(QString company MEMBER company)
    Q_PROPERTY(QString unit MEMBER unit)
    Q_PROPERTY(QString chatId MEMBER chatId)
    Q_PROPERTY(QString contactUuid MEMBER contactUuid)

public:
    QString firstName;
    QString lastName;
    /// First and last name joined by one blank, trimmed.
    QString fullName;
    /// Mandatory.
    QString exten;
    QString company;
    QString unit;
    /// Lower case.
    QString chatId;
    QString contactUuid;

    bool operator==(const BuddyEntry& other) const;
    bool operator!=(const BuddyEntry& other) const { return !(*this == other); }
};

/// The live state of one extension. The wire fills the CTI and lamp fields;
/// chat presence and the SIP accounts are laid over them by the client.
class TELVIX_EXPORT BuddyStatus
{
    Q_GADGET
    Q_PROPERTY(QString exten MEMBER exten)
    Q_PROPERTY(TELVIX::ChatPresence presence MEMBER presence)
    Q_PROPERTY(QString presenceText MEMBER presenceText)
    Q_PROPERTY(bool ctiLogged MEMBER ctiLogged)
    Q_PROPERTY(bool queuePaused MEMBER queuePaused)
    Q_PROPERTY(QString blfContext MEMBER blfContext)
    Q_PROPERTY(TELVIX::BlfStatus blfStatus MEMBER blfStatus)
    Q_PROPERTY(QStringList contacts MEMBER contacts)

public:
    /// Mandatory.
    QString exten;
    /// Not known until chat reports it.
    TELVIX::ChatPresence presence = TELVIX::ChatPresenceInvalid;
    QString presenceText;
    bool ctiLogged = false;
    bool queuePaused = false;
    QString blfContext;
    /// The wire sends the number, not the text.
    TELVIX::BlfStatus blfStatus = TELVIX::BlfUnknown;
    /// SIP accounts of the extension.
    QStringList contacts;

    bool operator==(const BuddyStatus& other) const;
    bool operator!=(const BuddyStatus& other) const { return !(*this == other); }
};

typedef QList<IdentityEntry> IdentityList;
typedef QList<BuddyIdentityEntry> BuddyIdentityList;
typedef QMap<QString, BuddyStatus> BuddyStatusMap;

/// The extensions of the PBX as the client keeps them.
class TELVIX_EXPORT BuddyBook : public QList<BuddyEntry>
{
public:
    using QList<BuddyEntry>::QList;
    BuddyBook() = default;
    BuddyBook(const QList<BuddyEntry>& entries)
        : QList<BuddyEntry>(entries)
    {
    }

    /// The extensions as a phone book of type PB_EXTEN, leaving out those in
    /// `excluded`; each person is reachable by one (phone, exten) contact.
    PhoneBook toPhoneBook(const QStringList& excluded) const;
};

Q_DECLARE_METATYPE(IdentityEntry)
Q_DECLARE_METATYPE(BuddyIdentityEntry)
Q_DECLARE_METATYPE(BuddyEntry)
Q_DECLARE_METATYPE(BuddyStatus)
Q_DECLARE_METATYPE(BuddyBook)

/// Asks for the user's own identities.
class TELVIX_EXPORT GetIdentitiesReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;
};

/// Asks for the SIP peers of all users.
class TELVIX_EXPORT GetBuddyIdentitiesReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;
};

/// Asks for the extension list.
class TELVIX_EXPORT GetBuddiesReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;
};

/// Asks for the status of all extensions.
class TELVIX_EXPORT GetExtenStatusReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;
};

/// The user's identities ("PeerStatusList"), or an update of some of them
/// (bare "Peer" elements). Entries without a name are skipped.
class TELVIX_EXPORT IdentitiesRespMsg : public SXmlResponseMessage
{
public:
    static IdentitiesRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    IdentityList identities;
};

/// The SIP peers of all users. Entries without a name are skipped.
class TELVIX_EXPORT BuddyIdentitiesRespMsg : public SXmlResponseMessage
{
public:
    static BuddyIdentitiesRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    BuddyIdentityList buddyIdentities;
};

/// The extension list. Entries without an extension are skipped.
class TELVIX_EXPORT BuddiesRespMsg : public SXmlResponseMessage
{
public:
    static BuddiesRespMsg parseMessage(const QString& xml);
    QString generateXmlMessageBody() const override;

    BuddyBook buddies;
};

/// Status of extensions by extension; a later entry for the same extension
/// replaces an earlier one. Entries without an extension are skipped.
class TELVIX_EXPORT ExtenStatusRespMsg : public SXmlResponseMessage
{
public:
    static ExtenStatusRespMsg parseMessage(const QString& xml);
    /// Writes the wire fields only: presence and accounts are not on the wire.
    QString generateXmlMessageBody() const override;

    BuddyStatusMap statusMap;
};
