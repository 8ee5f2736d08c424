#pragma once

#include <QMutex>
#include <QStringList>

/// Captures the Qt log (qDebug, qWarning, qCritical) while it lives, so that
/// tests can assert log texts that are part of the library's behaviour.
/// Messages are still passed on to the previous handler.
class QtLogCapture
{
public:
    QtLogCapture();
    ~QtLogCapture();
    QtLogCapture(const QtLogCapture&) = delete;
    QtLogCapture& operator=(const QtLogCapture&) = delete;

    QStringList messages() const { return messages(-1); }
    /// Messages of one type only.
    QStringList messages(QtMsgType type) const { return messages(int(type)); }
    /// True if some captured message contains `text`.
    bool contains(const QString& text) const { return count(text) > 0; }
    bool contains(QtMsgType type, const QString& text) const
    {
        return !messages(type).filter(text).isEmpty();
    }
    /// How many captured messages contain `text`.
    int count(const QString& text) const { return messages().filter(text).size(); }
    void clear();

private:
    QStringList messages(int type) const;
    static void handler(QtMsgType type, const QMessageLogContext& ctx, const QString& msg);
    mutable QMutex m_mutex;
    QList<QPair<QtMsgType, QString>> m_messages;
    QtMessageHandler m_previous = nullptr;
    QtLogCapture* m_outer = nullptr;
    bool m_quiet = true;
};
