#include "messagetestutil.h"

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
