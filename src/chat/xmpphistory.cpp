#include "xmpphistory.h"

#include "telvixlog_p.h"

#include <QDebug>
#include <QTimer>
#include <QUuid>

#include <gloox/error.h>
#include <gloox/forward.h>
#include <gloox/iq.h>
#include <gloox/tag.h>

#define XLOG(priority) TelvixLogLine(m_log, priority, Q_FUNC_INFO)

namespace {

const std::string XmlnsMam = "urn:xmpp:mam:1";
const std::string XmlnsRsm = "http://jabber.org/protocol/rsm";
constexpr int HistoryTimeoutMs = 5000;

long childNumber(const gloox::Tag* set, const char* name)
{
    const gloox::Tag* child = set->findChild(name);
    return child ? QString::fromStdString(child->cdata()).toLong(nullptr, 10) : 0;
}

} // namespace

// ---- HistoryResult ---------------------------------------------------------

HistoryResult::HistoryResult(const gloox::Tag* tag)
    : gloox::StanzaExtension(ExtensionType)
{
    if (!tag || tag->name() != "result" || tag->xmlns() != XmlnsMam)
        return;
    const gloox::Tag* forwarded = tag->findChild("forwarded", "xmlns", gloox::XMLNS_STANZA_FORWARDING);
    if (forwarded)
        forward = std::make_shared<gloox::Forward>(forwarded);
    id = tag->findAttribute("id");
}

const std::string& HistoryResult::filterString() const
{
    static const std::string filter = "/message/result[@xmlns='" + XmlnsMam + "']";
    return filter;
}

gloox::StanzaExtension* HistoryResult::newInstance(const gloox::Tag* tag) const
{
    return new HistoryResult(tag);
}

gloox::Tag* HistoryResult::tag() const
{
    auto* result = new gloox::Tag("result", "xmlns", XmlnsMam);
    if (forward)
        result->addChild(forward->tag());
    return result;
}

gloox::StanzaExtension* HistoryResult::clone() const
{
    return new HistoryResult(*this);
}

// ---- HistoryEnd ------------------------------------------------------------

HistoryEnd::HistoryEnd(const gloox::Tag* tag)
    : gloox::StanzaExtension(ExtensionType)
{
    if (!tag || tag->name() != "fin" || tag->xmlns() != XmlnsMam)
        return;
    const gloox::Tag* set = tag->findChild("set", "xmlns", XmlnsRsm);
    if (!set)
        return;
    // Archive ids that are not numbers read 0.
    first = childNumber(set, "first");
    last = childNumber(set, "last");
    count = childNumber(set, "count");
}

const std::string& HistoryEnd::filterString() const
{
    static const std::string filter = "/iq/fin[@xmlns='" + XmlnsMam + "']";
    return filter;
}

gloox::StanzaExtension* HistoryEnd::newInstance(const gloox::Tag* tag) const
{
    return new HistoryEnd(tag);
}

gloox::Tag* HistoryEnd::tag() const
{
    auto* fin = new gloox::Tag("fin", "xmlns", XmlnsMam);
    auto* set = new gloox::Tag(fin, "set", "xmlns", XmlnsRsm);
    if (first > 0)
        new gloox::Tag(set, "first", std::to_string(first));
    if (last > 0)
        new gloox::Tag(set, "last", std::to_string(last));
    new gloox::Tag(set, "count", std::to_string(count));
    return fin;
}

gloox::StanzaExtension* HistoryEnd::clone() const
{
    return new HistoryEnd(*this);
}

// ---- XmppHistory -----------------------------------------------------------

XmppHistory::XmppHistory(const QString& logDir, QObject* parent)
    : QObject(parent)
{
    m_timeoutTimer = new QTimer();
    m_timeoutTimer->setSingleShot(true);
    m_timeoutTimer->setInterval(HistoryTimeoutMs);
    connect(m_timeoutTimer, &QTimer::timeout, this, &XmppHistory::onTimeout);
    m_log = makeFileLogger(QStringLiteral("Default Logbus"), QStringLiteral("XmppHistory"),
                           logDir + QStringLiteral("/xmppEngine.log"), WriterConfig(10, 2),
                           QStringLiteral("XmppHistory"), 100000);
}

XmppHistory::~XmppHistory()
{
    delete m_timeoutTimer;
    if (m_log) {
        m_log->flush();
        m_log->disconnect();
        m_log->deleteLater();
        m_log = nullptr;
    }
}

void XmppHistory::sendRequest(QDateTime since)
{
    // One query at a time; a second one is lost, not queued.
    if (m_pending) {
        XLOG(100) << "Received a second history request. Ignore it.";
        return;
    }
    m_pending = true;
    m_requestId = QUuid::createUuid().toString();

    auto* iq = new gloox::Tag("iq");
    iq->addAttribute("type", "set");
    iq->addAttribute("id", m_requestId.toStdString());
    auto* query = new gloox::Tag(iq, "query", "xmlns", XmlnsMam);
    if (since.isValid()) {
        auto* form = new gloox::Tag(query, "x", "xmlns", "jabber:x:data");
        form->addAttribute("type", "submit");
        auto* formType = new gloox::Tag(form, "field", "var", "FORM_TYPE");
        formType->addAttribute("type", "hidden");
        new gloox::Tag(formType, "value", XmlnsMam);
        auto* start = new gloox::Tag(form, "field", "var", "start");
        // The caller already has the message at `since` itself.
        const QString from = since.addMSecs(1).toString(QStringLiteral("yyyy-MM-ddThh:mm:ss.zzzZ"));
        new gloox::Tag(start, "value", from.toStdString());
    }
    XLOG(1000) << "Sending history request...";
    Q_EMIT sigSendTag(iq);
    m_timeoutTimer->start();
}

void XmppHistory::addMessage(QString archiveId, ChatMessage message)
{
    // Kept even after a time-out: a later answer delivers it.
    m_messages.insert(archiveId, message);
}

bool XmppHistory::handleIq(const gloox::IQ& iq)
{
    if (QString::fromStdString(iq.id()) != m_requestId)
        return false;
    m_pending = false;
    m_timeoutTimer->stop();
    const auto* error = iq.findExtension<gloox::Error>(gloox::ExtError);
    if (error)
        XLOG(10) << "Error requesting chat history: " << QString::fromStdString(error->text());
    // Whatever was gathered goes out, also on an error, earlier queries' included.
    Q_EMIT sigHistoryComplete(m_messages.values());
    return true;
}

void XmppHistory::handleIqID(const gloox::IQ& /*iq*/, int /*context*/)
{
    qDebug() << "Here";
}

void XmppHistory::onTimeout()
{
    XLOG(100) << "History request timed out";
    m_pending = false;
}
