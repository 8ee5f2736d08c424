#include "phonebooktoxmlutil.h"

#include "messagereader.h"

#include <QHash>
#include <QPair>

using namespace SARNET_XML;
using namespace PHONEBOOK;

namespace {

// Wire contact type (lower-cased) to the kind and label it stands for.
const QHash<QString, QPair<QString, QString>>& contactTypeMap()
{
    static const QHash<QString, QPair<QString, QString>> map {
        {QStringLiteral("exten"), {CTYPE_KIND_PHONE, CTYPE_LABEL_EXTEN}},
        {QStringLiteral("home"), {CTYPE_KIND_PHONE, CTYPE_LABEL_HOME}},
        {QStringLiteral("work"), {CTYPE_KIND_PHONE, CTYPE_LABEL_WORK}},
        {QStringLiteral("mobile"), {CTYPE_KIND_PHONE, CTYPE_LABEL_MOBILE}},
        {QStringLiteral("work_mobile"), {CTYPE_KIND_PHONE, CTYPE_LABEL_WORK_MOBILE}},
        {QStringLiteral("fax"), {CTYPE_KIND_PHONE, CTYPE_LABEL_FAX}},
        {QStringLiteral("email"), {CTYPE_KIND_EMAIL, CTYPE_LABEL_MAIN}},
    };
    return map;
}

} // namespace

void PhonebookToXmlUtil::contactToXml(const PhoneBookEntry& entry, QXmlStreamWriter& writer)
{
    writer.writeStartElement(S_XMLTAG_PB_ENTRY);
    if (!entry.contactUuid.isEmpty())
        writer.writeTextElement(S_XMLTAG_PB_CONTACTUUID, entry.contactUuid);
    writer.writeTextElement(S_XMLTAG_PB_FIRST, entry.firstName);
    writer.writeTextElement(S_XMLTAG_PB_LAST, entry.lastName);
    writer.writeTextElement(S_XMLTAG_PB_COMPANY, entry.company);
    writer.writeTextElement(S_XMLTAG_PB_UNIT, entry.unit);
    writer.writeStartElement(S_XMLTAG_PB_CONTACTLIST);
    for (const ContactEntry& contact : entry.contacts) {
        const QString type = (contact.label == CTYPE_LABEL_MAIN ? contact.kind : contact.label).toUpper();
        if (type.isEmpty())
            continue;
        writer.writeStartElement(S_XMLTAG_PB_CONTACT);
        writer.writeTextElement(S_XMLTAG_PB_CONTACTTYPE, type);
        writer.writeTextElement(S_XMLTAG_PB_CONTACTVALUE, contact.value);
        writer.writeEndElement();
    }
    writer.writeEndElement();
    writer.writeEndElement();
}

PhoneBookEntry PhonebookToXmlUtil::contactFromXml(QStringView xml)
{
    PhoneBookEntry entry;
    entry.contactUuid = MessageReader::text(xml, S_XMLTAG_PB_CONTACTUUID);
    entry.firstName = MessageReader::text(xml, S_XMLTAG_PB_FIRST);
    entry.lastName = MessageReader::text(xml, S_XMLTAG_PB_LAST);
    entry.displayName = PhoneBookEntry::joinNames(entry.firstName, entry.lastName);
    entry.company = MessageReader::text(xml, S_XMLTAG_PB_COMPANY);
    entry.unit = MessageReader::text(xml, S_XMLTAG_PB_UNIT);

    const QVector<QStringView> contacts = MessageReader::entries(xml, S_XMLTAG_PB_CONTACT);
    for (const QStringView contactXml : contacts) {
        const auto kindAndLabel
            = contactTypeMap().constFind(MessageReader::text(contactXml, S_XMLTAG_PB_CONTACTTYPE).toLower());
        if (kindAndLabel == contactTypeMap().constEnd())
            continue;
        ContactEntry contact;
        contact.kind = kindAndLabel->first;
        contact.label = kindAndLabel->second;
        contact.value = MessageReader::text(contactXml, S_XMLTAG_PB_CONTACTVALUE);
        entry.addContact(contact);
    }
    return entry;
}
