#include "messagetestutil.h"

#include <QTest>

#include "simplexmlparser.h"

namespace MessageTestUtil {

QString fixtureUuid()
{
    return QStringLiteral("{67c8770b-44f1-410a-ab9a-f9b5446f13ee}");
}

QString fixtureTimestamp()
{
    return QStringLiteral("2026-11-15T18:10:02.123");
}

QStringList apiGenerations()
{
    return {QStringLiteral("4.1"), QStringLiteral("4.2"), QStringLiteral("4.5"),  QStringLiteral("4.9"),
            QStringLiteral("5.4"), QStringLiteral("5.7"), QStringLiteral("5.10"), QStringLiteral("6.1")};
}

void addApiRows(const QStringList& apis)
{
    QTest::addColumn<QString>("api");
    for (const QString& api : apis)
        QTest::newRow(qPrintable(api)) << api;
}

QString serverDocument(const QString& body, const QString& api, const QString& family)
{
    return QStringLiteral("<SRNT><API>%1</API><UUID>%2</UUID><Timestamp>%3</Timestamp><%4>%5</%4></SRNT>")
        .arg(api, fixtureUuid(), fixtureTimestamp(), family, body);
}

QString failedDocument(const QString& reason, const QString& body, const QString& api)
{
    return serverDocument(QStringLiteral("<RequestFailed>%1</RequestFailed>").arg(reason) + body, api);
}

QString requestBody(const QString& document)
{
    return SimpleXmlParser::getTagValue(document, QStringLiteral("Request"));
}

} // namespace MessageTestUtil
