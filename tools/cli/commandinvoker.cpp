#include "commandinvoker.h"

#include "jsonconvert.h"
#include "telephoneuri.h"

#include <QJsonDocument>
#include <QObject>
#include <QRegularExpression>
#include <QThread>

namespace {

int parameterTypeId(const QMetaMethod& method, int index)
{
    const int type = method.parameterType(index);
    return type != QMetaType::UnknownType ? type
                                          : QMetaType::type(method.parameterTypes().at(index).constData());
}

int returnTypeId(const QMetaMethod& method)
{
    const int type = method.returnType();
    return type != QMetaType::UnknownType ? type : QMetaType::type(method.typeName());
}

QString describe(const QMetaMethod& method)
{
    QStringList params;
    const QList<QByteArray> types = method.parameterTypes();
    const QList<QByteArray> names = method.parameterNames();
    for (int i = 0; i < types.size(); ++i)
        params.append(QString::fromLatin1(types.at(i) + ' ' + names.at(i)).trimmed());
    return QStringLiteral("%1(%2) -> %3")
        .arg(QString::fromLatin1(method.name()), params.join(QLatin1String(", ")),
             QString::fromLatin1(method.typeName()));
}

// One word typed for a parameter of type `typeId`.
QJsonValue wordToJson(const QString& word, int typeId)
{
    if (typeId == QMetaType::QString)
        return word;
    QJsonParseError parsed;
    const QJsonDocument doc = QJsonDocument::fromJson('[' + word.toUtf8() + ']', &parsed);
    if (parsed.error == QJsonParseError::NoError && doc.array().size() == 1)
        return doc.array().at(0);
    return word;
}

// A number to dial may come as a link, as a browser hands it over
// ("tel:+39-06-1234-5678"): it is read into the string the PBX dials.
bool readDialLink(const QByteArray& parameterName, QVariant* value, QString* error)
{
    static const QRegularExpression link(QStringLiteral("^\\s*(tel|callto|sips?):"),
                                         QRegularExpression::CaseInsensitiveOption);
    if (parameterName != "number" || value->userType() != QMetaType::QString
        || !link.match(value->toString()).hasMatch())
        return true;
    const QString dial = TelephoneUri::toDialString(value->toString(), error);
    *value = dial;
    return !dial.isEmpty();
}

} // namespace

CommandInvoker::CommandInvoker(QObject* target, const QMetaObject& declaringClass)
    : m_target(target)
{
    for (int i = declaringClass.methodOffset(); i < declaringClass.methodCount(); ++i) {
        const QMetaMethod method = declaringClass.method(i);
        if (method.access() == QMetaMethod::Public
            && (method.methodType() == QMetaMethod::Method || method.methodType() == QMetaMethod::Slot))
            m_methods.append(method);
    }
}

bool CommandInvoker::hasMethod(const QString& name) const
{
    const QByteArray latin = name.toLatin1();
    for (const QMetaMethod& method : m_methods) {
        if (method.name() == latin)
            return true;
    }
    return false;
}

QStringList CommandInvoker::descriptions() const
{
    QStringList result;
    for (const QMetaMethod& method : m_methods)
        result.append(describe(method));
    return result;
}

QVector<QMetaMethod> CommandInvoker::candidates(const QString& name, int argCount, QString* error) const
{
    const QByteArray latin = name.toLatin1();
    QVector<QMetaMethod> sameName;
    QVector<QMetaMethod> result;
    for (const QMetaMethod& method : m_methods) {
        if (method.name() != latin)
            continue;
        sameName.append(method);
        if (method.parameterCount() == argCount)
            result.append(method);
    }
    if (sameName.isEmpty()) {
        *error = QStringLiteral("unknown method \"%1\"").arg(name);
    } else if (result.isEmpty()) {
        QStringList forms;
        for (const QMetaMethod& method : qAsConst(sameName))
            forms.append(describe(method));
        *error = QStringLiteral("%1 takes other arguments than the %2 given: %3")
                     .arg(name)
                     .arg(argCount)
                     .arg(forms.join(QLatin1String("; ")));
    }
    return result;
}

