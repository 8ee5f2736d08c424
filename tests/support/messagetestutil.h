#pragma once

#include <QString>

/// Helpers for message tests: documents as a server of a given API level
/// sends them, and write-then-read round trips.
namespace MessageTestUtil {

/// A whole server document: envelope with API, UUID and Timestamp, then
/// `<family>` (Response, Request or Info) holding `body`.
QString serverDocument(const QString& body, const QString& api = QStringLiteral("6.1"),
                       const QString& family = QStringLiteral("Response"));

/// A server document whose body reports a failed request.
QString failedDocument(const QString& reason, const QString& body = QString(),
                       const QString& api = QStringLiteral("6.1"));

/// Serialises `msg` at `api` and parses the text back with `Msg::parseMessage`.
template <typename Msg> Msg roundTrip(Msg msg, const QString& api = QStringLiteral("6.1"))
{
    const QString xml = msg.serializeToXml(api);
    return Msg::parseMessage(xml);
}

/// What a written request holds between <Request> and </Request>: the body
/// (behind the Token, when there is one), as a server would cut it.
QString requestBody(const QString& document);

/// The fixed UUID and timestamp serverDocument writes.
QString fixtureUuid();
QString fixtureTimestamp();

} // namespace MessageTestUtil
