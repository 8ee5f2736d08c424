#include "chatmessage.h"

namespace {

void registerChatMessageTypes()
{
    qRegisterMetaType<ChatMessage>("ChatMessage");
    qRegisterMetaType<QList<ChatMessage>>("QList<ChatMessage>");
}

} // namespace

Q_CONSTRUCTOR_FUNCTION(registerChatMessageTypes)

bool ChatMessage::operator==(const ChatMessage& other) const
{
    return id == other.id && chatId == other.chatId && exten == other.exten && body == other.body
        && threadId == other.threadId && timestamp == other.timestamp && direction == other.direction
        && type == other.type;
}
