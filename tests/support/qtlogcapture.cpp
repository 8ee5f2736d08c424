#include "qtlogcapture.h"

#include <QMutexLocker>

namespace {
QtLogCapture* g_current = nullptr;
QMutex g_installMutex;
} // namespace

QtLogCapture::QtLogCapture()
{
    QMutexLocker lock(&g_installMutex);
    m_outer = g_current;
    g_current = this;
    m_quiet = qEnvironmentVariableIsEmpty("TELVIX_TEST_VERBOSE");
    m_previous = qInstallMessageHandler(&QtLogCapture::handler);
}

QtLogCapture::~QtLogCapture()
{
    QMutexLocker lock(&g_installMutex);
    qInstallMessageHandler(m_previous);
    g_current = m_outer;
}

void QtLogCapture::handler(QtMsgType type, const QMessageLogContext& ctx, const QString& msg)
{
    QtLogCapture* self = nullptr;
    {
        QMutexLocker lock(&g_installMutex);
        self = g_current;
    }
    if (!self)
        return;
    for (QtLogCapture* c = self; c; c = c->m_outer) {
        QMutexLocker lock(&c->m_mutex);
        c->m_messages.append(qMakePair(type, msg));
    }
    // Keep test output readable: only warnings and worse go through unless asked.
    if (self->m_previous && (!self->m_quiet || type != QtDebugMsg))
        self->m_previous(type, ctx, msg);
}

QStringList QtLogCapture::messages(int type) const
{
    QMutexLocker lock(&m_mutex);
    QStringList out;
    for (const auto& m : m_messages)
        if (type < 0 || m.first == type)
            out << m.second;
    return out;
}

void QtLogCapture::clear()
{
    QMutexLocker lock(&m_mutex);
    m_messages.clear();
}
