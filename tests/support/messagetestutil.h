#pragma once

#include <QString>
#include <QStringList>

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

/// The API versions of the server generations: old, newer, current, and
/// "5.10", which sorts below "5.2" as text and so catches ordering mistakes.
QStringList apiGenerations();

/// For a `_data` function: an "api" column (QString) and one row per version.
void addApiRows(const QStringList& apis = apiGenerations());

/// The fixed UUID and timestamp serverDocument writes.
QString fixtureUuid();
QString fixtureTimestamp();

} // namespace MessageTestUtil
