#include "phonebookmessages.h"

#include "messagereader.h"
#include "xmlbodywriter.h"

using namespace SARNET_XML;
using namespace PHONEBOOK;

namespace {

PhoneBook serverBook(const QString& folder)
{
    PhoneBook book;
    book.type = PB_VANTOR;
    book.folder = folder;
    return book;
}

// An owner of "-1" is the server's word for nobody.
bool isOwned(const QString& owner)
{
    return !owner.isEmpty() && owner != QLatin1String("-1");
}

} // namespace

PBookRespMsg PBookRespMsg::parseMessage(const QString& xml)
{
    PhoneBook publicBook = serverBook(PB_FOLDER_PUBLIC);
    PhoneBook privateBook = serverBook(PB_FOLDER_PRIVATE);
    const MessageReader::ListWords words {QStringLiteral("PBook request failed: "), S_XMLTAG_PB_ENTRY,
                                          QStringLiteral("parsed an invalid PBookEntry msg, skipping it"),
                                          QString(), QStringLiteral("PBook msg parsed ok")};
    PBookRespMsg msg
        = MessageReader::readList<PBookRespMsg>(xml, words, [&](PBookRespMsg&, QStringView user) {
              const PhoneBookEntry entry = PhonebookToXmlUtil::contactFromXml(user);
              if (entry.contactUuid.isEmpty())
                  return false;
              PhoneBook& book
                  = isOwned(MessageReader::text(user, S_XMLTAG_PB_OWNER)) ? privateBook : publicBook;
              book.entries.append(entry);
              return true;
          });
    if (!publicBook.entries.isEmpty())
        msg.phoneBooks.append(publicBook);
    if (!privateBook.entries.isEmpty())
        msg.phoneBooks.append(privateBook);
    return msg;
}

QString PBookRespMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_XMLTAG_PB_LIST);
    for (const PhoneBook& book : phoneBooks) {
        body.start(S_XMLTAG_PB_ROOT);
        body.text(S_XMLTAG_PB_FOLDER, book.folder);
        for (const PhoneBookEntry& entry : book.entries)
            PhonebookToXmlUtil::contactToXml(entry, body.writer());
        body.end();
    }
    body.end();
    return body.result();
}

QString GetPBookReqMsg::generateXmlMessageBody() const
{
    return EMPTYTAG(S_COMMAND_GET_PBOOK);
}

QString PBookContactReqMsg::contactBody(const QString& command) const
{
    XmlBodyWriter body;
    body.start(command).start(S_XMLTAG_PB_NEWENTRY);
    PhonebookToXmlUtil::contactToXml(entry, body.writer());
    return body.result();
}

QString AddPBookContactReqMsg::generateXmlMessageBody() const
{
    return contactBody(S_COMMAND_ADD_PBOOK_CONTACT);
}

QString UpdatePBookContactReqMsg::generateXmlMessageBody() const
{
    return contactBody(S_COMMAND_UPDATE_PBOOK_CONTACT);
}

QString DeletePBookContactReqMsg::generateXmlMessageBody() const
{
    XmlBodyWriter body;
    body.start(S_COMMAND_DELETE_PBOOK_CONTACT).text(S_XMLTAG_PB_CONTACTUUID, contactUuid);
    return body.result();
}
