#include "phonebook.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>

using namespace PHONEBOOK;

namespace {

const QString KEY_DISPLAY_NAME = QStringLiteral("displayName");
const QString KEY_FIRST_NAME = QStringLiteral("firstName");
const QString KEY_LAST_NAME = QStringLiteral("lastName");
const QString KEY_UNIT = QStringLiteral("unit");
const QString KEY_COMPANY = QStringLiteral("company");
const QString KEY_ADDRESS = QStringLiteral("address");
const QString KEY_CONTACTS = QStringLiteral("contacts");
const QString KEY_CONTACT_TYPE = QStringLiteral("type");
const QString KEY_CONTACT_LABEL = QStringLiteral("label");
const QString KEY_CONTACT_VALUE = QStringLiteral("value");

void registerPhoneBookTypes()
{
    qRegisterMetaType<ContactEntry>("ContactEntry");
    qRegisterMetaType<PhoneBookEntry>("PhoneBookEntry");
    qRegisterMetaType<PhoneBook>("PhoneBook");
    qRegisterMetaType<QList<ContactEntry>>("QList<ContactEntry>");
    qRegisterMetaType<QList<PhoneBookEntry>>("QList<PhoneBookEntry>");
    qRegisterMetaType<QList<PhoneBook>>("QList<PhoneBook>");
}

// The cached field takes the value when it is still empty or when the new
// contact claims to be the primary one of its class.
void cacheValue(QString& field, const ContactEntry& contact)
{
    if (field.isEmpty() || contact.primary)
        field = contact.value;
}

} // namespace

Q_CONSTRUCTOR_FUNCTION(registerPhoneBookTypes)

bool ContactEntry::operator==(const ContactEntry& other) const
{
    return kind == other.kind && label == other.label && value == other.value && primary == other.primary;
}

void PhoneBookEntry::addContact(const ContactEntry& contact)
{
    if (contact.kind.isEmpty() || contact.value.isEmpty())
        return;
    if (contact.primary) {
        for (ContactEntry& held : contacts) {
            if (held.kind == contact.kind)
                held.primary = false;
        }
    }
    contacts.append(contact);
    updateCachedValues(contact);
}

void PhoneBookEntry::updateCachedValues(const ContactEntry& contact)
{
    if (contact.kind == CTYPE_KIND_PHONE) {
        const QString& label = contact.label;
        if (label == CTYPE_LABEL_EXTEN)
            cacheValue(extenNumber, contact);
        // An extension also serves as the work number.
        if (label == CTYPE_LABEL_MAIN || label == CTYPE_LABEL_EXTEN || label == CTYPE_LABEL_WORK)
            cacheValue(workNumber, contact);
        if (label == CTYPE_LABEL_MOBILE || label == CTYPE_LABEL_WORK_MOBILE)
            cacheValue(mobileNumber, contact);
        if (label == CTYPE_LABEL_HOME)
            cacheValue(homeNumber, contact);
    } else if (contact.kind == CTYPE_KIND_EMAIL) {
        cacheValue(email, contact);
    }
}

QString PhoneBookEntry::joinNames(const QString& first, const QString& last)
{
    return (first + QLatin1Char(' ') + last).trimmed();
}

QString PhoneBookEntry::toString() const
{
    QString text;
    text += QStringLiteral("Fullname: ") + displayName + QLatin1Char('\n');
    text += QStringLiteral("First: ") + firstName + QLatin1Char('\n');
    text += QStringLiteral("Last: ") + lastName + QLatin1Char('\n');
    text += QStringLiteral("Company: ") + company + QLatin1Char('\n');
    text += QStringLiteral("Unit: ") + unit + QLatin1Char('\n');
    for (const ContactEntry& contact : contacts)
        text += contact.kind + QStringLiteral(": ") + contact.value + QStringLiteral(" (") + contact.label
            + QStringLiteral(")\n");
    text += QStringLiteral("Addr: ") + address + QLatin1Char('\n');
    text += QStringLiteral("-----------------------");
    return text;
}

PhoneBookEntry PhoneBookEntry::fromJson(const QString& json)
{
    const QJsonDocument doc = QJsonDocument::fromJson(json.toUtf8());
    if (doc.isNull()) {
        qDebug().noquote() << "Failed to create JSON doc from string";
        return PhoneBookEntry();
    }
    if (!doc.isObject()) {
        qDebug().noquote() << "JSON is not an object.";
        return PhoneBookEntry();
    }
    const QJsonObject object = doc.object();
    if (object.isEmpty()) {
        qDebug().noquote() << "JSON object is empty.";
        return PhoneBookEntry();
    }

    PhoneBookEntry entry;
    entry.displayName = object.value(KEY_DISPLAY_NAME).toString();
    entry.firstName = object.value(KEY_FIRST_NAME).toString();
    entry.lastName = object.value(KEY_LAST_NAME).toString();
    entry.unit = object.value(KEY_UNIT).toString();
    entry.company = object.value(KEY_COMPANY).toString();
    entry.address = object.value(KEY_ADDRESS).toString();
    // Contacts from an application are kept as given: no primary clean-up and
    // no dropping of empty values, only the cache follows them.
    const QJsonArray contacts = object.value(KEY_CONTACTS).toArray();
    for (const QJsonValue& item : contacts) {
        const QJsonObject contactObject = item.toObject();
        ContactEntry contact;
        contact.kind = contactObject.value(KEY_CONTACT_TYPE).toString();
        contact.label = contactObject.value(KEY_CONTACT_LABEL).toString();
        contact.value = contactObject.value(KEY_CONTACT_VALUE).toString();
        entry.contacts.append(contact);
        entry.updateCachedValues(contact);
    }
    return entry;
}

QJsonObject PhoneBookEntry::toJsonObject() const
{
    QJsonArray contactArray;
    for (const ContactEntry& contact : contacts) {
        contactArray.append(QJsonObject {{KEY_CONTACT_TYPE, contact.kind},
                                         {KEY_CONTACT_LABEL, contact.label},
                                         {KEY_CONTACT_VALUE, contact.value}});
    }
    return QJsonObject {{KEY_DISPLAY_NAME, displayName}, {KEY_FIRST_NAME, firstName},
                        {KEY_LAST_NAME, lastName},       {KEY_UNIT, unit},
                        {KEY_COMPANY, company},          {KEY_ADDRESS, address},
                        {KEY_CONTACTS, contactArray}};
}

QString PhoneBookEntry::toJson() const
{
    return QString::fromUtf8(QJsonDocument(toJsonObject()).toJson(QJsonDocument::Compact));
}

bool PhoneBookEntry::operator==(const PhoneBookEntry& other) const
{
    return contacts == other.contacts && firstName == other.firstName && lastName == other.lastName
        && displayName == other.displayName && company == other.company && unit == other.unit
        && address == other.address && contactUuid == other.contactUuid && contactType == other.contactType
        && email == other.email && extenNumber == other.extenNumber && workNumber == other.workNumber
        && mobileNumber == other.mobileNumber && homeNumber == other.homeNumber;
}

bool PhoneBook::operator==(const PhoneBook& other) const
{
    return entries == other.entries && type == other.type && name == other.name && folder == other.folder;
}
