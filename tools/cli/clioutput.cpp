#include "clioutput.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <cstdio>

namespace {

// Items of a list shown in human mode before the rest is summed up.
constexpr int ListItemsShown = 5;

bool isEmptyValue(const QJsonValue& v)
{
    return v.isNull() || (v.isString() && v.toString().isEmpty()) || (v.isArray() && v.toArray().isEmpty())
        || (v.isObject() && v.toObject().isEmpty());
}

QString quoted(const QString& text)
{
    return QString::fromUtf8(
        QJsonDocument(QJsonArray {text}).toJson(QJsonDocument::Compact).mid(1).chopped(1));
}

} // namespace

QString CliOutput::humanText(const QJsonValue& value)
{
    return humanText(value, 0);
}

QString CliOutput::humanText(const QJsonValue& value, int depth)
{
    switch (value.type()) {
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        return QStringLiteral("null");
    case QJsonValue::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QJsonValue::Double: {
        const double d = value.toDouble();
        return d == std::floor(d) && std::abs(d) < 1e15 ? QString::number(qint64(d)) : QString::number(d);
    }
    case QJsonValue::String: {
        const QString text = value.toString();
        static const QString special = QStringLiteral(" ,={}[]\"");
        for (const QChar c : text) {
            if (special.contains(c))
                return quoted(text);
        }
        return text.isEmpty() ? QStringLiteral("\"\"") : text;
    }
    case QJsonValue::Array: {
        const QJsonArray array = value.toArray();
        // Lists of records nested inside records are counted, not shown.
        if (depth >= 2 && array.at(0).isObject())
            return QStringLiteral("<%1 items>").arg(array.size());
        QStringList items;
        for (int i = 0; i < array.size() && i < ListItemsShown; ++i)
            items.append(humanText(array.at(i), depth + 1));
        if (array.size() > ListItemsShown)
            items.append(QStringLiteral("... %1 more").arg(array.size() - ListItemsShown));
        return QLatin1Char('[') + items.join(QLatin1String(", ")) + QLatin1Char(']');
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        QStringList items;
        int shown = 0;
        for (auto it = object.begin(); it != object.end(); ++it) {
            if (isEmptyValue(it.value()))
                continue;
            // Maps keyed by data (extensions, ids) can be long: cut them like lists.
            if (++shown > ListItemsShown && it.value().isObject()) {
                items.append(QStringLiteral("... %1 more").arg(object.size() - ListItemsShown));
                break;
            }
            items.append(it.key() + QLatin1Char('=') + humanText(it.value(), depth + 1));
        }
        return QLatin1Char('{') + items.join(QLatin1String(", ")) + QLatin1Char('}');
    }
    }
    return QString();
}

void CliOutput::printSignal(const QMetaMethod& signal, const QJsonArray& args) const
{
    if (m_json) {
        const QJsonObject line {{QStringLiteral("signal"), QString::fromLatin1(signal.name())},
                                {QStringLiteral("signature"), QString::fromLatin1(signal.methodSignature())},
                                {QStringLiteral("args"), args}};
        writeLine(QString::fromUtf8(QJsonDocument(line).toJson(QJsonDocument::Compact)));
        return;
    }
    QString line = QString::fromLatin1(signal.name());
    const QList<QByteArray> names = signal.parameterNames();
    for (int i = 0; i < args.size(); ++i) {
        const QString name = i < names.size() && !names.at(i).isEmpty() ? QString::fromLatin1(names.at(i))
                                                                        : QStringLiteral("arg%1").arg(i + 1);
        line += QLatin1Char(' ') + name + QLatin1Char('=') + humanText(args.at(i));
    }
    writeLine(line);
}

void CliOutput::printResult(const QJsonValue& id, const QString& call, const QJsonValue& value) const
{
    if (m_json) {
        const QJsonObject line {
            {QStringLiteral("id"), id}, {QStringLiteral("call"), call}, {QStringLiteral("result"), value}};
        writeLine(QString::fromUtf8(QJsonDocument(line).toJson(QJsonDocument::Compact)));
        return;
    }
    writeLine(call + QLatin1String(" => ") + humanText(value));
}

void CliOutput::printError(const QJsonValue& id, const QString& text) const
{
    if (m_json) {
        const QJsonObject line {{QStringLiteral("id"), id}, {QStringLiteral("error"), text}};
        writeLine(QString::fromUtf8(QJsonDocument(line).toJson(QJsonDocument::Compact)));
        return;
    }
    writeLine(QLatin1String("error: ") + text);
}

void CliOutput::printText(const QJsonValue& id, const QString& text) const
{
    if (m_json)
        printResult(id, QStringLiteral("echo"), text);
    else
        writeLine(text);
}

void CliOutput::note(const QString& text)
{
    std::fprintf(stderr, "telvix-cli: %s\n", text.toLocal8Bit().constData());
    std::fflush(stderr);
}

void CliOutput::writeLine(const QString& line) const
{
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}
