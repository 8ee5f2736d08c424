#pragma once

#include "cdrmessages.h"
#include "chatmessage.h"
#include "directorymessages.h"
#include "loginmessages.h"
#include "phonebook.h"
#include "servicemessages.h"
#include "voicemailmessages.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QPair>
#include <QString>
#include <QVector>

class QXmlStreamWriter;

/// The XML of the messages of the local client link, as texts without the
/// frame. The local vocabulary only partly matches the server's, so the
/// records are written out here element by element.
namespace LocalMessages {

/// Text elements in order of writing: (element name, text).
using TextFields = QVector<QPair<QString, QString>>;

/// "<SRNT><API>apiVersion</API>" + message + "</SRNT>", message as it stands.
QString frame(const QString& apiVersion, const QString& message);

/// <Event><inner>fields</inner></Event>
QString event(const QString& inner, const TextFields& fields = {});
/// <ChatEvent><inner>fields</inner></ChatEvent>
QString chatEvent(const QString& inner, const TextFields& fields = {});

/// "1" or "0".
QString flag(bool value);

QString keepAlive();
QString login(const LoginDetails& details);
void writeBuddyStatus(QXmlStreamWriter& writer, const BuddyStatus& status);
QString extenStatus(const BuddyStatus& status);
QString extenStatusList(const QMap<QString, BuddyStatus>& statusMap);
QString voicemailDownloadCompleted(const QString& id, const QString& uuid, const QString& file);
QString mailboxStatus(const MailboxStatus& status);
QString extenList(const PhoneBook& book);
QString phonebookList(const QList<PhoneBook>& books);
QString identityList(const IdentityList& identities);
QString serviceStatusList(const QList<ServiceStatus>& statusList);
QString voicemailList(const QList<VoicemailMessage>& messages);
QString callList(const Cdr& cdr);
QString chatMessage(const ChatMessage& message);
QString chatHistory(const QList<ChatMessage>& messages);

} // namespace LocalMessages
