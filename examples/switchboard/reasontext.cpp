#include "reasontext.h"

#include <QCoreApplication>
#include <QHash>

QString reasonText(const QString& reason)
{
    // Reason words as the library and the server spell them ("Unkown" too).
    static const QHash<QString, const char*> sentences = {
        {QStringLiteral("Unkown"), QT_TRANSLATE_NOOP("reasonText", "the server closed the connection")},
        {QStringLiteral("UserRequest"), QT_TRANSLATE_NOOP("reasonText", "you logged out")},
        {QStringLiteral("ConnectionTimeout"),
         QT_TRANSLATE_NOOP("reasonText", "the server stopped answering")},
        {QStringLiteral("NetworkError"), QT_TRANSLATE_NOOP("reasonText", "the network is unreachable")},
        {QStringLiteral("EmptyExten"),
         QT_TRANSLATE_NOOP("reasonText", "the server gave this user no extension")},
        {QStringLiteral("NoCapability"),
         QT_TRANSLATE_NOOP("reasonText", "this user may not use this application mode")},
        {QStringLiteral("WrongConfig"),
         QT_TRANSLATE_NOOP("reasonText", "the server sent the client back to itself")},
        {QStringLiteral("UnknownUser"),
         QT_TRANSLATE_NOOP("reasonText", "the server does not know this user")},
        {QStringLiteral("WrongPassword"), QT_TRANSLATE_NOOP("reasonText", "the password is wrong")},
        {QStringLiteral("AdminRequest"), QT_TRANSLATE_NOOP("reasonText", "an administrator logged you off")},
    };
    const char* sentence = sentences.value(reason);
    return sentence ? QCoreApplication::translate("reasonText", sentence) : reason;
}
