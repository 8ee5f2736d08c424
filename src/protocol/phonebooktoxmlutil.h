#pragma once

#include "phonebook.h"
#include "telvix_export.h"

#include <QString>
#include <QXmlStreamWriter>

namespace SARNET_XML {
// One phone book person, as the server sends and accepts it
inline const QString S_XMLTAG_PB_ENTRY = QStringLiteral("User");
inline const QString S_XMLTAG_PB_CONTACTUUID = QStringLiteral("ContactUuid");
inline const QString S_XMLTAG_PB_FIRST = QStringLiteral("First");
inline const QString S_XMLTAG_PB_LAST = QStringLiteral("Last");
inline const QString S_XMLTAG_PB_COMPANY = QStringLiteral("Company");
inline const QString S_XMLTAG_PB_UNIT = QStringLiteral("Unit");
inline const QString S_XMLTAG_PB_CONTACTLIST = QStringLiteral("Contacts");
inline const QString S_XMLTAG_PB_CONTACT = QStringLiteral("Contact");
inline const QString S_XMLTAG_PB_CONTACTTYPE = QStringLiteral("Type");
inline const QString S_XMLTAG_PB_CONTACTVALUE = QStringLiteral("Value");
} // namespace SARNET_XML

/// The XML form of one phone book person ("User"), shared by the phone book
/// answer and the contact requests.
class TELVIX_EXPORT PhonebookToXmlUtil
{
public:
    /// Writes `entry` as a "User" element. A contact's "Type" is its upper-cased
    /// label, or its upper-cased kind when the label is "main".
    static void contactToXml(const PhoneBookEntry& entry, QXmlStreamWriter& writer);
    /// Reads one "User" element's text. Contact types that name no known
    /// number class are dropped.
    static PhoneBookEntry contactFromXml(QStringView xml);
};