bool CommandInvoker::convertArguments(const QMetaMethod& method, const QJsonArray& args, QVariantList* values,
                                      QString* error) const
{
    const QList<QByteArray> names = method.parameterNames();
    for (int i = 0; i < args.size(); ++i) {
        QString why;
        QVariant value = JsonConvert::fromJson(args.at(i), parameterTypeId(method, i), &why);
        if (!value.isValid() || !readDialLink(names.at(i), &value, &why)) {
            *error = QStringLiteral("argument %1 (%2) of %3: %4")
                         .arg(i + 1)
                         .arg(QString::fromLatin1(names.at(i)), describe(method), why);
            return false;
        }
        values->append(value);
    }
    return true;
}

CommandInvoker::Result CommandInvoker::invoke(const QString& name, const QJsonArray& args) const
{
    return invokeFirstFitting(name, args.size(), [&args](const QMetaMethod&) { return args; });
}

CommandInvoker::Result CommandInvoker::invokeWords(const QString& name, const QStringList& words) const
{
    // A word becomes JSON by the type of the parameter it is meant for, so
    // each overload gets its own reading.
    return invokeFirstFitting(name, words.size(), [&words](const QMetaMethod& method) {
        QJsonArray args;
        for (int i = 0; i < words.size(); ++i)
            args.append(wordToJson(words.at(i), parameterTypeId(method, i)));
        return args;
    });
}

CommandInvoker::Result
CommandInvoker::invokeFirstFitting(const QString& name, int argCount,
                                   const std::function<QJsonArray(const QMetaMethod&)>& argsFor) const
{
    Result result;
    const QVector<QMetaMethod> methods = candidates(name, argCount, &result.error);
    for (const QMetaMethod& method : methods) {
        QVariantList values;
        QString why;
        if (convertArguments(method, argsFor(method), &values, &why))
            return call(method, values);
        if (method == methods.first())
            result.error = why;
    }
    return result;
}

CommandInvoker::Result CommandInvoker::call(const QMetaMethod& method, const QVariantList& values) const
{
    Result result;
    result.signature = QString::fromLatin1(method.methodSignature());

    const int returnType = returnTypeId(method);
    QVariant returned;
    QGenericReturnArgument returnArg;
    if (returnType != QMetaType::Void) {
        returned = QVariant(returnType, nullptr);
        returnArg = QGenericReturnArgument(method.typeName(), returned.data());
    }

    const QList<QByteArray> types = method.parameterTypes();
    QGenericArgument a[10];
    for (int i = 0; i < values.size() && i < 10; ++i)
        a[i] = QGenericArgument(types.at(i).constData(), values.at(i).constData());

    QThread* home = m_target->thread();
    const bool hop
        = home != QThread::currentThread() && home->isRunning() && !m_callerThread.contains(method.name());
    const Qt::ConnectionType how = hop ? Qt::BlockingQueuedConnection : Qt::DirectConnection;
    if (!method.invoke(m_target, how, returnArg, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8],
                       a[9])) {
        result.error = QStringLiteral("the call of %1 failed").arg(result.signature);
        return result;
    }
    result.ok = true;
    result.value
        = returnType == QMetaType::Void ? QJsonValue(QJsonValue::Null) : JsonConvert::toJson(returned);
    return result;
}

QStringList CommandInvoker::splitWords(const QString& line, QString* error)
{
    QStringList words;
    QString word;
    bool inWord = false;
    int depth = 0;
    QChar quote;
    for (int i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (!quote.isNull()) {
            if (c == quote) {
                quote = QChar();
                if (depth > 0)
                    word += c;
            } else if (c == QLatin1Char('\\') && quote == QLatin1Char('"') && i + 1 < line.size()) {
                if (depth > 0)
                    word += c;
                word += line.at(++i);
            } else {
                word += c;
            }
            continue;
        }
        if (c.isSpace() && depth == 0) {
            if (inWord)
                words.append(word);
            word.clear();
            inWord = false;
            continue;
        }
        inWord = true;
        if (c == QLatin1Char('"') || (c == QLatin1Char('\'') && depth == 0)) {
            quote = c;
            if (depth > 0)
                word += c;
            continue;
        }
        if (c == QLatin1Char('{') || c == QLatin1Char('['))
            ++depth;
        else if ((c == QLatin1Char('}') || c == QLatin1Char(']')) && depth > 0)
            --depth;
        word += c;
    }
    if (!quote.isNull() || depth > 0) {
        *error = QStringLiteral("unbalanced quotes or brackets");
        return {};
    }
    if (inWord)
        words.append(word);
    return words;
}
