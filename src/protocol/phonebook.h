#pragma once

#include "telvix_export.h"

#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QString>

/// Names of phone book sources, folders and contact kinds and labels, shared
/// by the phone book messages, the extension book and the contact book.
namespace PHONEBOOK {

inline const QString PB_VANTOR = QStringLiteral("vantor");
inline const QString PB_EXTEN = QStringLiteral("exten");
inline const QString PB_ZARAFA = QStringLiteral("zarafa");
inline const QString PB_OUTLOOK = QStringLiteral("outlook");
inline const QString PB_FOLDER_PUBLIC = QStringLiteral("Public");
inline const QString PB_FOLDER_PRIVATE = QStringLiteral("Private");

inline const QString CTYPE_KIND_PHONE = QStringLiteral("phone");
inline const QString CTYPE_KIND_EMAIL = QStringLiteral("email");
inline const QString CTYPE_KIND_IM = QStringLiteral("im");
inline const QString CTYPE_KIND_EXTEN = QStringLiteral("exten");
inline const QString CTYPE_KIND_OTHER = QStringLiteral("other");

inline const QString CTYPE_LABEL_MAIN = QStringLiteral("main");
inline const QString CTYPE_LABEL_WORK = QStringLiteral("work");
inline const QString CTYPE_LABEL_HOME = QStringLiteral("home");
inline const QString CTYPE_LABEL_MOBILE = QStringLiteral("mobile");
inline const QString CTYPE_LABEL_WORK_MOBILE = QStringLiteral("work_mobile");
inline const QString CTYPE_LABEL_FAX = QStringLiteral("fax");
inline const QString CTYPE_LABEL_EXTEN = QStringLiteral("exten");

} // namespace PHONEBOOK

/// One way to reach a person: a typed, labelled value.
class TELVIX_EXPORT ContactEntry
{
    Q_GADGET
    Q_PROPERTY(QString kind MEMBER kind)
    Q_PROPERTY(QString label MEMBER label)
    Q_PROPERTY(QString value MEMBER value)
    Q_PROPERTY(bool primary MEMBER primary)

public:
    /// One of the PHONEBOOK::CTYPE_KIND_... names.
    QString kind;
    /// One of the PHONEBOOK::CTYPE_LABEL_... names.
    QString label;
    QString value;
    bool primary = false;

    bool operator==(const ContactEntry& other) const;
    bool operator!=(const ContactEntry& other) const { return !(*this == other); }
};

/// A person of a phone book: the full list of contacts, plus the usual
/// numbers cached beside it so that applications need not walk the list.
class TELVIX_EXPORT PhoneBookEntry
{
    Q_GADGET
    Q_PROPERTY(QList<ContactEntry> contacts MEMBER contacts)
    Q_PROPERTY(QString firstName MEMBER firstName)
    Q_PROPERTY(QString lastName MEMBER lastName)
    Q_PROPERTY(QString displayName MEMBER displayName)
    Q_PROPERTY(QString company MEMBER company)
    Q_PROPERTY(QString unit MEMBER unit)
    Q_PROPERTY(QString address MEMBER address)
    Q_PROPERTY(QString contactUuid MEMBER contactUuid)
    Q_PROPERTY(qint32 contactType MEMBER contactType)
    Q_PROPERTY(QString email MEMBER email)
    Q_PROPERTY(QString extenNumber MEMBER extenNumber)
    Q_PROPERTY(QString workNumber MEMBER workNumber)
    Q_PROPERTY(QString mobileNumber MEMBER mobileNumber)
    Q_PROPERTY(QString homeNumber MEMBER homeNumber)

public:
    QList<ContactEntry> contacts;
    QString firstName;
    QString lastName;
    /// First and last name joined by one blank, unless given otherwise.
    QString displayName;
    QString company;
    QString unit;
    QString address;
    /// Identity on the server; empty for a contact not stored there.
    QString contactUuid;
    /// TELVIX::ContactType of the source.
    qint32 contactType = 0;
    QString email;
    QString extenNumber;
    QString workNumber;
    QString mobileNumber;
    QString homeNumber;

    /// Appends `contact` unless its kind or value is empty; a primary contact
    /// takes the primary mark from the others of its kind.
    void addContact(const ContactEntry& contact);
    /// Lets `contact` fill the cached number it belongs to: the first of a
    /// class wins unless a later one is primary.
    void updateCachedValues(const ContactEntry& contact);

    /// First and last name joined by one blank, trimmed: the display name
    /// of a person whose name comes in two parts.
    static QString joinNames(const QString& first, const QString& last);

    /// Multi-line description for logs.
    QString toString() const;

    /// Reads the JSON form applications hand in; logs and returns an empty
    /// entry when the text is not a non-empty JSON object.
    static PhoneBookEntry fromJson(const QString& json);
    /// The JSON form fromJson reads: names, address and contacts.
    QJsonObject toJsonObject() const;
    QString toJson() const;

    bool operator==(const PhoneBookEntry& other) const;
    bool operator!=(const PhoneBookEntry& other) const { return !(*this == other); }
};

/// One phone book: its entries and where they come from.
class TELVIX_EXPORT PhoneBook
{
    Q_GADGET
    Q_PROPERTY(QList<PhoneBookEntry> entries MEMBER entries)
    Q_PROPERTY(QString type MEMBER type)
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(QString folder MEMBER folder)

public:
    QList<PhoneBookEntry> entries;
    /// A PHONEBOOK::PB_... source such as PB_VANTOR.
    QString type;
    QString name;
    /// PHONEBOOK::PB_FOLDER_PUBLIC or PB_FOLDER_PRIVATE.
    QString folder;

    bool operator==(const PhoneBook& other) const;
    bool operator!=(const PhoneBook& other) const { return !(*this == other); }
};

Q_DECLARE_METATYPE(ContactEntry)
Q_DECLARE_METATYPE(PhoneBookEntry)
Q_DECLARE_METATYPE(PhoneBook)
