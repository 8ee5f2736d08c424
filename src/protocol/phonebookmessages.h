#pragma once

#include "phonebook.h"
#include "phonebooktoxmlutil.h"
#include "sxmlmessage.h"
#include "telvix_export.h"

#include <QList>
#include <QString>

namespace SARNET_XML {
inline const QString S_COMMAND_GET_PBOOK = QStringLiteral("GetPhonebook");
inline const QString S_COMMAND_ADD_PBOOK_CONTACT = QStringLiteral("AddPhoneBookContact");
inline const QString S_COMMAND_UPDATE_PBOOK_CONTACT = QStringLiteral("UpdatePhoneBookContact");
inline const QString S_COMMAND_DELETE_PBOOK_CONTACT = QStringLiteral("DeletePhoneBookContact");
inline const QString S_EVENT_PHONEBOOK = QStringLiteral("Phonebook");
inline const QString S_XMLTAG_PB_LIST = QStringLiteral("PhoneBookList");
inline const QString S_XMLTAG_PB_ROOT = QStringLiteral("PhoneBook");
inline const QString S_XMLTAG_PB_FOLDER = QStringLiteral("PhoneBookFolder");
inline const QString S_XMLTAG_PB_OWNER = QStringLiteral("Owner");
inline const QString S_XMLTAG_PB_NEWENTRY = QStringLiteral("UserContact");
} // namespace SARNET_XML

/// The phone books of the PBX. Every "User" of the document is read, whatever
/// book surrounds it; an owned entry goes to the private book, the others to
/// the public one. Only non-empty books are listed, public first.
class TELVIX_EXPORT PBookRespMsg : public SXmlResponseMessage
{
public:
    static PBookRespMsg parseMessage(const QString& xml);
    /// Writes the books with their folders; entries carry no "Owner".
    QString generateXmlMessageBody() const override;

    QList<PhoneBook> phoneBooks;
};

class TELVIX_EXPORT GetPBookReqMsg : public SXmlRequestMessage
{
public:
    QString generateXmlMessageBody() const override;
};

/// Shared shape of the requests that carry one whole contact.
class TELVIX_EXPORT PBookContactReqMsg : public SXmlRequestMessage
{
public:
    PhoneBookEntry entry;

protected:
    /// `command` around "UserContact" around the contact's "User" element.
    QString contactBody(const QString& command) const;
};

class TELVIX_EXPORT AddPBookContactReqMsg : public PBookContactReqMsg
{
public:
    AddPBookContactReqMsg() = default;
    explicit AddPBookContactReqMsg(const PhoneBookEntry& contact) { entry = contact; }
    QString generateXmlMessageBody() const override;
};

class TELVIX_EXPORT UpdatePBookContactReqMsg : public PBookContactReqMsg
{
public:
    UpdatePBookContactReqMsg() = default;
    explicit UpdatePBookContactReqMsg(const PhoneBookEntry& contact) { entry = contact; }
    QString generateXmlMessageBody() const override;
};

/// Deletes a contact by its server identity only.
class TELVIX_EXPORT DeletePBookContactReqMsg : public SXmlRequestMessage
{
public:
    DeletePBookContactReqMsg() = default;
    explicit DeletePBookContactReqMsg(const QString& contact)
        : contactUuid(contact)
    {
    }
    QString generateXmlMessageBody() const override;

    QString contactUuid;
};
